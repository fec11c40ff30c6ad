// The codec: what is written is read again, and nothing else is taken for a frame.
#include "certified/protocol/frame.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "certified/protocol/keyed_hash.h"
#include "certified/protocol/subject.h"

namespace quorl::certified {
namespace {

Frame full(Kind kind) {
    Frame frame;
    frame.kind = kind;
    frame.name = "orders.7";
    frame.incarnation = 0x1122334455667788;
    frame.session = 0x99aabbccddeeff00;
    frame.token = 42;
    frame.attempt = 300;
    frame.flags = flagOld;
    frame.reason = Reason::expired;
    frame.subjectId = UINT32_MAX;
    frame.number = 1ull << 40;
    frame.last = (1ull << 40) + 5;
    frame.limit = INT64_MAX;
    frame.subject = "a.b";
    return frame;
}

FrameWriter written(Kind kind) {
    FrameWriter writer;
    encode(full(kind), writer);
    if (kind == Kind::announce) {
        addPattern("a.*", writer);
        addPattern(">", writer);
    } else if (kind == Kind::confirm) {
        NumberSet confirmed(4);
        confirmed.add({7, 9});
        confirmed.add({100, 100});
        addConfirmed(3, confirmed, writer);
        addConfirmed(9, NumberSet(1), writer);
    } else if (kind == Kind::note) {
        addNoted({3, 1, 9, "a.b"}, writer);
        addNoted({4, 2, 2, "a.c"}, writer);
    } else if (kind == Kind::ask || kind == Kind::gone) {
        addRange({1, 1}, 0, writer);
        addRange({3, 1000}, 1, writer);
    }
    return writer;
}

std::vector<Kind> kinds() {
    std::vector<Kind> all;
    for (uint8_t kind = 1; kind <= kindMax; ++kind) all.push_back(static_cast<Kind>(kind));
    return all;
}

class CertifiedFrame : public testing::TestWithParam<Kind> {};

INSTANTIATE_TEST_SUITE_P(Kinds, CertifiedFrame, testing::ValuesIn(kinds()),
                         [](const auto& info) { return "kind" + std::to_string(static_cast<int>(info.param)); });

TEST_P(CertifiedFrame, is_read_as_it_was_written) {
    const FrameWriter writer = written(GetParam());
    Frame frame;
    ASSERT_EQ(decode(writer.bytes(), &frame), Decoded::frame);
    EXPECT_EQ(frame.kind, GetParam());
    EXPECT_EQ(frame.name, "orders.7");
    // Written once more it is the same, so that no field was lost.
    FrameWriter again;
    encode(frame, again);
    EXPECT_EQ(std::string(again.string()), writer.string());
}

TEST_P(CertifiedFrame, is_none_when_it_is_cut_or_longer) {
    const FrameWriter writer = written(GetParam());
    for (size_t size = 0; size < writer.size(); ++size) {
        Frame frame;
        const Decoded decoded = decode(writer.bytes().first(size), &frame);
        // A list that ends between two of its parts is a shorter list.
        const bool shorter = decoded == Decoded::frame && frame.kind == GetParam() && frame.name == "orders.7";
        if (GetParam() == Kind::announce || GetParam() == Kind::confirm || GetParam() == Kind::note ||
            GetParam() == Kind::ask || GetParam() == Kind::gone) {
            EXPECT_TRUE(decoded == Decoded::foreign || shorter) << size;
        } else {
            EXPECT_EQ(decoded, Decoded::foreign) << size;
        }
    }
    std::string longer = writer.string() + '\xff';
    Frame frame;
    EXPECT_EQ(decode({reinterpret_cast<const uint8_t*>(longer.data()), longer.size()}, &frame), Decoded::foreign);
}

TEST(CertifiedFrame, lists_are_read_as_they_were_written) {
    Frame frame;
    FrameWriter writer = written(Kind::confirm);
    ASSERT_EQ(decode(writer.bytes(), &frame), Decoded::frame);
    std::string text;
    forEachConfirmed(frame.list, [&](const Confirmed& part) {
        text += std::to_string(part.subjectId) + ':' + std::to_string(part.upTo);
        forEachRange(part.ranges, part.upTo, [&](Range range) {
            text += '+' + std::to_string(range.first) + '-' + std::to_string(range.last);
        });
        text += ' ';
    });
    EXPECT_EQ(text, "3:4+7-9+100-100 9:1 ");
    writer = written(Kind::note);
    ASSERT_EQ(decode(writer.bytes(), &frame), Decoded::frame);
    text.clear();
    forEachNoted(frame.list, [&](const Noted& part) {
        text += std::to_string(part.subjectId) + ':' + std::to_string(part.from) + '-' + std::to_string(part.last) +
                '=' + std::string(part.subject) + ' ';
    });
    EXPECT_EQ(text, "3:1-9=a.b 4:2-2=a.c ");
}

TEST(CertifiedFrame, newer_versions_and_other_companions_are_told_apart) {
    std::string bytes = written(Kind::data).string();
    const auto decoded = [&] {
        Frame frame;
        return decode({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}, &frame);
    };
    EXPECT_EQ(decoded(), Decoded::frame);
    bytes[1] = protocolVersion + 1;
    EXPECT_EQ(decoded(), Decoded::newer);
    bytes[1] = 0;
    EXPECT_EQ(decoded(), Decoded::foreign);
    bytes[1] = protocolVersion;
    bytes[0] = companionNumber + 1;
    EXPECT_EQ(decoded(), Decoded::foreign);
    bytes[0] = companionNumber;
    bytes[2] = kindMax + 1;
    EXPECT_EQ(decoded(), Decoded::foreign);
}

TEST(CertifiedFrame, names_subjects_and_numbers_are_checked) {
    const auto decoded = [](const Frame& frame) {
        FrameWriter writer;
        encode(frame, writer);
        Frame read;
        return decode(writer.bytes(), &read);
    };
    Frame frame = full(Kind::subscribe);
    EXPECT_EQ(decoded(frame), Decoded::frame);
    frame.name = "a.*";
    EXPECT_EQ(decoded(frame), Decoded::foreign);
    frame = full(Kind::subscribe);
    frame.subject = "a.*";
    EXPECT_EQ(decoded(frame), Decoded::foreign);
    frame.flags |= flagPattern;
    EXPECT_EQ(decoded(frame), Decoded::frame);
    frame = full(Kind::data);
    frame.number = 0;
    EXPECT_EQ(decoded(frame), Decoded::foreign);
    frame.number = UINT64_MAX;
    EXPECT_EQ(decoded(frame), Decoded::foreign);
    frame = full(Kind::accepted);
    frame.last = UINT64_MAX;
    EXPECT_EQ(decoded(frame), Decoded::foreign);
}

TEST(CertifiedFrame, ranges_that_wrap_or_overlap_are_none) {
    const auto decoded = [](std::vector<uint64_t> numbers) {
        FrameWriter writer;
        encode(full(Kind::ask), writer);
        for (const uint64_t number : numbers) writer.number(number);
        Frame frame;
        return decode(writer.bytes(), &frame);
    };
    EXPECT_EQ(decoded({1, 0}), Decoded::frame);
    EXPECT_EQ(decoded({}), Decoded::foreign);
    EXPECT_EQ(decoded({0, 0}), Decoded::foreign);
    EXPECT_EQ(decoded({UINT64_MAX, 0}), Decoded::foreign);
    EXPECT_EQ(decoded({UINT64_MAX - 1, 0}), Decoded::frame);
    EXPECT_EQ(decoded({5, UINT64_MAX - 5}), Decoded::foreign);
    EXPECT_EQ(decoded({5, UINT64_MAX - 6}), Decoded::frame);
    EXPECT_EQ(decoded({5, 3, 0, 1}), Decoded::foreign);
}

TEST(CertifiedFrame, a_confirm_holds_as_many_ranges_as_fit) {
    NumberSet confirmed(1);
    for (uint64_t i = 1; i < 5000; ++i) confirmed.add({i * 1000, i * 1000 + 1});
    FrameWriter writer;
    encode(full(Kind::confirm), writer);
    EXPECT_TRUE(addConfirmed(1, confirmed, writer));
    Frame frame;
    ASSERT_EQ(decode(writer.bytes(), &frame), Decoded::frame);
    size_t ranges = 0;
    forEachConfirmed(frame.list,
                     [&](const Confirmed& part) { forEachRange(part.ranges, part.upTo, [&](Range) { ++ranges; }); });
    EXPECT_GT(ranges, 300u);
    while (addConfirmed(1, NumberSet(1), writer)) {
    }
    EXPECT_EQ(decode(writer.bytes(), &frame), Decoded::frame);
}

TEST(CertifiedNames, are_subjects_of_bounded_size) {
    EXPECT_TRUE(validName("orders"));
    EXPECT_TRUE(validName("plant.line-3.röhre"));
    EXPECT_TRUE(validName(std::string(nameMax, 'x')));
    EXPECT_FALSE(validName(std::string(nameMax + 1, 'x')));
    for (const char* bad : {"", ".", "a.", ".a", "a..b", "a.*", ">", "a.b*", "a\xff", "\xc0\x80", "\xed\xa0\x80"})
        EXPECT_FALSE(validName(bad)) << bad;
    EXPECT_FALSE(validName(std::string_view("a\0b", 3)));
    EXPECT_TRUE(validSubject(addressOf(std::string(nameMax, 'x'))));
}

TEST(CertifiedNames, patterns_match_element_by_element) {
    EXPECT_TRUE(matches("a.*", "a.b"));
    EXPECT_FALSE(matches("a.*", "a"));
    EXPECT_FALSE(matches("a.*", "a.b.c"));
    EXPECT_TRUE(matches("a.>", "a.b.c"));
    EXPECT_FALSE(matches("a.>", "a"));
    EXPECT_TRUE(matches(">", "a"));
    EXPECT_TRUE(matches("*.b", "a.b"));
    EXPECT_FALSE(matches("a.b", "a.c"));
    EXPECT_FALSE(matches("a", "a.b"));
    EXPECT_TRUE(validPattern("a.*.>"));
    EXPECT_FALSE(validPattern("a.>.b"));
    EXPECT_FALSE(validPattern("a.b>"));
}

// The vector of the authors: key 00 01 .. 0f, text 00 01 .. 0e.
TEST(CertifiedKeyedHash, is_siphash) {
    std::string text;
    for (char c = 0; c < 15; ++c) text += c;
    EXPECT_EQ(keyedHash({0x0706050403020100, 0x0f0e0d0c0b0a0908}, text), 0xa129ca6149be45e5u);
}

}  // namespace
}  // namespace quorl::certified

// Frames that are read back, and messages put together from parts that honest and hostile senders send.
#include "transport/nats/assembler.h"

#include <gtest/gtest.h>

#include <random>

#include "transport/nats/frame.h"

namespace quorl::transport::nats {
namespace {

constexpr Origin someone{1, 1};
constexpr Origin another{2, 1};

struct Assembly : testing::Test {
    bool take(Assembler& assembler, const Part& part, int64_t now = 0) { return takeOn(assembler, way, part, now); }
    bool takeOn(Assembler& assembler, const int& on, const Part& part, int64_t now = 0) {
        Assembler::Whole made;
        if (!assembler.take(&on, "a.b", part, now, &made)) return false;
        whole = *made;
        return true;
    }
    Part part(uint64_t number, uint32_t offset, uint32_t size, uint32_t total, Origin sender = someone) {
        return {sender, number, total, offset, bytes.data() + offset, size};
    }

    int way = 0;
    int otherWay = 0;
    std::vector<uint8_t> bytes = [] {
        std::vector<uint8_t> made(1 << 20);
        std::mt19937 random(7);
        for (auto& byte : made) byte = static_cast<uint8_t>(random());
        return made;
    }();
    std::vector<uint8_t> whole;
};

TEST_F(Assembly, putsPartsTogetherInOrder) {
    Assembler assembler;
    EXPECT_FALSE(take(assembler, part(1, 0, 1000, 2500)));
    EXPECT_FALSE(take(assembler, part(1, 1000, 1000, 2500)));
    EXPECT_EQ(assembler.bytesHeld(), 2000u);
    EXPECT_TRUE(take(assembler, part(1, 2000, 500, 2500)));
    EXPECT_EQ(whole, std::vector<uint8_t>(bytes.begin(), bytes.begin() + 2500));
    EXPECT_EQ(assembler.bytesHeld(), 0u);
    EXPECT_EQ(assembler.dropped(), 0u);
}

TEST_F(Assembly, keepsSendersMessagesAndWaysApart) {
    Assembler assembler;
    EXPECT_FALSE(take(assembler, part(1, 0, 10, 20)));
    EXPECT_FALSE(take(assembler, part(2, 0, 10, 20)));
    EXPECT_FALSE(take(assembler, part(1, 0, 10, 20, another)));
    EXPECT_FALSE(takeOn(assembler, otherWay, part(1, 0, 10, 20)));
    EXPECT_TRUE(takeOn(assembler, otherWay, part(1, 10, 10, 20)));
    EXPECT_TRUE(take(assembler, part(1, 10, 10, 20, another)));
    EXPECT_TRUE(take(assembler, part(2, 10, 10, 20)));
    EXPECT_TRUE(take(assembler, part(1, 10, 10, 20)));
    EXPECT_EQ(assembler.dropped(), 0u);
    EXPECT_FALSE(take(assembler, part(3, 0, 10, 20)));
    assembler.forget(&way);
    EXPECT_EQ(assembler.bytesHeld(), 0u);
}

// The daemon sends each part once for every subscription that it matches.
TEST_F(Assembly, holdsAMessageOnceHoweverManyWaysItComes) {
    Assembler assembler({.bytes = 2500, .messages = 1, .patience = 1000});
    for (uint32_t offset = 0; offset < 2000; offset += 1000) {
        EXPECT_FALSE(take(assembler, part(1, offset, 1000, 2500)));
        EXPECT_FALSE(takeOn(assembler, otherWay, part(1, offset, 1000, 2500)));
        EXPECT_EQ(assembler.bytesHeld(), offset + 1000);
    }
    const std::vector<uint8_t> expected(bytes.begin(), bytes.begin() + 2500);
    EXPECT_TRUE(take(assembler, part(1, 2000, 500, 2500)));
    EXPECT_EQ(whole, expected);
    whole.clear();
    EXPECT_TRUE(takeOn(assembler, otherWay, part(1, 2000, 500, 2500)));
    EXPECT_EQ(whole, expected);
    EXPECT_EQ(assembler.bytesHeld(), 0u);
    EXPECT_EQ(assembler.dropped(), 0u);
}

// A way that goes, and one that comes in the middle of a message, disturb no other.
TEST_F(Assembly, waysComeAndGo) {
    Assembler assembler;
    EXPECT_FALSE(take(assembler, part(1, 0, 10, 30)));
    EXPECT_FALSE(takeOn(assembler, otherWay, part(1, 0, 10, 30)));
    EXPECT_FALSE(take(assembler, part(1, 10, 10, 30)));
    assembler.forget(&way);
    EXPECT_FALSE(take(assembler, part(1, 20, 10, 30)));
    EXPECT_FALSE(takeOn(assembler, otherWay, part(1, 10, 10, 30)));
    EXPECT_TRUE(takeOn(assembler, otherWay, part(1, 20, 10, 30)));
    EXPECT_EQ(assembler.bytesHeld(), 0u);
    EXPECT_EQ(assembler.dropped(), 0u);
    // The same number on another subject is another message.
    Assembler::Whole made;
    EXPECT_FALSE(take(assembler, part(2, 0, 10, 20)));
    EXPECT_FALSE(assembler.take(&way, "a.c", part(2, 0, 10, 20), 0, &made));
    EXPECT_TRUE(assembler.take(&way, "a.c", part(2, 10, 10, 20), 0, &made));
    EXPECT_TRUE(take(assembler, part(2, 10, 10, 20)));
    EXPECT_EQ(assembler.dropped(), 0u);
}

TEST_F(Assembly, dropsWhatDoesNotFitTogether) {
    Assembler assembler;
    EXPECT_FALSE(take(assembler, part(1, 10, 10, 20)));  // no beginning
    EXPECT_EQ(assembler.bytesHeld(), 0u);
    EXPECT_FALSE(take(assembler, part(1, 0, 10, 30)));
    EXPECT_FALSE(take(assembler, part(1, 20, 10, 30)));  // a gap
    EXPECT_EQ(assembler.bytesHeld(), 0u);
    EXPECT_FALSE(take(assembler, part(1, 0, 10, 30)));
    EXPECT_FALSE(take(assembler, part(1, 10, 10, 40)));  // another size
    EXPECT_EQ(assembler.bytesHeld(), 0u);
    EXPECT_FALSE(take(assembler, part(1, 0, 10, 30)));
    EXPECT_FALSE(take(assembler, part(1, 0, 10, 30)));  // begun anew
    EXPECT_FALSE(take(assembler, part(1, 10, 10, 30)));
    EXPECT_TRUE(take(assembler, part(1, 20, 10, 30)));
    EXPECT_EQ(whole.size(), 30u);
    EXPECT_EQ(assembler.dropped(), 3u);
}

TEST_F(Assembly, holdsNoMoreThanItsBounds) {
    Assembler assembler({.bytes = 10000, .messages = 4, .patience = 1000});
    for (uint64_t number = 0; number < 100; ++number) {
        EXPECT_FALSE(take(assembler, part(number, 0, 3000, 3001)));
        EXPECT_LE(assembler.bytesHeld(), 10000u);
    }
    EXPECT_FALSE(take(assembler, part(1000, 0, 20000, 30000)));
    EXPECT_LE(assembler.bytesHeld(), 10000u);
    EXPECT_GE(assembler.dropped(), 96u);
    // What is announced costs nothing.
    EXPECT_FALSE(take(assembler, {someone, 7777, largestEntry + 1, 0, bytes.data(), 10}));
    EXPECT_FALSE(take(assembler, {someone, 7778, largestEntry, 0, bytes.data(), 10}));
    EXPECT_LE(assembler.bytesHeld(), 10000u);
    Assembler few({.bytes = 10000, .messages = 4, .patience = 1000});
    for (uint64_t number = 0; number < 10; ++number) EXPECT_FALSE(take(few, part(number, 0, 1, 10)));
    EXPECT_EQ(few.bytesHeld(), 4u);
}

TEST_F(Assembly, waitsForAPartOnlySoLong) {
    Assembler assembler({.bytes = 10000, .messages = 4, .patience = 1000});
    EXPECT_FALSE(take(assembler, part(1, 0, 10, 20), 0));
    EXPECT_FALSE(take(assembler, part(2, 0, 10, 20), 900));
    EXPECT_FALSE(take(assembler, part(1, 10, 10, 20), 1001));
    EXPECT_TRUE(take(assembler, part(2, 10, 10, 20), 1900));
    EXPECT_EQ(assembler.bytesHeld(), 0u);
}

TEST(Frame, partsComeBackFromTheirHeader) {
    std::vector<uint8_t> payload(partHeaderSize + 5, 9);
    writePartHeader(payload.data(), {someone, 77, 500, 40, nullptr, 0});
    FrameKind kind;
    ASSERT_TRUE(readKind(payload.data(), payload.size(), &kind));
    EXPECT_EQ(kind, FrameKind::part);
    Part part;
    ASSERT_TRUE(readPart(payload.data(), payload.size(), &part));
    EXPECT_EQ(part.origin.sender, someone.sender);
    EXPECT_EQ(part.origin.session, someone.session);
    EXPECT_EQ(part.number, 77u);
    EXPECT_EQ(part.total, 500u);
    EXPECT_EQ(part.offset, 40u);
    EXPECT_EQ(part.size, 5u);
    EXPECT_FALSE(readPart(payload.data(), partHeaderSize, &part));
    for (const auto& [total, offset] :
         {std::pair{500u, 496u}, {500u, 501u}, {4u, 0u}, {0u, 0u}, {3u, UINT32_MAX - 2}}) {
        writePartHeader(payload.data(), {someone, 77, total, offset, nullptr, 0});
        EXPECT_FALSE(readPart(payload.data(), payload.size(), &part)) << total << " " << offset;
    }
}

TEST(Frame, entriesAreReadOnlyWhole) {
    std::vector<uint8_t> bytes{3, 'a', '.', 'b', 'Q', 'M', 1, 0, 12, 0, 0, 0, 0, 0, 0, 0};
    Entry entry;
    size_t used = 0;
    ASSERT_TRUE(readEntry(bytes.data(), bytes.size(), &entry, &used));
    EXPECT_EQ(used, bytes.size());
    EXPECT_EQ(entry.replySubject, "a.b");
    EXPECT_EQ(entry.size, 12u);
    for (size_t size = 0; size < bytes.size(); ++size) EXPECT_FALSE(readEntry(bytes.data(), size, &entry, &used));
    bytes[8] = 13;
    EXPECT_FALSE(readEntry(bytes.data(), bytes.size(), &entry, &used));
    bytes[8] = 11;
    EXPECT_FALSE(readEntry(bytes.data(), bytes.size(), &entry, &used));
    bytes[8] = 12;
    bytes[0] = 255;
    EXPECT_FALSE(readEntry(bytes.data(), bytes.size(), &entry, &used));
}

TEST(Frame, onlyOursHaveAKind) {
    FrameKind kind;
    const uint8_t good[] = {'Q', 'N', 1, 3};
    EXPECT_TRUE(readKind(good, 4, &kind));
    EXPECT_FALSE(readKind(good, 3, &kind));
    for (const auto& bad :
         {std::array<uint8_t, 4>{'Q', 'N', 1, 0}, {'Q', 'N', 1, 5}, {'Q', 'N', 2, 1}, {'Q', 'M', 1, 1}})
        EXPECT_FALSE(readKind(bad.data(), bad.size(), &kind));
}

}  // namespace
}  // namespace quorl::transport::nats

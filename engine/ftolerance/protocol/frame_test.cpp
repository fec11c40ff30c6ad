// Frames as bytes: what is written is read, and nothing else is.
#include "ftolerance/protocol/frame.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quorl::ftolerance {
namespace {

constexpr int64_t second = 1'000'000'000;

Frame sample() {
    Frame frame;
    frame.state = State::active;
    frame.member = 0x1122334455667788;
    frame.sequence = UINT64_MAX;
    frame.weight = UINT16_MAX;
    frame.goal = UINT16_MAX;
    frame.joined = highestJoined;
    frame.activation = highestActivation;
    frame.latest = highestActivation;
    frame.intervals = {longestInterval - 2000, longestInterval - 1000, longestInterval};
    frame.label = Label(std::string(Label::most, 'x'));
    return frame;
}

bool same(const Frame& one, const Frame& other) {
    return one.state == other.state && one.member == other.member && one.sequence == other.sequence &&
           one.weight == other.weight && one.goal == other.goal && one.joined == other.joined &&
           one.activation == other.activation && one.latest == other.latest && one.intervals == other.intervals &&
           one.label == other.label;
}

// Null, or what decode says against it.
const char* faultOf(const Frame& frame) {
    Frame read;
    return decode(encode(frame).span(), &read);
}

TEST(FtFrame, is_read_as_it_was_written) {
    Frame frame = sample();
    Frame read;
    ASSERT_EQ(decode(encode(frame).span(), &read), nullptr);
    EXPECT_TRUE(same(frame, read));
    frame = Frame();
    frame.member = 1;
    frame.intervals = {shortestInterval, 0, 2 * shortestInterval};
    ASSERT_EQ(decode(encode(frame).span(), &read), nullptr);
    EXPECT_TRUE(same(frame, read));
}

TEST(FtFrame, is_refused_wherever_it_is_cut) {
    const Block block = encode(sample());
    for (size_t size = 0; size < block.size; ++size) {
        // A copy of exactly that size, so that a read past it is seen.
        const std::vector<uint8_t> cut(block.bytes.begin(), block.bytes.begin() + static_cast<long>(size));
        Frame read = sample();
        read.weight = 7;
        EXPECT_NE(decode(cut, &read), nullptr) << size;
        EXPECT_EQ(read.weight, 7) << "a frame that is refused is not touched";
    }
}

TEST(FtFrame, may_have_more_behind_it_that_a_later_release_appends) {
    const Block block = encode(sample());
    std::vector<uint8_t> longer(block.bytes.begin(), block.bytes.begin() + static_cast<long>(block.size));
    longer.insert(longer.end(), {1, 2, 3});
    Frame read;
    ASSERT_EQ(decode(longer, &read), nullptr);
    EXPECT_TRUE(same(read, sample()));
}

TEST(FtFrame, of_another_companion_or_version_is_refused) {
    Block block = encode(sample());
    Frame read;
    block.bytes[1] = protocolVersion + 1;
    EXPECT_STREQ(decode(block.span(), &read), "it is of another version of the protocol");
    block.bytes[0] = companionNumber + 1;
    EXPECT_STREQ(decode(block.span(), &read), "it is no frame of a fault-tolerance member");
}

TEST(FtFrame, is_refused_with_values_that_no_member_sends) {
    struct Case {
        const char* name;
        void (*spoil)(Frame&);
    };
    const Case cases[] = {
        {"no member", [](Frame& frame) { frame.member = 0; }},
        {"weight 0", [](Frame& frame) { frame.weight = 0; }},
        {"goal 0", [](Frame& frame) { frame.goal = 0; }},
        {"place too high", [](Frame& frame) { frame.joined = highestJoined + 1; }},
        {"activation too high", [](Frame& frame) { frame.activation = frame.latest = highestActivation + 1; }},
        {"activation later than the latest", [](Frame& frame) { frame.latest = 1; }},
        {"active without activation", [](Frame& frame) { frame.activation = 0; }},
        {"standby with activation", [](Frame& frame) { frame.state = State::standby; }},
        {"ranked without a place", [](Frame& frame) { frame.joined = 0; }},
        {"state 0", [](Frame& frame) { frame.state = static_cast<State>(0); }},
        {"state 7", [](Frame& frame) { frame.state = static_cast<State>(7); }},
        {"heartbeat 0",
         [](Frame& frame) {
             frame.intervals = {0, 0, second};
         }},
        {"heartbeat below the shortest",
         [](Frame& frame) {
             frame.intervals = {shortestInterval - 1000, 0, second};
         }},
        {"heartbeat as long as activation",
         [](Frame& frame) {
             frame.intervals = {second, 0, second};
         }},
        {"preparation as long as activation",
         [](Frame& frame) {
             frame.intervals = {second, 2 * second, 2 * second};
         }},
        {"preparation as short as heartbeat",
         [](Frame& frame) {
             frame.intervals = {second, second, 2 * second};
         }},
        {"activation too long",
         [](Frame& frame) {
             frame.intervals = {second, 0, longestInterval + 1000};
         }},
    };
    for (const Case& one : cases) {
        Frame frame = sample();
        one.spoil(frame);
        EXPECT_NE(faultOf(frame), nullptr) << one.name;
    }
    EXPECT_EQ(faultOf(sample()), nullptr);
}

TEST(FtFrame, has_one_form_of_each_number) {
    Frame frame = sample();
    frame.weight = 1;
    const Block block = encode(frame);
    constexpr size_t weightAt = 3 + 8 + 8;
    ASSERT_EQ(block.bytes[weightAt], 1);
    std::vector<uint8_t> longer(block.bytes.begin(), block.bytes.begin() + static_cast<long>(block.size));
    longer[weightAt] = 0x81;
    longer.insert(longer.begin() + weightAt + 1, 0);
    Frame read;
    EXPECT_NE(decode(longer, &read), nullptr);
    // More bits than a number has.
    std::vector<uint8_t> wide(block.bytes.begin(), block.bytes.begin() + weightAt);
    wide.insert(wide.end(), {0x81, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x02});
    wide.insert(wide.end(), block.bytes.begin() + weightAt + 1, block.bytes.begin() + static_cast<long>(block.size));
    EXPECT_NE(decode(wide, &read), nullptr);
}

TEST(FtFrame, carries_labels_of_printable_characters) {
    EXPECT_EQ(Label("host/4711").text(), "host/4711");
    EXPECT_EQ(Label("a\nb\x7f\xc3\xa9").text(), "a?b???");
    EXPECT_EQ(Label(std::string(200, 'y')).text().size(), Label::most);
    Block block = encode(sample());
    block.bytes[block.size - 1] = '\n';
    Frame read;
    EXPECT_NE(decode(block.span(), &read), nullptr);
}

TEST(FtFrame, tokens_grow_with_activations_and_differ_between_members) {
    EXPECT_EQ(tokenOf(0, 5), 0u);
    EXPECT_GT(tokenOf(2, 1), tokenOf(1, UINT64_MAX));
    EXPECT_NE(tokenOf(1, 1), tokenOf(1, 2));
    EXPECT_GT(tokenOf(highestActivation, 0), tokenOf(highestActivation - 1, UINT64_MAX));
}

}  // namespace
}  // namespace quorl::ftolerance

// Frames: what is written is read again, and what no member writes is refused.
#include "dqueue/protocol/frame.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "certified/protocol/frame.h"
#include "dqueue/protocol/machine.h"

namespace quorl::dqueue {
namespace {

std::vector<uint8_t> bytesOf(const Frame& frame) {
    FrameWriter writer;
    encode(frame, writer);
    EXPECT_TRUE(writer.fits());
    return {writer.bytes().begin(), writer.bytes().end()};
}
std::span<const uint8_t> spanOf(const std::string& text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

Frame frameOf(Kind kind) {
    Frame frame;
    frame.kind = kind;
    frame.member = 7;
    frame.term = {12, 9};
    return frame;
}

std::string listOf(GroupKind kind, uint32_t reassigned, const StreamRef& stream, const std::vector<Range>& ranges) {
    GroupLists lists;
    for (const Range& range : ranges) lists.add(kind, reassigned, stream, range);
    const std::vector<std::string> made = lists.take();
    EXPECT_EQ(made.size(), 1u);
    return made.empty() ? std::string() : made.front();
}

TEST(DqueueFrame, reads_what_it_has_written) {
    Frame task = frameOf(Kind::task);
    task.attachment = 3;
    task.sequence = 400;
    task.reassigned = 2;
    task.number = 77;
    task.incarnation = 5;
    task.subject = "a.b";
    const auto bytes = bytesOf(task);
    Frame read;
    ASSERT_EQ(decode(bytes, &read), Decoded::frame);
    EXPECT_EQ(read.kind, Kind::task);
    EXPECT_EQ(read.member, 7u);
    EXPECT_EQ(read.term, (Term{12, 9}));
    EXPECT_EQ(read.attachment, 3u);
    EXPECT_EQ(read.sequence, 400u);
    EXPECT_EQ(read.reassigned, 2u);
    EXPECT_EQ(read.number, 77u);
    EXPECT_EQ(read.subject, "a.b");
    EXPECT_TRUE(read.original.empty());
}

TEST(DqueueFrame, carries_what_the_sender_said_beside_a_task) {
    certified::Frame data;
    data.name = "sender";
    data.incarnation = 4;
    data.subjectId = 2;
    data.number = 90;
    certified::FrameWriter original;
    certified::encode(data, original);
    Frame task = frameOf(Kind::task);
    task.subject = "a.b";
    task.original = original.bytes();
    task.flags = flagKept;
    Frame read;
    const auto bytes = bytesOf(task);
    ASSERT_EQ(decode(bytes, &read), Decoded::frame);
    ASSERT_EQ(read.original.size(), original.size());
    EXPECT_EQ(std::memcmp(read.original.data(), original.bytes().data(), original.size()), 0);
    // Nothing else than a message of a certified sender, whose stream members can speak of.
    data.name = "sender\x80";
    certified::FrameWriter nameless;
    certified::encode(data, nameless);
    task.original = nameless.bytes();
    EXPECT_EQ(decode(bytesOf(task), &read), Decoded::foreign);
    task.original = {bytes.data(), bytes.size()};
    EXPECT_EQ(decode(bytesOf(task), &read), Decoded::foreign);
}

TEST(DqueueFrame, keeps_groups_apart_by_kind_count_and_stream) {
    GroupLists lists;
    lists.add(GroupKind::done, 0, {"one", 1, 1}, {1, 5});
    lists.add(GroupKind::done, 0, {"one", 1, 1}, {7, 7});
    lists.add(GroupKind::done, 0, {"one", 1, 2}, {9, 9});
    lists.add(GroupKind::held, 3, {"one", 1, 2}, {10, 11});
    lists.add(GroupKind::held, 3, {"one", 1, 2}, {4, 4});
    const std::vector<std::string> made = lists.take();
    ASSERT_EQ(made.size(), 1u);
    Frame frame = frameOf(Kind::report);
    frame.parts = 1;
    frame.list = spanOf(made.front());
    Frame read;
    const auto bytes = bytesOf(frame);
    ASSERT_EQ(decode(bytes, &read), Decoded::frame);
    std::string text;
    forEachGroup(read.list, [&](const Group& group) {
        text += std::to_string(static_cast<int>(group.kind)) + "/" + std::to_string(group.reassigned) + "/" +
                std::to_string(group.stream.subjectId) + ":";
        certified::forEachRange(group.ranges, 0, [&](Range range) {
            text += ' ' + std::to_string(range.first) + '-' + std::to_string(range.last);
        });
        text += ';';
    });
    EXPECT_EQ(text, "1/0/1: 1-5 7-7;1/0/2: 9-9;2/3/2: 10-11;2/3/2: 4-4;");
}

TEST(DqueueFrame, needs_as_many_lists_as_there_is_to_say) {
    GroupLists lists;
    for (uint64_t number = 1; number <= 20'000; ++number)
        lists.add(GroupKind::done, 0, {"a.name.of.some.length", number / 100, 1}, {3 * number, 3 * number});
    uint64_t count = 0;
    const std::vector<std::string> made = lists.take();
    EXPECT_GT(made.size(), 10u);
    for (const std::string& list : made) {
        Frame frame = frameOf(Kind::settled);
        frame.list = spanOf(list);
        Frame read;
        const auto bytes = bytesOf(frame);
        ASSERT_EQ(decode(bytes, &read), Decoded::frame);
        forEachGroup(read.list,
                     [&](const Group& group) { certified::forEachRange(group.ranges, 0, [&](Range) { ++count; }); });
    }
    EXPECT_EQ(count, 20'000u);
}

TEST(DqueueFrame, refuses_what_no_member_writes) {
    Frame read;
    EXPECT_EQ(decode({}, &read), Decoded::foreign);
    Frame offer = frameOf(Kind::offer);
    offer.parts = 1;
    offer.weight = 1;
    EXPECT_EQ(decode(bytesOf(offer), &read), Decoded::frame);
    Frame broken = offer;
    broken.weight = 0;
    EXPECT_EQ(decode(bytesOf(broken), &read), Decoded::foreign);
    broken = offer;
    broken.weight = workerWeightMost + 1;
    EXPECT_EQ(decode(bytesOf(broken), &read), Decoded::foreign);
    broken = offer;
    broken.tasks = workerTasksMost + 1;
    EXPECT_EQ(decode(bytesOf(broken), &read), Decoded::foreign);
    broken = offer;
    broken.part = 1;
    EXPECT_EQ(decode(bytesOf(broken), &read), Decoded::foreign);
    broken = offer;
    broken.member = 0;
    EXPECT_EQ(decode(bytesOf(broken), &read), Decoded::foreign);
    broken = offer;
    broken.term.number = termMost + 1;
    EXPECT_EQ(decode(bytesOf(broken), &read), Decoded::foreign);
    ListWriter list;
    addPattern({0, "a..b"}, list);
    const std::string invalid = list.string();
    broken = offer;
    broken.list = spanOf(invalid);
    EXPECT_EQ(decode(bytesOf(broken), &read), Decoded::foreign);
    Frame settled = frameOf(Kind::settled);
    const std::string wrongName = listOf(GroupKind::done, 0, {"a.*", 1, 1}, {{1, 1}});
    settled.list = spanOf(wrongName);
    EXPECT_EQ(decode(bytesOf(settled), &read), Decoded::foreign);
    const std::string zero = listOf(GroupKind::done, 0, {"a", 1, 1}, {{0, 1}});
    settled.list = spanOf(zero);
    EXPECT_EQ(decode(bytesOf(settled), &read), Decoded::foreign);
    const std::string last = listOf(GroupKind::done, 0, {"a", 1, 1}, {{1, UINT64_MAX}});
    settled.list = spanOf(last);
    EXPECT_EQ(decode(bytesOf(settled), &read), Decoded::foreign);
}

TEST(DqueueFrame, tells_a_newer_version_from_what_is_none) {
    auto bytes = bytesOf(frameOf(Kind::beat));
    Frame read;
    EXPECT_EQ(decode(bytes, &read), Decoded::frame);
    bytes[1] = protocolVersion + 1;
    EXPECT_EQ(decode(bytes, &read), Decoded::newer);
    bytes[1] = 0;
    EXPECT_EQ(decode(bytes, &read), Decoded::foreign);
    bytes[1] = protocolVersion;
    bytes[0] = 1;
    EXPECT_EQ(decode(bytes, &read), Decoded::foreign);
}

TEST(DqueueFrame, reads_no_frame_that_was_cut) {
    Frame report = frameOf(Kind::report);
    report.parts = 1;
    report.attachment = 300;
    report.sequence = 70'000;
    const std::string list = listOf(GroupKind::done, 1, {"sender", 2, 3}, {{1, 9}, {20, 200'000}});
    report.list = spanOf(list);
    const auto bytes = bytesOf(report);
    Frame read;
    ASSERT_EQ(decode(bytes, &read), Decoded::frame);
    // Up to the list, which may be empty.
    for (size_t size = 0; size < bytes.size(); ++size) {
        if (size == bytes.size() - list.size()) continue;
        EXPECT_EQ(decode({bytes.data(), size}, &read), Decoded::foreign) << size;
    }
}

}  // namespace
}  // namespace quorl::dqueue

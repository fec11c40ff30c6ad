// What waits for a daemon: gathered, in order, within bounds.
#include "transport/nats/outbox.h"

#include <gtest/gtest.h>

#include "base/clock.h"
#include "base/status.h"
#include "transport/nats/wire_subject.h"

namespace quorl::transport::nats {
namespace {

message::ContentRef contentOf(const char* subject, size_t bytes, const char* reply = nullptr) {
    quorlMsg message = nullptr;
    EXPECT_EQ(quorlMsg_Create(&message), QUORL_OK);
    EXPECT_EQ(quorlMsg_SetSendSubject(message, subject), QUORL_OK);
    if (reply != nullptr) {
        EXPECT_EQ(quorlMsg_SetReplySubject(message, reply), QUORL_OK);
    }
    const std::vector<char> filler(bytes, 'x');
    EXPECT_EQ(quorlMsg_AddOpaqueEx(message, nullptr, filler.data(), static_cast<quorl_u32>(bytes), 0), QUORL_OK);
    message::ContentRef content;
    EXPECT_EQ(message::snapshot(message, &content), QUORL_OK);
    quorlMsg_Destroy(message);
    return content;
}

struct RoomCounter final : Observer {
    void room() noexcept override { ++reports; }
    int reports = 0;
};

struct Waiting : testing::Test {
    RoomCounter room;
    Outbox outbox{"q.", 10000, room};
    size_t waiting = 0;

    quorl_status put(const message::ContentRef& content, int64_t keepUntil = forever) {
        return outbox.put(content, keepUntil, &waiting);
    }
    // Subjects of the frames that wait, each with the number of its messages.
    std::string frames() {
        std::string all;
        while (auto chunk = outbox.take()) {
            for (const auto& frame : chunk->frames)
                all += std::string(chunk->subjectOf(frame)) + "=" + std::to_string(frame.messages) + " ";
            outbox.giveBack(std::move(chunk));
        }
        return all;
    }
};

TEST_F(Waiting, gathersNeighboursOfOneSubject) {
    outbox.setConnected(true);
    for (const char* subject : {"a", "a", "b", "a", "a", "a"}) ASSERT_EQ(put(contentOf(subject, 100)), QUORL_OK);
    EXPECT_FALSE(outbox.empty());
    EXPECT_EQ(outbox.messages(), 6u);
    EXPECT_EQ(frames(), "q.a=2 q.b=1 q.a=3 ");
    EXPECT_TRUE(outbox.empty());
    EXPECT_EQ(outbox.waiting(), 0u);
}

TEST_F(Waiting, framesHoldTheirMessagesAsTheyWere) {
    outbox.setConnected(true);
    const auto first = contentOf("a b", 10, "r.1");
    const auto second = contentOf("a b", 20);
    ASSERT_EQ(put(first), QUORL_OK);
    ASSERT_EQ(put(second), QUORL_OK);
    const auto chunk = outbox.take();
    ASSERT_EQ(chunk->frames.size(), 1u);
    const auto& frame = chunk->frames[0];
    EXPECT_STREQ(chunk->subjectOf(frame), "q.a%20b");
    const uint8_t* payload = chunk->payloadOf(frame);
    FrameKind kind;
    ASSERT_TRUE(readKind(payload, frame.size, &kind));
    Entry entry;
    size_t used = 0;
    ASSERT_TRUE(readEntry(payload + entriesHeaderSize, frame.size - entriesHeaderSize, &entry, &used));
    EXPECT_EQ(entry.replySubject, "r.1");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(entry.image), entry.size),
              std::string(static_cast<const char*>(first.bytes()), first.byteSize()));
    size_t last = 0;
    ASSERT_TRUE(readEntry(payload + entriesHeaderSize + used, frame.size - entriesHeaderSize - used, &entry, &last));
    EXPECT_EQ(entry.size, second.byteSize());
    EXPECT_EQ(entriesHeaderSize + used + last, frame.size);
}

TEST_F(Waiting, aFrameAndAChunkAreFullAtSomeTime) {
    outbox.setConnected(true);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(put(contentOf("a", 1000)), QUORL_OK);
    uint32_t messages = 0;
    int chunks = 0;
    while (auto chunk = outbox.take()) {
        ++chunks;
        EXPECT_LE(chunk->used, Outbox::Chunk::standardRoom);
        for (const auto& frame : chunk->frames) {
            EXPECT_LE(frame.size, Outbox::frameRoom + entriesHeaderSize);
            messages += frame.messages;
        }
        outbox.giveBack(std::move(chunk));
    }
    EXPECT_EQ(messages, 1000u);
    EXPECT_GE(chunks, 4);
}

TEST_F(Waiting, largeMessagesAreSharedAndInTheirPlace) {
    outbox.setConnected(true);
    ASSERT_EQ(put(contentOf("a", 10)), QUORL_OK);
    const auto large = contentOf("a", 100000);
    ASSERT_EQ(put(large), QUORL_OK);
    ASSERT_EQ(put(contentOf("a", 10)), QUORL_OK);
    const auto chunk = outbox.take();
    ASSERT_EQ(chunk->frames.size(), 3u);
    EXPECT_EQ(chunk->frames[1].size, 0u);
    EXPECT_EQ(chunk->contents[chunk->frames[1].content].bytes(), large.bytes());
    EXPECT_GE(outbox.waiting(), 100000u);
}

TEST_F(Waiting, whileTheDaemonIsAwayTheBoundHolds) {
    int taken = 0;
    while (put(contentOf("a", 900)) == QUORL_OK) ++taken;
    EXPECT_EQ(taken, 10);
    EXPECT_EQ(put(contentOf("a", 900)), QUORL_DAEMON_NOT_CONNECTED);
    EXPECT_NE(std::string(lastErrorText()).find("no room for a message of 9"), std::string::npos) << lastErrorText();
    EXPECT_NE(std::string(lastErrorText()).find("the daemon is away"), std::string::npos);
    EXPECT_EQ(outbox.takeLost(), 2u);
    EXPECT_EQ(outbox.takeLost(), 0u);
    EXPECT_EQ(outbox.messages(), 10u);
    outbox.setConnected(true);
    EXPECT_EQ(put(contentOf("a", 900)), QUORL_OK);
}

TEST_F(Waiting, whatIsWorthlessByNowGivesWay) {
    for (int i = 0; i < 10; ++i) ASSERT_EQ(put(contentOf("a", 900), monotonicNow()), QUORL_OK);
    EXPECT_EQ(put(contentOf("b", 900), forever), QUORL_OK);
    EXPECT_EQ(outbox.takeLost(), 10u);
    EXPECT_EQ(frames(), "q.b=1 ");
}

// A frame is worth what the first of its messages is, so that none is kept longer than it was to be.
TEST_F(Waiting, neighboursThatAreNotKeptEquallyLongAreNotGathered) {
    const int64_t now = monotonicNow();
    EXPECT_EQ(put(contentOf("a", 9), now + 100), QUORL_OK);
    EXPECT_EQ(put(contentOf("a", 9), now + 1'000'000), QUORL_OK);
    EXPECT_EQ(put(contentOf("a", 9), now + 1'000'000'000), QUORL_OK);
    EXPECT_EQ(put(contentOf("a", 9), forever), QUORL_OK);
    EXPECT_EQ(put(contentOf("a", 9), forever), QUORL_OK);
    EXPECT_EQ(put(contentOf("a", 9), now + 100), QUORL_OK);
    const auto chunk = outbox.take();
    ASSERT_EQ(chunk->frames.size(), 4u);
    EXPECT_EQ(chunk->frames[0].messages, 2u);
    EXPECT_EQ(chunk->frames[0].keepUntil, now + 100);
    EXPECT_EQ(chunk->frames[1].messages, 1u);
    EXPECT_EQ(chunk->frames[2].messages, 2u);
    EXPECT_EQ(chunk->frames[3].messages, 1u);
}

TEST_F(Waiting, aFullConnectionTellsOfRoomOnceHalfIsFree) {
    outbox.setConnected(true);
    const auto content = contentOf("a", 40000);
    quorl_status status;
    while ((status = put(content)) == QUORL_OK) {
    }
    EXPECT_EQ(status, Backend::noRoom);
    EXPECT_LE(outbox.waiting(), Outbox::connectedRoom + 50000);
    while (outbox.waiting() >= Outbox::connectedRoom / 2) {
        EXPECT_EQ(room.reports, 0) << outbox.waiting();
        outbox.giveBack(outbox.take());
    }
    EXPECT_EQ(room.reports, 1);
    EXPECT_EQ(put(content), QUORL_OK);
    while (auto chunk = outbox.take()) outbox.giveBack(std::move(chunk));
    EXPECT_EQ(room.reports, 1) << "nobody was refused since";
    while ((status = put(content)) == QUORL_OK) {
    }
    EXPECT_EQ(status, Backend::noRoom);
    outbox.setConnected(false);
    EXPECT_EQ(room.reports, 2) << "who waits may look again: the daemon is away";
    EXPECT_EQ(put(content), QUORL_DAEMON_NOT_CONNECTED);
    outbox.setConnected(true);
    EXPECT_EQ(room.reports, 2);
}

TEST_F(Waiting, aConnectionFullOfLargeMessagesHasRoomWhenThoseAtItsHeadWereSent) {
    outbox.setConnected(true);
    const auto content = contentOf("a", 900000);
    while (put(content) == QUORL_OK) {
    }
    auto chunk = outbox.take();
    EXPECT_EQ(chunk->frames.size(), 1u);
    outbox.giveBack(std::move(chunk));
    EXPECT_EQ(put(contentOf("b", 10)), QUORL_OK);
    EXPECT_EQ(room.reports, 0) << "not for those who send much";
}

}  // namespace
}  // namespace quorl::transport::nats

// Contents and handles as queues and transports use them: sharing, delivery, copies on write, contents from outside.
#include "message/delivery.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "message/message.h"

namespace quorl::message {
namespace {

quorlMsg make(const char* subject, int value) {
    quorlMsg message = nullptr;
    EXPECT_EQ(QUORL_OK, quorlMsg_Create(&message));
    EXPECT_EQ(QUORL_OK, quorlMsg_SetSendSubject(message, subject));
    EXPECT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "n", value, 0));
    return message;
}

int valueOf(quorlMsg message) {
    quorl_i32 value = -1;
    EXPECT_EQ(QUORL_OK, quorlMsg_GetI32Ex(message, "n", &value, 0));
    return value;
}

TEST(Delivery, SnapshotSharesAndChangingCopies) {
    quorlMsg message = make("a.b", 1);
    ContentRef content;
    ASSERT_EQ(QUORL_OK, snapshot(message, &content));
    EXPECT_EQ("a.b", content.sendSubject());
    EXPECT_EQ("", content.replySubject());

    const void* before = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetAsBytes(message, &before));
    EXPECT_EQ(before, content.bytes());
    ASSERT_EQ(QUORL_OK, quorlMsg_UpdateI32Ex(message, "n", 2, 0));

    quorlMsg delivered = nullptr;
    ASSERT_EQ(QUORL_OK, deliver(content, 0, &delivered));
    EXPECT_EQ(1, valueOf(delivered));
    EXPECT_EQ(2, valueOf(message));
    int other = 0;
    for (quorlMsg each : {delivered, message}) {
        void* seen = &other;
        ASSERT_EQ(QUORL_OK, quorlMsg_GetClosure(each, &seen));
        EXPECT_EQ(nullptr, seen);
    }

    finishDelivery(delivered);
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_Destroy(delivered));
    EXPECT_EQ(QUORL_OK, quorlMsg_Destroy(message));
}

TEST(Delivery, DetachedMessagesOutliveTheCallback) {
    quorlMsg message = make("a", 7);
    ContentRef content;
    ASSERT_EQ(QUORL_OK, snapshot(message, &content));
    quorlMsg delivered = nullptr;
    ASSERT_EQ(QUORL_OK, deliver(std::move(content), 0, &delivered));
    ASSERT_EQ(QUORL_OK, quorlMsg_Detach(delivered));
    finishDelivery(delivered);
    EXPECT_EQ(7, valueOf(delivered));
    EXPECT_EQ(QUORL_OK, quorlMsg_Destroy(delivered));
    finishDelivery(delivered);  // gone already
    EXPECT_EQ(QUORL_OK, quorlMsg_Destroy(message));
}

TEST(Delivery, HandedOverMessagesAreTheCallers) {
    quorlMsg message = make("a", 7);
    ContentRef content;
    ASSERT_EQ(QUORL_OK, snapshot(message, &content));
    quorlMsg reply = nullptr;
    ASSERT_EQ(QUORL_OK, handOver(std::move(content), &reply));
    finishDelivery(reply);
    EXPECT_EQ(7, valueOf(reply));
    EXPECT_EQ(QUORL_OK, quorlMsg_Destroy(reply));
    EXPECT_EQ(QUORL_OK, quorlMsg_Destroy(message));
}

TEST(Delivery, EmptyMessagesCanBeSent) {
    quorlMsg message = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_Create(&message));
    ContentRef content;
    ASSERT_EQ(QUORL_OK, snapshot(message, &content));
    EXPECT_EQ("", content.sendSubject());
    EXPECT_EQ(12u, content.byteSize());
    EXPECT_EQ(QUORL_OK, quorlMsg_Destroy(message));
    EXPECT_EQ(QUORL_INVALID_MSG, snapshot(message, &content));
}

TEST(Delivery, OtherSubjectsShareTheFields) {
    quorlMsg message = make("first.subject", 5);
    ContentRef content;
    ASSERT_EQ(QUORL_OK, snapshot(message, &content));
    const std::string lengthy = "reply." + std::string(200, 'x');
    ContentRef other;
    for (int hop = 0; hop < 100; ++hop) {
        ASSERT_EQ(QUORL_OK, withSubjects(content, "second", lengthy, &other));
        content = other;
    }
    ASSERT_EQ(QUORL_OK, quorlMsg_Destroy(message));
    EXPECT_EQ("second", content.sendSubject());
    EXPECT_EQ(lengthy, content.replySubject());
    EXPECT_EQ(nullptr, content.get()->base->base);
    quorlMsg delivered = nullptr;
    ASSERT_EQ(QUORL_OK, deliver(content, 0, &delivered));
    EXPECT_EQ(5, valueOf(delivered));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(delivered, "more", 6, 0));
    EXPECT_EQ(5, valueOf(delivered));
    const char* reply = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetReplySubject(delivered, &reply));
    EXPECT_EQ(lengthy, reply);
    finishDelivery(delivered);
}

TEST(Delivery, ContentsFromBytes) {
    quorlMsg message = make("a", 11);
    ContentRef content;
    ASSERT_EQ(QUORL_OK, snapshot(message, &content));
    std::string bytes(static_cast<const char*>(content.bytes()), content.byteSize());
    ContentRef read;
    ASSERT_EQ(QUORL_OK, contentFromBytes(bytes.data(), bytes.size(), "x.y", "_INBOX.1", &read));
    EXPECT_EQ("x.y", read.sendSubject());
    EXPECT_EQ("_INBOX.1", read.replySubject());
    EXPECT_EQ(0, memcmp(bytes.data(), read.bytes(), bytes.size()));
    ASSERT_EQ(QUORL_OK, contentFromBytes(bytes.data(), bytes.size(), "x", "", &read));
    EXPECT_EQ("", read.replySubject());

    EXPECT_EQ(QUORL_INVALID_SUBJECT, contentFromBytes(bytes.data(), bytes.size(), "x.*", "", &read));
    EXPECT_EQ(QUORL_INVALID_SUBJECT, contentFromBytes(bytes.data(), bytes.size(), "x", "a..b", &read));
    for (size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_EQ(QUORL_CORRUPT_MSG, contentFromBytes(bytes.data(), size, "x", "", &read)) << size;
    }
    bytes += '\0';
    EXPECT_EQ(QUORL_CORRUPT_MSG, contentFromBytes(bytes.data(), bytes.size(), "x", "", &read));
    EXPECT_EQ(QUORL_OK, quorlMsg_Destroy(message));
}

TEST(Delivery, AnyValueIsSafeAsAHandle) {
    quorlMsg message = make("a", 1);
    const auto value = quorl::message::valueOf(message);
    EXPECT_EQ(QUORL_OK, quorlMsg_Destroy(message));
    std::vector<uint64_t> values = {0, 1, ~uint64_t{0}, value, value + 1, value | 1023, value ^ (uint64_t{1} << 40)};
    uint64_t random = 88172645463325252u;
    for (int i = 0; i < 100'000; ++i) {
        random ^= random << 13;
        random ^= random >> 7;
        random ^= random << 17;
        values.push_back(i % 2 ? random : random & 0xffff);
    }
    quorl_u32 count = 0;
    for (uint64_t each : values) {
        ASSERT_EQ(QUORL_INVALID_MSG, quorlMsg_GetNumFields(toHandle(each), &count)) << each;
        ASSERT_EQ(QUORL_INVALID_MSG, quorlMsg_Destroy(toHandle(each))) << each;
    }
}

TEST(Delivery, StaleHandlesNeverNameANewerMessage) {
    std::vector<quorlMsg> stale;
    for (int i = 0; i < 1'000; ++i) {
        quorlMsg message = make("a", i);
        for (quorlMsg old : stale) ASSERT_NE(old, message);
        EXPECT_EQ(QUORL_OK, quorlMsg_Destroy(message));
        stale.push_back(message);
    }
}

// Messages made on one thread and given back on another, with the fan-out reading one content at a time.
TEST(Delivery, ThreadsShareContents) {
    constexpr int rounds = 2'000;
    constexpr int readers = 3;
    const quorl_u64 before = liveMessages();
    std::vector<std::vector<ContentRef>> inboxes(readers);
    for (int round = 0; round < rounds; ++round) {
        quorlMsg message = make("a.b.c", round);
        for (int field = 0; field < 20; ++field) {
            quorlMsg_AddI32Ex(message, ("field" + std::to_string(field)).c_str(), field, 0);
        }
        ContentRef content;
        ASSERT_EQ(QUORL_OK, snapshot(message, &content));
        for (auto& inbox : inboxes) inbox.push_back(content);
        ASSERT_EQ(QUORL_OK, quorlMsg_Destroy(message));
    }
    std::vector<std::thread> threads;
    for (auto& inbox : inboxes) {
        threads.emplace_back([&inbox] {
            for (int round = 0; round < rounds; ++round) {
                quorlMsg message = nullptr;
                ASSERT_EQ(QUORL_OK, deliver(std::move(inbox[static_cast<size_t>(round)]), 0, &message));
                ASSERT_EQ(round, valueOf(message));
                quorl_i32 last = 0;
                ASSERT_EQ(QUORL_OK, quorlMsg_GetI32Ex(message, "field19", &last, 0));
                ASSERT_EQ(19, last);
                if (round % 3 == 0) {
                    ASSERT_EQ(QUORL_OK, quorlMsg_UpdateI32Ex(message, "n", -1, 0));
                }
                finishDelivery(message);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(before, liveMessages());
}

}  // namespace
}  // namespace quorl::message

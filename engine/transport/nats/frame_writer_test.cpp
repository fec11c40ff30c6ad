// What the writer makes of frames, for daemons that take much, little, and another amount in the middle.
#include "transport/nats/frame_writer.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "base/clock.h"
#include "message/delivery.h"

namespace quorl::transport::nats {
namespace {

message::ContentRef contentOf(const char* subject, size_t bytes, const char* reply) {
    quorlMsg message = nullptr;
    EXPECT_EQ(quorlMsg_Create(&message), QUORL_OK);
    EXPECT_EQ(quorlMsg_SetSendSubject(message, subject), QUORL_OK);
    if (reply != nullptr) {
        EXPECT_EQ(quorlMsg_SetReplySubject(message, reply), QUORL_OK);
    }
    std::string filler(bytes, 'x');
    for (size_t i = 0; i < bytes; ++i) filler[i] = static_cast<char>('a' + i % 23);
    EXPECT_EQ(quorlMsg_AddOpaqueEx(message, nullptr, filler.data(), static_cast<quorl_u32>(bytes), 0), QUORL_OK);
    message::ContentRef content;
    EXPECT_EQ(message::snapshot(message, &content), QUORL_OK);
    quorlMsg_Destroy(message);
    return content;
}

// Puts together what was published, as a receiver does, and holds every payload to the limit there was.
struct Daemon final : PayloadSink {
    PayloadLimit limit() const noexcept override { return now; }
    bool publish(std::string_view, const uint8_t* payload, size_t size) noexcept override {
        if (refuse-- == 0) return false;
        if (beforeEach) beforeEach();
        if (size > now.bytes()) return false;
        ++published;
        FrameKind kind{};
        EXPECT_TRUE(readKind(payload, size, &kind));
        if (kind == FrameKind::image) images.emplace_back(reinterpret_cast<const char*>(payload), size);
        if (kind == FrameKind::entries || kind == FrameKind::attributed)
            readEntries(payload + entriesHeaderSize, size - entriesHeaderSize, kind == FrameKind::attributed);
        if (kind == FrameKind::part) {
            Part part;
            EXPECT_TRUE(readPart(payload, size, &part));
            if (part.offset == 0) whole.clear();
            if (part.offset == 0) number = part.number;
            EXPECT_EQ(part.offset, whole.size());
            EXPECT_EQ(part.number, number);
            whole.append(reinterpret_cast<const char*>(part.data), part.size);
            if (whole.size() == part.total) readWhole(reinterpret_cast<const uint8_t*>(whole.data()), whole.size());
        }
        return true;
    }
    bool takesMore() noexcept override { return room-- != 0; }
    void readWhole(const uint8_t* bytes, size_t size) {
        Entry entry;
        size_t used = 0;
        ASSERT_TRUE(readEntry(bytes, size, &entry, &used));
        readEntries(bytes, size, used < size);
    }
    void readEntries(const uint8_t* bytes, size_t size, bool trailed) {
        while (size != 0) {
            Entry entry;
            size_t used = 0;
            ASSERT_TRUE(readEntry(bytes, size, &entry, &used, trailed));
            attributes.emplace_back(entry.attributes.begin(), entry.attributes.end());
            images.emplace_back(reinterpret_cast<const char*>(entry.image), entry.size);
            replies.emplace_back(entry.replySubject);
            bytes += used;
            size -= used;
        }
    }

    PayloadLimit now = *PayloadLimit::announced(1 << 20);
    int refuse = -1;  // after so many
    int room = -1;
    std::function<void()> beforeEach;
    size_t published = 0;
    std::vector<std::string> images;
    std::vector<std::string> replies;
    std::vector<std::string> attributes;
    std::string whole;
    uint64_t number = 0;
};

struct Writing : testing::Test {
    Observer nobody;
    Outbox outbox{"q.", 1u << 30, nobody};
    FrameWriter writer{123};
    Daemon daemon;
    std::vector<std::string> expected;
    std::vector<std::string> attributes;

    Writing() { outbox.setConnected(true); }
    void put(size_t bytes, const char* reply = nullptr, const std::string& beside = {}) {
        message::ContentRef content = contentOf("a", bytes, reply);
        if (!beside.empty()) {
            ASSERT_EQ(message::withAttributes(content, {reinterpret_cast<const uint8_t*>(beside.data()), beside.size()},
                                              &content),
                      QUORL_OK);
        }
        size_t waiting = 0;
        ASSERT_EQ(outbox.put(content, forever, &waiting), QUORL_OK);
        attributes.push_back(beside);
        expected.emplace_back(static_cast<const char*>(content.bytes()), content.byteSize());
    }
    // Writes everything, and gives a frame that did not go another try.
    void write() {
        while (auto chunk = outbox.take()) {
            for (const auto& frame : chunk->frames) {
                for (int tries = 0; !writer.write(daemon, *chunk, frame); ++tries) ASSERT_LT(tries, 5000);
            }
            outbox.giveBack(std::move(chunk));
        }
    }
    void expectAll() {
        ASSERT_EQ(daemon.images.size(), expected.size());
        for (size_t i = 0; i < expected.size(); ++i) EXPECT_TRUE(daemon.images[i] == expected[i]) << i;
        EXPECT_EQ(daemon.attributes, attributes);
    }
};

TEST(PayloadLimits, areAlwaysWithinTheirRange) {
    for (const int64_t bytes : {INT64_MIN, int64_t{-1}, int64_t{0}, int64_t{35}, int64_t{511}})
        EXPECT_FALSE(PayloadLimit::announced(bytes)) << bytes;
    EXPECT_EQ(PayloadLimit::announced(512)->bytes(), 512u);
    EXPECT_EQ(PayloadLimit::announced(INT64_MAX)->bytes(), PayloadLimit::most);
    EXPECT_EQ(PayloadLimit::announced(int64_t{1} << 32)->bytes(), PayloadLimit::most);
    EXPECT_EQ(PayloadLimit::announced(600)->behind<partHeaderSize>(), 600 - partHeaderSize);
    EXPECT_EQ(PayloadLimit().bytes(), PayloadLimit::least);
}

TEST_F(Writing, everySizeArrivesThroughTheSmallestDaemon) {
    daemon.now = PayloadLimit();
    for (size_t bytes = 0; bytes < 1100; bytes += 7) put(bytes, bytes % 2 == 0 ? "_INBOX.x.1" : nullptr);
    put(300'000);
    write();
    expectAll();
}

TEST_F(Writing, theLimitMayChangeInTheMiddleOfAMessage) {
    const int64_t limits[] = {512, 1 << 20, 700, 5000, 64 << 20, 600};
    size_t count = 0;
    daemon.beforeEach = [&] {
        if (++count % 3 == 0) daemon.now = *PayloadLimit::announced(limits[count / 3 % 6]);
    };
    for (int i = 0; i < 20; ++i) {
        put(100'000);
        for (size_t j = 0; j < 30; ++j) put(j * 40);
    }
    write();
    expectAll();
}

// A message whose first part has gone stays a message in parts, though the rest would fit now.
TEST_F(Writing, whatWentInPartsGoesOnInParts) {
    daemon.now = *PayloadLimit::announced(1000);
    daemon.room = 2;
    put(5000, "_INBOX.x.1");
    put(100'000);
    put(100'000);
    auto chunk = outbox.take();
    EXPECT_TRUE(writer.write(daemon, *chunk, chunk->frames[0]));  // copied, and so not left in the middle
    daemon.room = 2;
    EXPECT_FALSE(writer.write(daemon, *chunk, chunk->frames[1]));
    daemon.room = -1;
    daemon.now = *PayloadLimit::announced(64 << 20);
    EXPECT_TRUE(writer.write(daemon, *chunk, chunk->frames[1]));
    EXPECT_TRUE(writer.write(daemon, *chunk, chunk->frames[2]));
    expectAll();
}

// Frames with trailers and frames without are told apart, and either goes in any pieces.
TEST_F(Writing, attributesTravelBesideTheImages) {
    for (const int64_t limit : {512, 4096, 1 << 20}) {
        daemon.now = *PayloadLimit::announced(limit);
        const std::string most(message::attributesMax, 'm');
        put(10);
        put(10, nullptr, "a");
        put(10, "_INBOX.x.1", most);
        put(5000, nullptr, "bc");
        put(100'000, "_INBOX.x.1", most);
        put(10);
        write();
        expectAll();
    }
}

TEST_F(Writing, aFrameGoesOnWhereItStoppedOrAnew) {
    daemon.now = PayloadLimit();
    put(10);
    put(1000);
    put(20);
    auto chunk = outbox.take();
    ASSERT_EQ(chunk->frames.size(), 1u);
    daemon.refuse = 2;
    EXPECT_FALSE(writer.write(daemon, *chunk, chunk->frames[0]));
    daemon.refuse = -1;
    daemon.now = *PayloadLimit::announced(64 << 20);
    EXPECT_TRUE(writer.write(daemon, *chunk, chunk->frames[0]));
    expectAll();
    daemon.images.clear();
    daemon.attributes.clear();
    daemon.now = PayloadLimit();
    daemon.refuse = 2;
    EXPECT_FALSE(writer.write(daemon, *chunk, chunk->frames[0]));
    daemon.refuse = -1;
    daemon.images.clear();
    daemon.attributes.clear();
    writer.restart();
    EXPECT_TRUE(writer.write(daemon, *chunk, chunk->frames[0]));
    expectAll();
}

}  // namespace
}  // namespace quorl::transport::nats

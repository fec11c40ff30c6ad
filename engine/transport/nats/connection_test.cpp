// A connection over a daemon that does what the test says.
#include "transport/nats/connection.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstddef>

#include "base/registry.h"
#include "base/thread_state.h"
#include "event/queue.h"
#include "message/delivery.h"
#include "transport/nats/scripted_daemon.h"

namespace quorl::transport::nats {
namespace {

template <class Condition>
bool waitUntil(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + ScriptedDaemon::limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

std::string imageWith(size_t size) {
    quorlMsg message = nullptr;
    EXPECT_EQ(quorlMsg_Create(&message), QUORL_OK);
    const std::string data(size, 'x');
    EXPECT_EQ(quorlMsg_AddOpaqueEx(message, "data", data.data(), static_cast<quorl_u32>(size), 0), QUORL_OK);
    const void* bytes = nullptr;
    quorl_u32 length = 0;
    EXPECT_EQ(quorlMsg_GetAsBytes(message, &bytes), QUORL_OK);
    EXPECT_EQ(quorlMsg_GetByteSize(message, &length), QUORL_OK);
    std::string image(static_cast<const char*>(bytes), length);
    quorlMsg_Destroy(message);
    return image;
}

class OverScriptedDaemon : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        ASSERT_EQ(quorlTransport_Create(&transport_, nullptr, nullptr, nullptr), QUORL_OK);
        ASSERT_EQ(quorlQueue_Create(&queueId_), QUORL_OK);
        queue_ = find<event::Queue>(queueId_);
        connection_ = std::make_unique<Connection>(ConnectionKey{"scripted", {}, {}},
                                                   std::vector<Server>{{false, "127.0.0.1", daemon_.port()}},
                                                   Connection::Limits{}, true);
        ASSERT_EQ(connection_->start(), QUORL_OK);
        ASSERT_EQ(connection_->waitUntilConnected(), QUORL_OK) << quorl_LastErrorText();
    }
    void TearDown() override {
        if (connection_ != nullptr) connection_->stop();
        connection_.reset();
        EXPECT_EQ(quorl_Close(), QUORL_OK) << quorl_LastErrorText();
    }

    template <class T>
    T* find(uint32_t id) {
        ReadGuard guard(*threadState());
        return registry::find<T>(id);
    }
    // A listener whose queue is the test's. It hears the connection when the connection is told of it.
    Listener& listenerTo(const char* subject, int* heard) {
        quorlEvent id = 0;
        EXPECT_EQ(quorlEvent_CreateListener(
                      &id, queueId_, [](quorlEvent, quorlMsg, void* count) { ++*static_cast<int*>(count); }, transport_,
                      subject, heard),
                  QUORL_OK);
        return *static_cast<Listener*>(find<event::Event>(id));
    }
    std::string subscribed(Listener& listener) {
        EXPECT_EQ(connection_->listen(listener), QUORL_OK);
        return daemon_.subscription(wire(listener.subject));
    }
    static std::string wire(const std::string& subject) { return "quorl.default.default." + subject; }
    void dispatch(int count) {
        for (int i = 0; i < count; ++i) ASSERT_EQ(quorlQueue_TimedDispatch(queueId_, 60), QUORL_OK);
    }

    ScriptedDaemon daemon_;
    quorlTransport transport_ = 0;
    quorlQueue queueId_ = 0;
    event::Queue* queue_ = nullptr;
    std::unique_ptr<Connection> connection_;
    int heard_ = 0;
};

// The thread that hands messages on stands still in the middle of it, because the queue is locked.
class Flooded : public OverScriptedDaemon {
  protected:
    static constexpr int messages = 1536;
    static constexpr size_t size = 64u << 10;

    void SetUp() override {
        OverScriptedDaemon::SetUp();
        listener_ = &listenerTo("flood", &heard_);
        const std::string id = subscribed(*listener_);
        queue_->back.lock.lock();
        flood_ = std::thread([this, id, payload = imageWith(size)] {
            for (; delivered_ < messages; ++delivered_) EXPECT_TRUE(daemon_.deliver(id, wire("flood"), payload));
        });
        ASSERT_TRUE(waitUntil([&] { return delivered_ == messages || standsStill(); }));
        // Or all of it would be in this process by now.
        ASSERT_LT(delivered_, messages / 2);
    }
    void TearDown() override {
        if (flood_.joinable()) {
            daemon_.hangUp();
            queue_->back.lock.unlock();
            flood_.join();
        }
        OverScriptedDaemon::TearDown();
    }
    // Whether nothing more gets out for a long while, as a processor sees it.
    bool standsStill() {
        const int before = delivered_;
        for (int i = 0; i < 2000; ++i) std::this_thread::yield();
        return before != 0 && before == delivered_;
    }
    void letGo() {
        queue_->back.lock.unlock();
        flood_.join();
    }

    Listener* listener_ = nullptr;
    std::atomic<int> delivered_{0};
    std::thread flood_;
};

TEST_F(Flooded, noMoreIsReadThanGoesOn) {
    EXPECT_LE(connection_->figures().messagesIn, 1u);
    letGo();
    dispatch(messages);
    EXPECT_EQ(heard_, messages);
    connection_->unlisten(*listener_);
}

TEST_F(Flooded, whatAnEndedListenerLeavesBehindDoesNotHoldUpOthers) {
    connection_->unlisten(*listener_);
    letGo();
    int otherHeard = 0;
    Listener& other = listenerTo("other", &otherHeard);
    const std::string id = subscribed(other);
    EXPECT_TRUE(daemon_.deliver(id, wire("other"), imageWith(1)));
    EXPECT_TRUE(waitUntil([&] {
        quorlQueue_TimedDispatch(queueId_, 0);
        return otherHeard == 1;
    }));
    // What was in the queue's way came, and little else.
    EXPECT_LT(heard_, messages / 2);
    connection_->unlisten(other);
}

TEST_F(OverScriptedDaemon, whatComesForNobodyHoldsUpNothing) {
    Listener& former = listenerTo("former", &heard_);
    const std::string formerId = subscribed(former);
    connection_->unlisten(former);
    ASSERT_TRUE(daemon_.waitUntilEnded(formerId));
    Listener& present = listenerTo("present", &heard_);
    const std::string id = subscribed(present);
    const std::string payload = imageWith(64u << 10);
    for (int i = 0; i < 1200; ++i) {
        ASSERT_TRUE(daemon_.deliver(formerId, wire("former"), payload));
        if (i % 100 == 0) {
            ASSERT_TRUE(daemon_.deliver(id, wire("present"), payload));
        }
    }
    dispatch(12);
    connection_->unlisten(present);
}

// Sends messages of 64 KiB, as a transport does.
void sendBytes(Connection& connection, size_t bytes) {
    quorlMsg message = nullptr;
    ASSERT_EQ(quorlMsg_Create(&message), QUORL_OK);
    const std::string data(64u << 10, 'x');
    ASSERT_EQ(quorlMsg_AddOpaqueEx(message, "data", data.data(), static_cast<quorl_u32>(data.size()), 0), QUORL_OK);
    ASSERT_EQ(quorlMsg_SetSendSubject(message, "many"), QUORL_OK);
    message::ContentRef content;
    ASSERT_EQ(message::snapshot(message, &content), QUORL_OK);
    quorlMsg_Destroy(message);
    const Connection::Batching batching;
    for (size_t sent = 0; sent < bytes;) {
        const quorl_status status = connection.send(content, batching);
        if (status == Backend::noRoom) {
            std::this_thread::yield();
            continue;
        }
        ASSERT_EQ(status, QUORL_OK);
        sent += data.size();
    }
}

// A limit that leaves no room for the headers of parts: what is sent meanwhile keeps to the one that was, and the connection is
// given up with words. It comes back when the daemon takes more.
TEST_F(OverScriptedDaemon, aDaemonThatTakesTooLittleInTheMiddleIsLeft) {
    std::atomic<bool> over{false};
    std::atomic<uint64_t> refused{0};
    std::vector<std::thread> senders;
    for (int i = 0; i < 3; ++i) {
        senders.emplace_back([&] {
            const std::string image = imageWith(64u << 10);
            message::ContentRef content;
            EXPECT_EQ(message::contentFromBytes(image.data(), image.size(), "many", {}, &content), QUORL_OK);
            const Connection::Batching batching;
            while (!over) {
                const quorl_status status = connection_->send(content, batching);
                if (status == QUORL_OK) continue;
                EXPECT_TRUE(status == Backend::noRoom || status == QUORL_DAEMON_NOT_CONNECTED) << quorl_LastErrorText();
                if (status == QUORL_DAEMON_NOT_CONNECTED) ++refused;
                std::this_thread::yield();
            }
        });
    }
    for (const char* limit : {"0", "-1", "36", "100", "511", "-9223372036854775808"}) {
        const uint64_t before = connection_->figures().reconnects;
        ASSERT_TRUE(daemon_.say(std::string("INFO {\"max_payload\":") + limit + "}\r\n"));
        ASSERT_TRUE(waitUntil([&] { return connection_->figures().reconnects > before; })) << limit;
    }
    // More than any number that fits is much.
    const uint64_t before = connection_->figures().reconnects;
    ASSERT_TRUE(daemon_.say("INFO {\"max_payload\":18446744073709551615}\r\n"));
    const uint64_t sent = connection_->figures().messagesOut;
    EXPECT_TRUE(waitUntil([&] { return connection_->figures().messagesOut > sent + 100; }));
    EXPECT_EQ(connection_->figures().reconnects, before);
    over = true;
    for (std::thread& sender : senders) sender.join();
    EXPECT_EQ(connection_->figures().lost, refused);
}

// Pauses between attempts are at least half of what they are set to, and a session that is ended at once is no success.
TEST_F(OverScriptedDaemon, aDaemonThatRefusesAfterItsWelcomeIsNotStormed) {
    const auto start = std::chrono::steady_clock::now();
    constexpr int times = 3;
    for (int i = 0; i < times; ++i) {
        ASSERT_TRUE(daemon_.say("-ERR 'Authorization Violation'\r\n"));
        daemon_.hangUp();
        ASSERT_TRUE(waitUntil([&] { return connection_->figures().reconnects > static_cast<uint64_t>(i); }));
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, times * std::chrono::milliseconds(500));
}

// A system that does not know the newest way of waiting: a filter takes the call away from this thread and those that it starts.
TEST(OverAnOldSystem, whatIsSentArrives) {
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    std::thread([] {
        sock_filter program[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_epoll_pwait2, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        const sock_fprog filter{4, program};
        ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
        ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0);
        ScriptedDaemon daemon;
        Connection connection({"scripted", {}, {}}, {{false, "127.0.0.1", daemon.port()}}, Connection::Limits{}, true);
        ASSERT_EQ(connection.start(), QUORL_OK);
        ASSERT_EQ(connection.waitUntilConnected(), QUORL_OK) << quorl_LastErrorText();
        sendBytes(connection, 4u << 20);
        EXPECT_TRUE(daemon.waitForBytes(4u << 20));
        // And it reads: a daemon that takes too little is left, and found again.
        EXPECT_TRUE(daemon.say("INFO {\"max_payload\":1}\r\n"));
        EXPECT_TRUE(waitUntil([&] { return connection.figures().reconnects == 1; }));
        connection.stop();
    }).join();
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

TEST_F(OverScriptedDaemon, aProbeFollowsWhatWasSentAfterSoManyBytes) {
    constexpr size_t bytes = 16u << 20;
    daemon_.echoProbes = false;
    sendBytes(*connection_, bytes);
    ASSERT_TRUE(daemon_.waitForBytes(bytes));
    std::vector<size_t> between{0};
    for (const auto& one : daemon_.published()) {
        if (one.subject.find("._PROBE.") != std::string::npos) {
            between.push_back(0);
        } else {
            between.back() += one.size;
        }
    }
    // The one of the beginning, which came back, and one that did not: none follows that.
    ASSERT_EQ(between.size(), 3u);
    EXPECT_EQ(between[0], 0u);
    EXPECT_LE(between[1], (1u << 20) + (128u << 10));
    daemon_.echoProbes = true;  // the one of closing
}

}  // namespace
}  // namespace quorl::transport::nats

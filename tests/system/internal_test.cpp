// What the engine uses for itself stays out of programs' sight, and out of strangers' reach.
#include "impostor.h"
#include "quorl/quorl.h"
#include "support.h"

namespace quorltest {
namespace {

// Another client of the daemon, which writes payloads as it likes.
class Stranger {
  public:
    explicit Stranger(int port) : socket_(connectTo(port)) { sendAll(socket_, "CONNECT {\"verbose\":false}\r\n"); }
    ~Stranger() { close(socket_); }
    void publish(const std::string& subject, const std::string& payload) {
        sendAll(socket_, "PUB quorl.default.default." + subject + " " + std::to_string(payload.size()) + "\r\n" +
                             payload + "\r\n");
    }

  private:
    const int socket_;
};

const std::string probe("QN\x01\x03\x07\0\0\0\0\0\0\0", 12);

std::string imageOf(int number) {
    quorlMsg message = newMessage("any", number);
    const void* bytes = nullptr;
    quorl_u32 size = 0;
    EXPECT_EQ(quorlMsg_GetAsBytes(message, &bytes), QUORL_OK);
    EXPECT_EQ(quorlMsg_GetByteSize(message, &size), QUORL_OK);
    std::string image(static_cast<const char*>(bytes), size);
    quorlMsg_Destroy(message);
    return image;
}

std::string entryOf(const std::string& reply, int number) {
    const std::string origin(12, '\x01');  // the session and the sender
    return std::string("QN\x01\x01", 4) + origin + static_cast<char>(reply.size()) + reply + imageOf(number);
}

class Internal : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        server_ = std::make_unique<NatsServer>();
        transport_ = transportTo(server_->url());
        queue_ = newQueue();
        dispatcher_.start([queue = queue_] {
            while (quorlQueue_TimedDispatch(queue, -1) == QUORL_OK) {
            }
        });
        stranger_ = std::make_unique<Stranger>(server_->port());
    }
    void TearDown() override {
        quorlQueue_DestroyEx(queue_, nullptr, nullptr);
        dispatcher_.join();
        Open::TearDown();
    }
    // Each with what it came on.
    void hear(const char* pattern) {
        listen(
            queue_, transport_, pattern,
            [](quorlEvent, quorlMsg message, void* closure) {
                auto& to = *static_cast<Internal*>(closure);
                const char* subject = nullptr;
                quorlMsg_GetSendSubject(message, &subject);
                {
                    std::lock_guard lock(to.mutex_);
                    to.heard_.emplace_back(subject);
                }
                to.count_.add();
            },
            this);
        settleOn(transport_);
    }
    std::vector<std::string> heard() {
        std::lock_guard lock(mutex_);
        return heard_;
    }

    std::unique_ptr<NatsServer> server_;
    std::unique_ptr<Stranger> stranger_;
    quorlTransport transport_ = 0;
    quorlQueue queue_ = 0;
    Threads dispatcher_;
    std::mutex mutex_;
    std::vector<std::string> heard_;
    Counter count_;
};

using Heard = std::vector<std::string>;

TEST_F(Internal, probesAndInboxesOfOthersAreNothingToAWildcard) {
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    hear(">");
    hear("*.*");
    stranger_->publish("_PROBE.0123456789abcdef0123456789abcdef", probe);
    stranger_->publish("_PROBE.x", "anything");
    stranger_->publish("_INBOX.123456789012345678901234.1", imageOf(1));
    stranger_->publish("_QUORL.CIRCUIT.x", "anything");
    stranger_->publish("a.b", imageOf(2));
    ASSERT_TRUE(count_.waitFor(2));
    EXPECT_EQ(heard(), (Heard{"a.b", "a.b"}));
    // What is told next is not about them.
    stranger_->publish("plain", "nonsense");
    ASSERT_TRUE(advisories.waitForOthers(1));
    EXPECT_EQ(advisories.seen().front().subject, "_QUORL.WARN.daemon.malformed");
    EXPECT_EQ(advisories.seen().front().numbers.at("count"), 1u);
    EXPECT_EQ(advisories.seen().front().texts.at("subject"), "plain");
}

// Nothing is subscribed to for them, and what comes because a program listens to everything is dropped unread.
TEST_F(Internal, advisoriesDoNotComeOverADaemon) {
    Advisories advisories(transport_);
    hear("_QUORL.>");
    hear("_QUORL.*.daemon.*");
    hear("_QUORL.OTHER");
    hear(">");
    stranger_->publish("_QUORL.ERROR.daemon.lost", imageOf(1));
    stranger_->publish("_QUORL.STATS", entryOf("_INBOX.x.1", 2));
    stranger_->publish("_QUORL.OTHER", imageOf(3));
    stranger_->publish("plain", imageOf(4));
    ASSERT_TRUE(count_.waitFor(2));
    EXPECT_EQ(heard(), (Heard{"_QUORL.OTHER", "plain"}));
    EXPECT_TRUE(advisories.seen().empty());
}

// The program replies to whoever asks, and words no advisory for a stranger thereby.
TEST_F(Internal, repliesDoNotBecomeAdvisories) {
    Advisories advisories(transport_);
    hear("ask");
    stranger_->publish("ask", entryOf("_QUORL.WARN.daemon.lost", 1));
    stranger_->publish("ask", imageOf(2));
    ASSERT_TRUE(advisories.waitForOthers(1));
    ASSERT_TRUE(count_.waitFor(1));
    EXPECT_EQ(heard(), (Heard{"ask"}));
    EXPECT_NE(advisories.seen().front().texts.at("reason").find("wants a reply"), std::string::npos)
        << advisories.seen().front().texts.at("reason");
    // Nor does one of ours ask others for it.
    quorlMsg message = newMessage("ask", 3);
    ASSERT_EQ(quorlMsg_SetReplySubject(message, "_QUORL.INFO.x"), QUORL_OK);
    EXPECT_EQ(quorlTransport_Send(transport_, message), QUORL_INVALID_SUBJECT);
    EXPECT_NE(std::string(quorl_LastErrorText()).find("never leaves a process"), std::string::npos);
    quorlMsg_Destroy(message);
}

}  // namespace
}  // namespace quorltest

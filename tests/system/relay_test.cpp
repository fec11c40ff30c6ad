// The relay agent, as the program that it is: what it keeps for transports that have left the network, killed in between.
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <numeric>

#include "impostor.h"
#include "quorl/quorlcm.h"
#include "support.h"

namespace quorltest {
namespace {

// The program quorl-relay.
class Relay {
  public:
    Relay(const std::string& daemon, const std::string& ledger) : daemon_(daemon), ledger_(ledger) { start(); }
    ~Relay() { end(SIGTERM); }

    void start() {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        process_ = fork();
        if (process_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(ends[1], 1);
            close(ends[0]);
            close(ends[1]);
            execl(QUORL_RELAY, "quorl-relay", "relay", "--daemon", daemon_.c_str(), "--ledger", ledger_.c_str(),
                  static_cast<char*>(nullptr));
            _exit(127);
        }
        close(ends[1]);
        pollfd come{ends[0], POLLIN, 0};
        char byte = 0;
        EXPECT_EQ(poll(&come, 1, static_cast<int>(limit * 1000)), 1);
        EXPECT_EQ(::read(ends[0], &byte, 1), 1) << "the relay agent has ended";
        close(ends[0]);
    }
    void end(int signal) {
        int status = 0;
        kill(process_, signal);
        EXPECT_EQ(waitpid(process_, &status, 0), process_);
        if (signal == SIGTERM) {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        }
    }
    void signal(int number) const { kill(process_, number); }
    void killAndStart() {
        end(SIGKILL);
        start();
    }

  private:
    const std::string daemon_;
    const std::string ledger_;
    pid_t process_ = -1;
};

// A client of the daemon's that says what it likes, byte by byte.
class Stranger {
  public:
    explicit Stranger(const std::string& url) : socket_(connectTo(std::stoi(url.substr(url.rfind(':') + 1)))) {
        sendAll(socket_,
                "CONNECT {\"verbose\":false}\r\nSUB *.*.*._INBOX.> 1\r\nSUB quorl.default.default._INBOX.> 2\r\n");
    }
    ~Stranger() { close(socket_); }

    // A message without fields, with these attributes.
    void say(const std::string& subject, const std::string& attributes) {
        std::string payload("QN\1\4", 4);
        payload += std::string(4, '\0') + "stranger" + std::string(1, '\0');
        payload += std::string("QM\1\0\14\0\0\0\0\0\0\0", 12) + std::string("QA\1\1", 4);
        for (int byte = 0; byte < 4; ++byte) payload += static_cast<char>(attributes.size() >> (8 * byte));
        payload += attributes;
        sendAll(socket_, "PUB quorl.default.default." + subject + " " + std::to_string(payload.size()) + "\r\n" +
                             payload + "\r\n");
    }
    // Waits until that is among what has come.
    bool hears(const std::string& what) {
        char bytes[4096];
        pollfd come{socket_, POLLIN, 0};
        while (heard_.find(what) == std::string::npos && poll(&come, 1, static_cast<int>(limit * 1000)) == 1) {
            const ssize_t count = recv(socket_, bytes, sizeof bytes, 0);
            if (count <= 0) return false;
            heard_.append(bytes, static_cast<size_t>(count));
        }
        return heard_.find(what) != std::string::npos;
    }

  private:
    const int socket_;
    std::string heard_;
};

std::string text(const std::string& value) {
    return static_cast<char>(value.size()) + value;
}

// What transports say to relay agents.
std::string request(char kind, const std::string& name, char number, const std::string& rest) {
    return std::string("\1\1", 2) + kind + text(name) + text("_INBOX.stranger") + "exchange" + number +
           std::string(1, '\0') + rest;
}

struct Came {
    std::vector<int> numbers;
    std::string sender;
};

void onMessage(quorlcmEvent, quorlMsg message, void* closure) {
    auto& came = *static_cast<Came*>(closure);
    const char* sender = nullptr;
    if (quorlMsg_GetCMSender(message, &sender) == QUORL_OK) came.sender = sender;
    came.numbers.push_back(numberOf(message));
}

class RelayAgent : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        queue = newQueue();
    }
    void TearDown() override {
        EXPECT_EQ(quorl_Close(), QUORL_OK);
        transportsToDaemons.clear();
    }

    quorlcmTransport certified(const char* name, bool relayed) {
        quorlcmTransport made = 0;
        EXPECT_EQ(quorlcmTransport_Create(&made, transportTo(server.url()), name, QUORL_TRUE, folder.file(name).c_str(),
                                          QUORL_FALSE, relayed ? "relay" : nullptr),
                  QUORL_OK)
            << quorl_LastErrorText();
        return made;
    }
    // Off the network, and gone.
    static void leave(quorlcmTransport transport, bool relayed) {
        if (relayed) {
            ASSERT_EQ(quorlcmTransport_DisconnectFromRelayAgent(transport), QUORL_OK) << quorl_LastErrorText();
            EXPECT_EQ(quorlcmTransport_DisconnectFromRelayAgent(transport), QUORL_OK) << "again";
        }
        Counter completed;
        ASSERT_EQ(
            quorlcmTransport_DestroyEx(
                transport, [](quorlcmTransport, void* closure) { static_cast<Counter*>(closure)->add(); }, &completed),
            QUORL_OK);
        ASSERT_TRUE(completed.waitFor(1));
    }
    static void connect(quorlcmTransport transport) {
        ASSERT_EQ(quorlcmTransport_ConnectToRelayAgent(transport), QUORL_OK) << quorl_LastErrorText();
    }
    void listenTo(quorlcmTransport transport, Came& came) {
        quorlcmEvent listener = 0;
        EXPECT_EQ(quorlcmEvent_CreateListener(&listener, queue, onMessage, transport, "work", &came), QUORL_OK);
    }
    template <class F>
    bool until(F&& condition) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) return false;
            quorlQueue_TimedDispatch(queue, 0.01);
        }
        return true;
    }
    static void send(quorlcmTransport sender, int first, int last) {
        for (int number = first; number <= last; ++number) {
            quorlMsg message = newMessage("work", number);
            ASSERT_EQ(quorlcmTransport_Send(sender, message), QUORL_OK) << quorl_LastErrorText();
            quorlMsg_Destroy(message);
        }
    }
    // How many messages the sender keeps on the subject; -1: it knows nothing of it, or of nobody who is registered.
    static int kept(quorlcmTransport sender) {
        int messages = -1;
        const auto look = [](quorlcmTransport, const char*, quorlMsg message, void* closure) -> void* {
            quorl_u64 count = 0;
            const quorlMsg* listeners = nullptr;
            quorl_u32 number = 0;
            quorl_bool registered = QUORL_FALSE;
            EXPECT_EQ(quorlMsg_GetU64Ex(message, "messages", &count, 0), QUORL_OK);
            if (quorlMsg_GetMsgArrayEx(message, "listeners", &listeners, &number, 0) == QUORL_OK && number == 1 &&
                quorlMsg_GetBoolEx(listeners[0], "registered", &registered, 0) == QUORL_OK && registered)
                *static_cast<int*>(closure) = static_cast<int>(count);
            return nullptr;
        };
        EXPECT_EQ(quorlcmTransport_ReviewLedger(sender, look, "work", &messages), QUORL_OK);
        return messages;
    }
    // Both know each other, and have said all that is to be said.
    void acquaint(quorlcmTransport sender, Came& came) {
        send(sender, 0, 0);
        EXPECT_TRUE(until([&] { return !came.numbers.empty() && kept(sender) == 0; }));
        came = {};
    }
    static std::vector<int> upTo(int last) {
        std::vector<int> numbers(static_cast<size_t>(last));
        std::iota(numbers.begin(), numbers.end(), 1);
        return numbers;
    }

    NatsServer server;
    const Directory folder;
    quorlQueue queue = 0;
};

TEST_F(RelayAgent, keepsForAListenerWhatASenderHasSentThatIsGoneNow) {
    Relay relay(server.url(), folder.file("kept"));
    Came came;
    quorlcmTransport sender = certified("sender", true);
    quorlcmTransport listener = certified("listener", true);
    connect(sender);
    connect(listener);
    ASSERT_EQ(quorlcmTransport_AddListener(sender, "listener", "work"), QUORL_OK);
    listenTo(listener, came);
    acquaint(sender, came);
    leave(listener, true);
    send(sender, 1, 50);
    relay.killAndStart();
    send(sender, 51, 100);
    leave(sender, true);
    relay.killAndStart();
    EXPECT_TRUE(came.numbers.empty());
    listener = certified("listener", true);
    listenTo(listener, came);
    connect(listener);
    EXPECT_TRUE(until([&] { return came.numbers.size() >= 100; })) << came.numbers.size();
    EXPECT_EQ(came.numbers, upTo(100));
    EXPECT_EQ(came.sender, "sender");
    // And the sender learns who has confirmed, from its listener's own word.
    sender = certified("sender", true);
    connect(sender);
    EXPECT_TRUE(until([&] { return kept(sender) == 0; })) << kept(sender);
    EXPECT_EQ(came.numbers, upTo(100)) << "nothing comes twice";
}

TEST_F(RelayAgent, sendsForASenderThatIsGone) {
    Relay relay(server.url(), folder.file("kept"));
    Came came;
    quorlcmTransport sender = certified("sender", true);
    quorlcmTransport listener = certified("listener", false);
    connect(sender);
    ASSERT_EQ(quorlcmTransport_AddListener(sender, "listener", "work"), QUORL_OK);
    listenTo(listener, came);
    acquaint(sender, came);
    leave(listener, false);
    send(sender, 1, 100);
    leave(sender, true);
    relay.killAndStart();
    listener = certified("listener", false);
    listenTo(listener, came);
    EXPECT_TRUE(until([&] { return came.numbers.size() >= 100; })) << came.numbers.size();
    EXPECT_EQ(came.numbers, upTo(100));
    leave(listener, false);
    // The confirmations came while the sender was away, and the listener is gone now.
    sender = certified("sender", true);
    connect(sender);
    EXPECT_TRUE(until([&] { return kept(sender) == 0; })) << kept(sender);
}

TEST_F(RelayAgent, whatIsSentOffTheNetworkGoesOutWhenItIsThereAgain) {
    Relay relay(server.url(), folder.file("kept"));
    Came came;
    const quorlcmTransport sender = certified("sender", true);
    const quorlcmTransport listener = certified("listener", false);
    listenTo(listener, came);
    ASSERT_EQ(quorlcmTransport_AddListener(sender, "listener", "work"), QUORL_OK);
    send(sender, 1, 10);
    connect(sender);
    EXPECT_TRUE(until([&] { return came.numbers.size() >= 10; }));
    ASSERT_EQ(quorlcmTransport_DisconnectFromRelayAgent(sender), QUORL_OK) << quorl_LastErrorText();
    send(sender, 11, 20);
    EXPECT_EQ(came.numbers, upTo(10));
    relay.killAndStart();
    connect(sender);
    EXPECT_TRUE(until([&] { return came.numbers.size() >= 20; }));
    EXPECT_EQ(came.numbers, upTo(20));
}

// What a program prints.
std::string printed(const std::string& command) {
    std::string text;
    FILE* out = popen(command.c_str(), "r");
    if (out == nullptr) return text;
    for (int byte = getc(out); byte != EOF; byte = getc(out)) text += static_cast<char>(byte);
    EXPECT_EQ(pclose(out), 0) << command;
    return text;
}

TEST_F(RelayAgent, whatItKeepsIsToldFromWhatATransportKeeps) {
    const std::string ledger = folder.file("kept");
    {
        Relay relay(server.url(), ledger);
        const quorlcmTransport sender = certified("sender", true);
        connect(sender);
        ASSERT_EQ(quorlcmTransport_AddListener(sender, "listener", "work"), QUORL_OK);
        send(sender, 1, 2);
        leave(sender, true);
    }
    quorlcmTransport none = 0;
    EXPECT_EQ(quorlcmTransport_Create(&none, transportTo(server.url()), "relay", QUORL_TRUE, ledger.c_str(),
                                      QUORL_FALSE, nullptr),
              QUORL_NOT_FILE_OWNER);
    EXPECT_NE(std::string(quorl_LastErrorText()).find("is that of the relay agent of this name"), std::string::npos)
        << quorl_LastErrorText();
    const std::string copy = printed(QUORL_LEDGER " export '" + ledger + ".1'");
    EXPECT_TRUE(copy.starts_with("1\t0\twork\t\t")) << copy;
    EXPECT_NE(copy.find("\n2\t0\twork\t\t"), std::string::npos) << copy;
    EXPECT_TRUE(printed(QUORL_RELAY " --version").starts_with("quorl-relay "));
    // And the other way round.
    const std::string own = folder.file("own");
    ASSERT_EQ(quorlcmTransport_Create(&none, transportTo(server.url()), "relay", QUORL_TRUE, own.c_str(), QUORL_FALSE,
                                      nullptr),
              QUORL_OK);
    leave(none, false);
    const std::string before = printed("cat '" + own + "'");
    EXPECT_EQ(
        system((std::string(QUORL_RELAY) + " relay --daemon " + server.url() + " --ledger '" + own + "' 2> /dev/null")
                   .c_str()),
        1 << 8);
    EXPECT_TRUE(printed("cat '" + own + "'") == before) << "it was altered";
}

TEST_F(RelayAgent, withoutOneATransportIsOffTheNetworkAndSaysWhy) {
    const quorlcmTransport sender = certified("sender", true);
    EXPECT_EQ(quorlcmTransport_DisconnectFromRelayAgent(sender), QUORL_OK) << "it is off the network";
    EXPECT_EQ(quorlcmTransport_ConnectToRelayAgent(sender), QUORL_TIMEOUT);
    EXPECT_NE(std::string(quorl_LastErrorText()).find("\"relay\""), std::string::npos) << quorl_LastErrorText();
    send(sender, 1, 1);
}

TEST_F(RelayAgent, standsInFromNoPartOfACopy) {
    const std::string ledger = folder.file("kept");
    Relay relay(server.url(), ledger);
    const quorlcmTransport sender = certified("sender", true);
    connect(sender);
    ASSERT_EQ(quorlcmTransport_AddListener(sender, "listener", "work"), QUORL_OK);
    send(sender, 1, 3);
    leave(sender, true);
    ASSERT_EQ(access((ledger + ".1").c_str(), F_OK), 0);
    // It hands over once more, since the answer was lost, and both are killed in the middle.
    Stranger stranger(server.url());
    stranger.say("_QUORL.CM.RELAY.relay", request(66, "sender", 1, text("Kzz") + text("")));
    stranger.say("_QUORL.CM.RELAY.relay",
                 request(67, "sender", 2, std::string("\1\1", 2) + std::string(8, '\0') + text("work") + text("")));
    // Until it has got both.
    ASSERT_TRUE(stranger.hears(std::string("\1\1\110", 3) + text("sender") + text("") + "exchange" + '\2'));
    relay.killAndStart();
    EXPECT_NE(access((ledger + ".1").c_str(), F_OK), 0);
    connect(certified("sender", true));
}

TEST_F(RelayAgent, keepsNothingThatAStrangerSaysInAListenersName) {
    const std::string ledger = folder.file("kept");
    {
        Relay relay(server.url(), ledger);
        quorlcmTransport sender = certified("sender", true);
        connect(sender);
        ASSERT_EQ(quorlcmTransport_AddListener(sender, "listener", "work"), QUORL_OK);
        send(sender, 1, 3);
        leave(sender, true);
        Stranger stranger(server.url());
        for (char attempt = 1; attempt < 100; ++attempt)
            stranger.say("_QUORL.CM.TO.sender", std::string("\1\1\17", 3) + text("listener") + "sequence" + "sessions" +
                                                    "notoken!" + attempt + std::string(1, '\0') + text("work"));
        // What it has said was heard before this is answered.
        stranger.say("_QUORL.CM.RELAY.relay", request(64, "other", 1, ""));
        ASSERT_TRUE(stranger.hears(std::string("\1\1\105", 3) + text("other")));
    }
    EXPECT_EQ(printed(QUORL_LEDGER " export '" + ledger + "'"), "");
}

TEST_F(RelayAgent, aDisconnectionThatTimedOutIsNotCarriedOutLater) {
    const std::string ledger = folder.file("kept");
    Relay relay(server.url(), ledger);
    const quorlcmTransport sender = certified("sender", true);
    connect(sender);
    relay.signal(SIGSTOP);
    EXPECT_EQ(quorlcmTransport_DisconnectFromRelayAgent(sender), QUORL_TIMEOUT);
    relay.signal(SIGCONT);
    // It has come to what was said before when it comes to this.
    connect(certified("other", true));
    EXPECT_NE(access((ledger + ".1").c_str(), F_OK), 0);
    send(sender, 1, 1);
}

}  // namespace
}  // namespace quorltest

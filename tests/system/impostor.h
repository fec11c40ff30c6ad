// A daemon that is none: a listener on a free port that does to its clients what a test makes it do.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>

#include "loopback.h"
#include "support.h"

namespace quorltest {

inline int connectTo(int port) {
    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return client;
}

inline void sendAll(int socket, const std::string& bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) return;
        sent += static_cast<size_t>(count);
    }
}

// Listens on a free port, and hands each connection to a function on a thread of its own, until it goes.
class Impostor {
  public:
    explicit Impostor(std::function<void(int)> behave) : listener_(listenOnLoopback(16, &port_)) {
        thread_ = std::thread([this, behave = std::move(behave)] {
            for (;;) {
                const int client = accept(listener_, nullptr, nullptr);
                if (client < 0) return;
                behave(client);
                // Kept open until the other side ends it: an impostor may say nothing, and stay.
                char bytes[4096];
                pollfd waited{client, POLLIN, 0};
                while (!over_ && (poll(&waited, 1, 20) == 0 || recv(client, bytes, sizeof bytes, 0) > 0)) {
                }
                close(client);
            }
        });
    }
    ~Impostor() {
        over_ = true;
        shutdown(listener_, SHUT_RDWR);
        thread_.join();
        close(listener_);
    }
    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }

  private:
    int port_ = 0;
    const int listener_;
    std::atomic<bool> over_{false};
    std::thread thread_;
};

inline constexpr const char* greeting =
    "INFO {\"server_id\":\"x\",\"version\":\"2.9.10\",\"proto\":1,\"host\":\"127.0.0.1\",\"port\":4222,"
    "\"max_payload\":1048576}\r\n";

// Greets, and answers as a daemon does to the CONNECT and PING that come then.
inline void greet(int socket) {
    sendAll(socket, greeting);
    std::string heard;
    char bytes[4096];
    while (heard.find("PING") == std::string::npos) {
        const ssize_t count = recv(socket, bytes, sizeof bytes, 0);
        if (count <= 0) return;
        heard.append(bytes, static_cast<size_t>(count));
    }
    sendAll(socket, "PONG\r\n");
}

// The connecting to an impostor.
class Hostile : public Open {
  protected:
    // Must fail within the limit for connecting, with words.
    void refuses(const Impostor& impostor, const std::string& scheme = "") {
        quorlTransport transport = 77;
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, (scheme + impostor.address()).c_str()),
                  QUORL_DAEMON_NOT_FOUND);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
        EXPECT_EQ(transport, 77u);
        const std::string words = quorl_LastErrorText();
        EXPECT_EQ(words.rfind("connect ", 0), 0u) << words;
        EXPECT_NE(words.find(impostor.address() + ": "), std::string::npos) << words;
    }
};

}  // namespace quorltest

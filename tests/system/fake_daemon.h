// A daemon that carries messages, as far as a test needs it, and misbehaves when and as it is told.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "impostor.h"
#include "loopback.h"

namespace quorltest {

class FakeDaemon {
  public:
    // One client of it.
    class Client {
      public:
        int socket() const noexcept { return socket_; }
        // Sent when the client takes it; false: it is gone, or all is to end.
        bool send(std::string_view bytes) {
            while (!bytes.empty()) {
                const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
                if (count > 0) {
                    bytes.remove_prefix(static_cast<size_t>(count));
                    continue;
                }
                if (errno != EAGAIN || !wait(POLLOUT)) return false;
            }
            return true;
        }
        // Until the socket is ready for that; false: the client is gone, or all is to end.
        bool wait(short events) {
            for (;;) {
                pollfd waited{socket_, static_cast<short>(events | POLLRDHUP), 0};
                const int ready = poll(&waited, 1, 20);
                if (over_ || (waited.revents & (POLLRDHUP | POLLERR | POLLHUP)) != 0) return false;
                if (ready > 0) return true;
            }
        }
        // Until the client is gone, or all is to end.
        void stall() { wait(0); }

      private:
        friend class FakeDaemon;
        Client(int socket, const std::atomic<bool>& over) : socket_(socket), over_(over) {}
        const int socket_;
        const std::atomic<bool>& over_;
        std::map<std::string, std::string> subscriptions_;  // subjects by their ids
        std::string heard_;
    };

    // step: called for each client when it comes (0), and before each of its commands is answered (from 1 on). False: it
    // has done what it wanted with the client, which is dropped.
    explicit FakeDaemon(std::function<bool(Client&, int)> step)
        : step_(std::move(step)), listener_(listenOnLoopback(16, &port_)) {
        address_ = "127.0.0.1:" + std::to_string(port_);
        accepting_ = std::thread([this] {
            for (;;) {
                const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
                if (socket < 0) return;
                clients_.start([this, socket] {
                    Client client(socket, over_);
                    if (step_(client, 0) && client.send(greeting)) serve(client);
                    close(socket);
                });
            }
        });
    }
    ~FakeDaemon() {
        over_ = true;
        shutdown(listener_, SHUT_RDWR);
        accepting_.join();
        clients_.join();
        close(listener_);
    }
    const std::string& address() const noexcept { return address_; }

  private:
    void serve(Client& client) {
        for (int step = 1;; ++step) {
            size_t end;
            while ((end = client.heard_.find("\r\n")) == std::string::npos) {
                if (!hear(client)) return;
            }
            const std::string line = client.heard_.substr(0, end);
            client.heard_.erase(0, end + 2);
            std::string payload;
            if (line.rfind("PUB ", 0) == 0) {
                const size_t size = std::strtoul(line.c_str() + line.rfind(' ') + 1, nullptr, 10);
                while (client.heard_.size() < size + 2) {
                    if (!hear(client)) return;
                }
                payload = client.heard_.substr(0, size);
                client.heard_.erase(0, size + 2);
            }
            if (!step_(client, step) || !answer(client, line, payload)) return;
        }
    }
    static bool hear(Client& client) {
        char bytes[16384];
        if (!client.wait(POLLIN)) return false;
        const ssize_t count = recv(client.socket_, bytes, sizeof bytes, MSG_DONTWAIT);
        if (count > 0) client.heard_.append(bytes, static_cast<size_t>(count));
        return count > 0;
    }
    static bool fits(std::string_view pattern, std::string_view subject) {
        while (!pattern.empty() && !subject.empty()) {
            const std::string_view wanted = pattern.substr(0, pattern.find('.'));
            const std::string_view element = subject.substr(0, subject.find('.'));
            if (wanted == ">") return true;
            if (wanted != "*" && wanted != element) return false;
            pattern.remove_prefix(std::min(pattern.size(), wanted.size() + 1));
            subject.remove_prefix(std::min(subject.size(), element.size() + 1));
        }
        return pattern.empty() && subject.empty();
    }
    // A client hears itself only: that is where marks come back.
    static bool answer(Client& client, const std::string& line, const std::string& payload) {
        if (line == "PING") return client.send("PONG\r\n");
        if (line.rfind("SUB ", 0) == 0) {
            const size_t subject = line.find(' ') + 1;
            client.subscriptions_[line.substr(line.rfind(' ') + 1)] =
                line.substr(subject, line.find(' ', subject) - subject);
        } else if (line.rfind("UNSUB ", 0) == 0) {
            client.subscriptions_.erase(line.substr(6));
        } else if (line.rfind("PUB ", 0) == 0) {
            const std::string subject = line.substr(4, line.find(' ', 4) - 4);
            for (const auto& [id, pattern] : client.subscriptions_) {
                const bool matches = fits(pattern, subject);
                if (matches && !client.send("MSG " + subject + " " + id + " " + std::to_string(payload.size()) +
                                            "\r\n" + payload + "\r\n"))
                    return false;
            }
        }
        return true;
    }

    const std::function<bool(Client&, int)> step_;
    int port_ = 0;
    const int listener_;
    std::string address_;
    std::atomic<bool> over_{false};
    std::thread accepting_;
    Threads clients_;
};

}  // namespace quorltest

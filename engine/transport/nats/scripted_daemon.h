// A daemon of a test's own: it speaks as much of the protocol as a connection needs, and otherwise does what the test says.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace quorl::transport::nats {

// One client at a time. What it publishes is counted; probes come back while echoProbes is set, nothing else does.
class ScriptedDaemon {
  public:
    struct Published {
        std::string subject;
        size_t size;  // of the payload
    };

    ScriptedDaemon() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(listener_, 16), 0);
        socklen_t size = sizeof address;
        EXPECT_EQ(getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size), 0);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { run(); });
    }
    ~ScriptedDaemon() {
        over_ = true;
        shutdown(listener_, SHUT_RDWR);
        hangUp();
        thread_.join();
        close(listener_);
    }
    ScriptedDaemon(const ScriptedDaemon&) = delete;
    ScriptedDaemon& operator=(const ScriptedDaemon&) = delete;

    uint16_t port() const noexcept { return port_; }
    std::atomic<bool> echoProbes{true};

    // The id of the client's subscription to exactly that subject on the wire; empty: there was none within the limit.
    std::string subscription(const std::string& subject) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, limit, [&] { return subscriptions_.count(subject) != 0; });
        return subscriptions_[subject];
    }
    // False: the client did not end it within the limit.
    bool waitUntilEnded(const std::string& id) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return ended_.count(id) != 0; });
    }
    // Returns when the client has published so many bytes.
    bool waitForBytes(size_t bytes) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return bytes_ >= bytes; });
    }
    std::vector<Published> published() {
        std::lock_guard lock(mutex_);
        return published_;
    }

    // Blocks while the client does not read. False: the client is gone.
    bool deliver(const std::string& id, const std::string& subject, std::string_view payload) {
        std::string text = "MSG " + subject + " " + id + " " + std::to_string(payload.size()) + "\r\n";
        text.append(payload).append("\r\n");
        return say(text);
    }
    // Sends the client bytes as they stand. Blocks while it does not read. False: it is gone.
    bool say(std::string_view text) {
        std::lock_guard lock(writing_);
        const int client = client_;
        while (!text.empty()) {
            const ssize_t count = send(client, text.data(), text.size(), MSG_NOSIGNAL);
            if (count <= 0) return false;
            text.remove_prefix(static_cast<size_t>(count));
        }
        return true;
    }
    // Ends the connection of the client there is.
    void hangUp() {
        std::lock_guard lock(mutex_);
        if (client_ >= 0) shutdown(client_, SHUT_RDWR);
    }

    static constexpr std::chrono::seconds limit{60};

  private:
    void run() {
        while (!over_) {
            const int client = accept(listener_, nullptr, nullptr);
            if (client < 0) return;
            {
                std::lock_guard lock(mutex_);
                client_ = client;
                subscriptions_.clear();
            }
            say("INFO {\"server_id\":\"x\",\"version\":\"2.9.10\",\"proto\":1,\"host\":\"127.0.0.1\",\"port\":4222,"
                "\"max_payload\":1048576}\r\n");
            serve(client);
            {
                std::lock_guard writing(writing_);
                std::lock_guard lock(mutex_);
                client_ = -1;
            }
            close(client);
        }
    }

    void serve(int client) {
        std::string read;
        char bytes[65536];
        for (;;) {
            const size_t end = read.find("\r\n");
            if (end == std::string::npos) {
                const ssize_t count = recv(client, bytes, sizeof bytes, 0);
                if (count <= 0) return;
                read.append(bytes, static_cast<size_t>(count));
                continue;
            }
            std::vector<std::string> words;
            for (size_t at = 0; at < end;) {
                const size_t to = std::min(read.find(' ', at), end);
                words.push_back(read.substr(at, to - at));
                at = to + 1;
            }
            read.erase(0, end + 2);
            std::string payload;
            if (words[0] == "PUB") {
                const size_t size = std::stoul(words.back());
                while (read.size() < size + 2) {
                    const ssize_t count = recv(client, bytes, sizeof bytes, 0);
                    if (count <= 0) return;
                    read.append(bytes, static_cast<size_t>(count));
                }
                payload = read.substr(0, size);
                read.erase(0, size + 2);
            }
            handle(words, payload);
        }
    }

    void handle(const std::vector<std::string>& words, const std::string& payload) {
        if (words[0] == "PING") say("PONG\r\n");
        std::string echo;
        {
            std::lock_guard lock(mutex_);
            if (words[0] == "SUB") subscriptions_[words[1]] = words.back();
            if (words[0] == "UNSUB") ended_[words[1]] = true;
            if (words[0] == "PUB") {
                published_.push_back({words[1], payload.size()});
                bytes_ += payload.size();
                if (echoProbes && words[1].find("._PROBE.") != std::string::npos) echo = subscriptions_[words[1]];
            }
            changed_.notify_all();
        }
        if (!echo.empty()) deliver(echo, words[1], payload);
    }

    const int listener_;
    uint16_t port_ = 0;
    std::atomic<bool> over_{false};
    std::mutex writing_;  // taken before mutex_
    std::mutex mutex_;    // of what follows
    std::condition_variable changed_;
    std::atomic<int> client_{-1};
    std::map<std::string, std::string> subscriptions_;  // ids by subject
    std::map<std::string, bool> ended_;
    std::vector<Published> published_;
    size_t bytes_ = 0;
    std::thread thread_;
};

}  // namespace quorl::transport::nats

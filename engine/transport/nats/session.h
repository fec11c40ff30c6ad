// One connection to one server, from its making to its loss: the daemon's protocol over a socket.
//
// One thread owns a session. What others may call says so: they, and the owner then, hold a lock that they share. Nothing waits
// but open. Messages are handed to their sinks inside of use, from where they lie; so no more is in memory than one read takes,
// or one message, and a daemon that is faster than this process waits for it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "quorl/quorl.h"
#include "transport/nats/address.h"
#include "transport/nats/complaint.h"
#include "transport/nats/frame_writer.h"
#include "transport/nats/protocol.h"
#include "transport/nats/socket.h"

namespace quorl::transport::nats {

// " after 2.0 s", for the texts of attempts that failed; "" for what took no time worth telling.
std::string elapsedText(int64_t nanoseconds);

// What messages of one subscription are handed to.
class Sink {
  public:
    Sink() noexcept = default;
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;
    virtual ~Sink() = default;

    // On the thread that owns the session; must not wait.
    virtual void received(std::string_view wireSubject, const uint8_t* payload, size_t size) noexcept = 0;

  private:
    friend class Session;
    uint64_t number_ = 0;  // of its subscription; 0: none
};

// Who is told that the daemon has refused something, and perhaps goes on all the same.
class Refusals {
  public:
    Refusals() noexcept = default;
    Refusals(const Refusals&) = delete;
    Refusals& operator=(const Refusals&) = delete;
    virtual ~Refusals() = default;

    // On the thread that owns the session, in the order of what comes in; must not wait.
    virtual void refused(const Complaint& complaint, std::string_view words) noexcept = 0;
};

class Session final : public PayloadSink, private Parser::Listener {
  public:
    struct Request {
        Server server;
        Server named;                  // what the program named: its name is in the certificate, its credentials count
        std::string name;              // of the program, for the daemon's tools
        int64_t timeout = 0;           // nanoseconds for connecting, TLS and the daemon's greeting together
        Refusals* refusals = nullptr;  // outlives the session
    };

    // Connects, and blocks up to the timeout, or until the system has looked up the host. QUORL_DAEMON_NOT_FOUND,
    // QUORL_USERPASS_MISMATCH, QUORL_INVALID_NAME, QUORL_NO_MEMORY; the detail says why.
    static quorl_status open(const Request& request, std::unique_ptr<Session>* session) noexcept;

    ~Session() override;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    int socket() const noexcept { return socket_->socket(); }
    // Bytes that were written and that the other side's system has not confirmed.
    size_t underWay() const noexcept { return socket_->underWay(); }
    // Bytes that the socket has taken, ever.
    uint64_t written() const noexcept { return written_; }
    // Whether it ended because the daemon refuses the credentials.
    bool deniedEntry() const noexcept;
    // Why it was lost, in words. Throws std::bad_alloc.
    std::string reason() const;
    // The servers of its cluster, as the daemon told last. Throws std::bad_alloc.
    std::vector<Server> servers() const;

    // The socket can be read: takes what has come, under the lock. Whether there may be more, which the socket may not show:
    // use is called, and then this again.
    bool take() noexcept;
    // Hands what was taken to the sinks. Not under the lock, so that others can send meanwhile.
    void use() noexcept;
    // Both, until there is no more, and answer.
    void read() noexcept {
        while (take()) use();
        use();
        answer();
    }
    // Answers what the daemon has asked, under the lock. write follows.
    void answer() noexcept;

    // Under the lock. The sink gets nothing more from unsubscribe on. False: the session is lost.
    // group: the daemon gives each message to one of those that are subscribed with that name; empty: to each.
    bool subscribe(Sink& sink, std::string_view wireSubject, std::string_view group = {}) noexcept;
    void unsubscribe(Sink& sink) noexcept;

    // ---- for others too, under the lock

    bool lost() const noexcept { return lost_.load(std::memory_order_relaxed); }
    PayloadLimit limit() const noexcept override { return limit_.load(std::memory_order_relaxed); }
    // Bytes that the socket has not taken yet.
    size_t buffered() const noexcept { return out_.size() - outSent_; }
    // The socket may take some.
    void write() noexcept;
    // False: the session is lost, or takes no message of that size.
    bool publish(std::string_view wireSubject, const uint8_t* payload, size_t size) noexcept override;
    // Whether few bytes wait for the socket, perhaps after it took some.
    bool takesMore() noexcept override;

  private:
    Session() noexcept = default;

    quorl_status connect(const Request& request);
    bool greet(int64_t deadline, std::string* why);
    bool introduce(const Request& request, const secure::Credentials& credentials, int64_t deadline, std::string* why);
    bool makeRoom() noexcept;
    void forgetClear();
    bool append(std::string_view text) noexcept;
    void fail(const char* why) noexcept;

    void onInfo(std::string_view json) noexcept override;
    void onMessage(uint64_t subscription, std::string_view subject, const uint8_t* payload,
                   size_t size) noexcept override;
    void onPing() noexcept override;
    void onPong() noexcept override;
    void onError(std::string_view text) noexcept override;

    std::unique_ptr<Socket> socket_;
    Parser parser_;
    Info info_;
    bool greeted_ = false;   // the daemon has told of itself
    bool answered_ = false;  // it takes us in
    bool tls_ = false;
    bool pinged_ = false;    // it has asked, and is not answered yet
    bool asked_ = false;     // the program has said who it is, and answers are to come
    uint64_t said_ = 0;      // what the daemon has said, in lines
    std::string complaint_;  // of the daemon, its last
    Refusals* refusals_ = nullptr;
    std::atomic<bool> lost_{false};
    std::atomic<const char*> broke_{nullptr};  // what ended it; null: the link did, or the daemon
    std::atomic<PayloadLimit> limit_{PayloadLimit()};

    std::unique_ptr<uint8_t[]> in_;
    size_t inRoom_ = 0;
    size_t inBegin_ = 0;  // what was read and not used lies from here
    size_t inEnd_ = 0;    // to here
    std::vector<uint8_t> out_;
    size_t outSent_ = 0;  // bytes of it
    uint64_t written_ = 0;

    uint64_t lastNumber_ = 0;
    std::unordered_map<uint64_t, Sink*> sinks_;

    size_t takenAtOnce_ = 0;  // bytes, since there was no more
    int64_t behindAt_ = 0;    // when much waited to be read; 0: never
    int64_t readAt_ = 0;      // when it was last read
};

}  // namespace quorl::transport::nats

// One connection to one server, from its making to its loss, through libnats: the only file that knows that library.
//
// libnats is used with an event loop of ours: it reads and writes only inside the calls of this class. Its own threads are
// one for timers, which has none; one for notices, which get nothing to do; one that collects garbage; and one, shared by
// all connections of the process, that hands messages to their feeds. That last one runs Feed::received and nothing else.
//
// Its faults are kept away as follows. Every call on a session but for the constructor's is made with the same lock held by
// whoever makes it, so that no two threads are inside one connection, nor inside its TLS state. A subscription is destroyed
// only after libnats has said that it will never call its feed again. Pings are off, since a missed one would close the
// connection from the timers' thread: see the marks of connection.h. Its error handler looks at nothing. A connecting that it
// would not end is ended, see connect_watch.h. Servers that a greeting names are not told to it, since it would try one after
// the other, each for its whole time, when the daemon fails. With TLS it waits inside of its calls, for as long as it takes,
// until a record is whole or the socket takes more: the system breaks a connection off to which it could write nothing for a
// while. What has come of a message when its connection is lost leaks there: at
// most one message for each loss.
//
// libnats reads as fast as the daemon sends, and keeps without bound what its delivery has not got to. A session counts what
// it has taken in and what its feeds were handed, and asks not to be read while too much lies between: then the daemon waits.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quorl/quorl.h"
#include "transport/nats/address.h"
#include "transport/nats/connect_watch.h"

struct __natsConnection;
struct __natsMsg;
struct __natsStatistics;
struct __natsSubscription;

namespace quorl::transport::nats {

class Session;

// What messages of one subscription are handed to.
class Feed {
  public:
    Feed() noexcept = default;
    Feed(const Feed&) = delete;
    Feed& operator=(const Feed&) = delete;
    virtual ~Feed() = default;

    // On the thread of libnats, one call at a time; must not wait.
    virtual void received(std::string_view wireSubject, const uint8_t* payload, size_t size) noexcept = 0;

  private:
    friend class Session;
    __natsSubscription* handle_ = nullptr;
    Session* session_ = nullptr;
    std::atomic<bool> finished_{false};  // received will not be called any more
    bool left_ = false;                  // it was unsubscribed
    uint32_t place_ = 0;                 // in the session's list
    uint64_t leftBehind_ = 0;            // cost of what waited for it then
};

// For the thread that reads, as long as it does. libnats allocates each message there and frees it on another thread, and the
// C library gives what lies free at the end of a thread's memory back to the system, which would cost a page fault for
// every 4 KiB that come in. So something small lies above the first few megabytes; they take memory only once they are used.
class ReadingMemory {
  public:
    ReadingMemory() noexcept;
    ~ReadingMemory();
    ReadingMemory(const ReadingMemory&) = delete;
    ReadingMemory& operator=(const ReadingMemory&) = delete;

  private:
    static constexpr size_t kept = 4u << 20;
    static constexpr size_t blockSize = 64u << 10;  // less than what the C library asks the system for piece by piece
    static constexpr size_t topSize = 4u << 10;

    void* top_;
};

class Session {
  public:
    struct Request {
        Server server;
        std::string name;     // of the program, for the daemon's tools
        int64_t timeout = 0;  // nanoseconds for connecting, TLS and the daemon's greeting together
        int wakeEvent = -1;   // an eventfd that is set when mayRead may have become true again
    };

    // What messages cost that were read and not yet handed to their feeds: their payload, and so much for each, which is a
    // little more than libnats takes for it. Beyond mostWaiting the session is not to be read until half of that is gone.
    static constexpr uint64_t messageCost = 256;
    static constexpr uint64_t mostWaiting = 32u << 20;

    // Connects, and blocks up to the timeout. QUORL_DAEMON_NOT_FOUND, QUORL_USERPASS_MISMATCH, QUORL_INVALID_NAME,
    // QUORL_NO_MEMORY; the detail says why.
    static quorl_status open(const Request& request, std::unique_ptr<Session>* session) noexcept;

    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    int socket() const noexcept { return socket_; }
    bool tls() const noexcept { return tls_; }
    bool lost() const noexcept;
    // Why it was lost, in words; for this the connection is asked, or what it was told.
    std::string reason() const;

    size_t maxPayload() const noexcept { return maxPayload_; }
    // Whether more may be read for now. To be asked after each read, before the next.
    bool mayRead() noexcept;
    // Cost of what was read and not yet handed to feeds. Asks libnats for each.
    uint64_t countWaiting() noexcept;

    // The socket can be read or written.
    void read() noexcept;
    void write() noexcept;
    // Bytes that the socket has not taken yet.
    size_t buffered() const noexcept;

    bool publish(const char* wireSubject, const uint8_t* payload, size_t size) noexcept;

    // False: the connection is lost, or no memory.
    bool subscribe(Feed& feed, const char* wireSubject) noexcept;
    // From some time on the feed gets nothing more; see finished.
    void unsubscribe(Feed& feed) noexcept;
    // Whether the feed, which was unsubscribed, will get nothing more. True frees what it has here.
    bool finished(Feed& feed) noexcept;

    // Closes the connection and waits until no feed is called any more; release follows for each feed.
    void close() noexcept;
    void release(Feed& feed) noexcept;

    // Ends what libnats keeps in this process: its threads and its memory. No session may be left.
    static void shutDownLibrary() noexcept;

  private:
    Session() noexcept = default;

    static void onMessage(__natsConnection*, __natsSubscription*, __natsMsg* message, void* closure);
    static void onFinished(void* closure);
    quorl_status connect(const Request& request);
    bool takePayloadLimit() noexcept;
    uint64_t waiting() const noexcept;
    void ringIfPaused() noexcept;

    static constexpr uint64_t never = UINT64_MAX;

    // Written by the thread of libnats for every message.
    struct alignas(64) {
        std::atomic<uint64_t> cost{0};          // of what feeds were handed
        std::atomic<uint64_t> resumeAt{never};  // the cost at which it may be read again; while it may not
    } handed_;

    alignas(64) __natsConnection* connection_ = nullptr;
    __natsStatistics* statistics_ = nullptr;
    int wakeEvent_ = -1;
    bool paused_ = false;
    uint64_t taken_ = 0;        // cost of what libnats has read
    uint64_t unclaimed_ = 0;    // of that, what no feed will get
    std::vector<Feed*> feeds_;  // all that are not released
    int socket_ = -1;
    std::optional<ConnectedSocket> connected_;
    bool tls_ = false;
    size_t maxPayload_ = 0;
    uint64_t readSinceMessage_ = 0;  // bytes
    uint64_t messagesSeen_ = 0;
    int64_t behindAt_ = 0;         // when much waited to be read; 0: never
    int64_t readAt_ = 0;           // when it was last read
    const char* broke_ = nullptr;  // what the daemon did against the protocol; null for nothing
    std::atomic<uint32_t> feedsLeft_{0};
};

}  // namespace quorl::transport::nats

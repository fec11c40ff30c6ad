// What waits to be sent on one connection, in the order of sending: gathered into frames of one subject, within a bound.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/futex.h"
#include "base/mutex.h"
#include "message/delivery.h"
#include "transport/nats/frame.h"
#include "transport/transport.h"

namespace quorl::transport::nats {

class Outbox {
  public:
    // Bytes of entries that are gathered into one frame. Large enough that the daemon's cost for each of its messages
    // vanishes, small enough that the frame is still in the processor's cache when it is sent and read.
    static constexpr size_t frameRoom = 16u << 10;
    // A larger message is not copied here: it goes to the daemon from where it is. Up to a few pages the copy is cheaper
    // than memory that one thread fills and another gives back.
    static constexpr size_t largestCopied = 48u << 10;
    // Bytes that wait while the daemon is there before senders have to wait.
    static constexpr size_t connectedRoom = 4u << 20;

    struct Frame {
        uint32_t subject = 0;  // offset of the subject on the wire, zero-terminated
        uint32_t payload = 0;  // offset of the payload
        uint32_t size = 0;     // bytes of the payload; 0: the message is contents[content]
        uint32_t content = 0;
        uint32_t messages = 0;
        int64_t keepUntil = 0;  // on the monotonic clock
    };

    // Frames and their bytes; never changed once it was taken, but for the origin, which is known when a frame is sent.
    struct Chunk {
        static constexpr size_t standardRoom = 256u << 10;

        std::unique_ptr<uint8_t[]> bytes;
        size_t room = 0;
        size_t used = 0;
        size_t cost = 0;  // bytes as they count against the bounds
        std::vector<Frame> frames;
        std::vector<message::ContentRef> contents;

        const char* subjectOf(const Frame& frame) const noexcept {
            return reinterpret_cast<const char*>(bytes.get() + frame.subject);
        }
        uint8_t* payloadOf(const Frame& frame) const noexcept { return bytes.get() + frame.payload; }
    };

    // prefix: of subjects on the wire. awayRoom: bytes that wait while the daemon is away. observer: is told of room.
    Outbox(std::string_view prefix, size_t awayRoom, Observer& observer)
        : prefix_(prefix), awayRoom_(awayRoom), observer_(observer) {}

    // Takes a message over, whose subject has been checked. keepUntil: when it is worthless if the daemon is away;
    // forever for never. *waiting gets the bytes that wait now.
    // Backend::noRoom, QUORL_DAEMON_NOT_CONNECTED, QUORL_INVALID_SIZE, QUORL_NO_MEMORY, QUORL_INVALID_TRANSPORT when it is
    // shut.
    quorl_status put(const message::ContentRef& content, int64_t keepUntil, size_t* waiting) noexcept;

    void setConnected(bool connected) noexcept;

    // From now on no message is taken. Gives how many still wait, without those that were taken and not given back.
    uint64_t shut() noexcept;

    // The oldest messages; null: none wait. They count as waiting until they are given back.
    std::unique_ptr<Chunk> take() noexcept;
    void giveBack(std::unique_ptr<Chunk> chunk) noexcept;

    bool empty() const noexcept { return waiting_.load(std::memory_order_seq_cst) == 0; }
    size_t waiting() const noexcept { return waiting_.load(std::memory_order_relaxed); }

    // Messages that were refused or dropped because the daemon was away, since the last time that this was asked.
    uint64_t takeLost() noexcept { return lost_.exchange(0, std::memory_order_relaxed); }
    uint64_t lost() const noexcept { return lost_.load(std::memory_order_relaxed); }
    void addLost(uint64_t messages) noexcept { lost_.fetch_add(messages, std::memory_order_relaxed); }
    // Messages that wait.
    uint64_t messages() noexcept;

  private:
    // As many as can be in use while the daemon is there: memory that was given back would be faulted in again, page by page.
    static constexpr size_t sparesKept = connectedRoom / Chunk::standardRoom;

    Chunk& chunkWith(size_t room) REQUIRES(lock_);
    void dropExpired() noexcept REQUIRES(lock_);
    // Whether room is to be reported now.
    bool mayTellOfRoom() noexcept REQUIRES(lock_) { return std::exchange(refused_, false); }
    bool full(size_t size) const noexcept REQUIRES(lock_) {
        const size_t waits = waiting_.load(std::memory_order_relaxed);
        return connected_ ? waits >= connectedRoom : waits + size > awayRoom_;
    }

    const std::string prefix_;
    const size_t awayRoom_;
    Observer& observer_;

    std::atomic<size_t> waiting_{0};  // bytes; written under the lock, in one order with the connection's sleep
    std::atomic<uint64_t> lost_{0};

    Mutex lock_;
    bool connected_ GUARDED_BY(lock_) = false;
    bool shut_ GUARDED_BY(lock_) = false;
    bool refused_ GUARDED_BY(lock_) = false;  // a message, for want of room; no room was reported since
    bool open_ GUARDED_BY(lock_) = false;     // the last frame of the last chunk takes more messages of lastSubject_
    FrameKind lastKind_ GUARDED_BY(lock_) = FrameKind::entries;  // of that frame
    std::array<char, QUORL_SUBJECT_MAX> lastSubject_ GUARDED_BY(lock_);
    size_t lastSubjectSize_ GUARDED_BY(lock_) = 0;
    std::deque<std::unique_ptr<Chunk>> chunks_ GUARDED_BY(lock_);
    std::vector<std::unique_ptr<Chunk>> spares_ GUARDED_BY(lock_);
};

}  // namespace quorl::transport::nats

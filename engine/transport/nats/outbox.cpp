// Gathering messages into frames.
#include "transport/nats/outbox.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "base/clock.h"
#include "base/status.h"
#include "transport/nats/assembler.h"
#include "transport/nats/wire_subject.h"

namespace quorl::transport::nats {
namespace {

// Messages of a frame go or are dropped together, the first to become worthless deciding. One may be dropped so much too
// early, in nanoseconds, and never kept too long.
constexpr int64_t sharedWithin = 1'000'000;

bool nearlyAsLong(int64_t one, int64_t other) noexcept {
    return one > other ? one - other <= sharedWithin : other - one <= sharedWithin;
}

}  // namespace

// The last chunk when it has the room, else a new one. It counts as waiting until all of it was sent, so large messages, which
// take no room in it, end it too: a few chunks of them would leave no room to anybody for as long as they are sent. Throws
// std::bad_alloc.
Outbox::Chunk& Outbox::chunkWith(size_t room) {
    if (!chunks_.empty() && chunks_.back()->room - chunks_.back()->used >= room &&
        chunks_.back()->cost < Chunk::standardRoom)
        return *chunks_.back();
    std::unique_ptr<Chunk> chunk;
    if (room <= Chunk::standardRoom && !spares_.empty()) {
        chunk = std::move(spares_.back());
        spares_.pop_back();
    } else {
        chunk = std::make_unique<Chunk>();
        chunk->room = std::max(room, Chunk::standardRoom);
        chunk->bytes.reset(new uint8_t[chunk->room]);
    }
    chunks_.push_back(std::move(chunk));
    return *chunks_.back();
}

void Outbox::dropExpired() noexcept {
    const int64_t now = monotonicNow();
    while (!chunks_.empty()) {
        uint64_t messages = 0;
        for (const Frame& frame : chunks_.front()->frames) {
            if (frame.keepUntil > now) return;
            messages += frame.messages;
        }
        waiting_.store(waiting_.load(std::memory_order_relaxed) - chunks_.front()->cost, std::memory_order_release);
        chunks_.pop_front();
        open_ = open_ && !chunks_.empty();
        addLost(messages);
    }
}

quorl_status Outbox::put(const message::ContentRef& content, int64_t keepUntil, size_t* waiting) noexcept {
    const std::string_view subject = content.sendSubject();
    const std::string_view reply = content.replySubject();
    const message::Attributes attributes = content.attributes();
    const FrameKind kind = attributes.empty() ? FrameKind::entries : FrameKind::attributed;
    const size_t entry = entrySize(reply.size(), content.byteSize(), attributes.size());
    if (entry > largestEntry)
        return fail(QUORL_INVALID_SIZE, "a message of %u bytes is larger than a daemon's transport carries (%u)",
                    content.byteSize(), largestEntry);
    Lock lock(lock_);
    if (shut_) [[unlikely]]
        return fail(QUORL_INVALID_TRANSPORT, "the transport was closed while the message was sent");
    if (full(entry)) [[unlikely]] {
        if (connected_) {
            refused_ = true;
            return Backend::noRoom;
        }
        dropExpired();
        if (full(entry)) {
            addLost(1);
            return fail(QUORL_DAEMON_NOT_CONNECTED,
                        "the daemon is away, and its buffer has no room for a message of %u bytes: %zu of %zu bytes "
                        "wait already (parameter reconnect.buffer)",
                        content.byteSize(), waiting_.load(std::memory_order_relaxed), awayRoom_);
        }
    }
    try {
        const bool copied = entry <= largestCopied;
        const bool sameSubject = open_ && kind == lastKind_ && subject.size() == lastSubjectSize_ &&
                                 std::memcmp(subject.data(), lastSubject_.data(), subject.size()) == 0;
        size_t cost = entry;
        Chunk* chunk = chunks_.empty() ? nullptr : chunks_.back().get();
        if (copied && sameSubject && chunk->frames.back().size + entry <= frameRoom &&
            chunk->room - chunk->used >= entry && nearlyAsLong(chunk->frames.back().keepUntil, keepUntil)) {
            Frame& frame = chunk->frames.back();
            frame.size += static_cast<uint32_t>(entry);
            ++frame.messages;
            frame.keepUntil = std::min(frame.keepUntil, keepUntil);
        } else {
            const std::string wire = toWire(prefix_, subject);
            const size_t head = wire.size() + 1 + (copied ? entriesHeaderSize : 0);
            chunk = &chunkWith(head + (copied ? entry : 0));
            Frame frame;
            frame.subject = static_cast<uint32_t>(chunk->used);
            frame.payload = static_cast<uint32_t>(chunk->used + wire.size() + 1);
            frame.messages = 1;
            frame.keepUntil = keepUntil;
            if (copied) {
                frame.size = static_cast<uint32_t>(entriesHeaderSize + entry);
            } else {
                frame.content = static_cast<uint32_t>(chunk->contents.size());
                chunk->contents.push_back(content);
            }
            chunk->frames.push_back(frame);
            std::memcpy(chunk->bytes.get() + chunk->used, wire.c_str(), wire.size() + 1);
            if (copied) {
                message::wire::store(chunk->bytes.get() + frame.payload, frameHead(kind));
                writeOrigin(chunk->bytes.get() + frame.payload, {});
            }
            chunk->used += head;
            cost += head;
            open_ = copied;
            lastKind_ = kind;
            lastSubjectSize_ = subject.size();
            std::memcpy(lastSubject_.data(), subject.data(), subject.size());
        }
        if (copied) {
            uint8_t* to = chunk->bytes.get() + chunk->used;
            *to = static_cast<uint8_t>(reply.size());
            if (!reply.empty()) std::memcpy(to + 1, reply.data(), reply.size());
            std::memcpy(to + 1 + reply.size(), content.bytes(), content.byteSize());
            if (!attributes.empty()) message::trailer::write(to + 1 + reply.size() + content.byteSize(), attributes);
            chunk->used += entry;
        }
        chunk->cost += cost;
        *waiting = waiting_.load(std::memory_order_relaxed) + cost;
        waiting_.store(*waiting, std::memory_order_seq_cst);
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        open_ = false;
        return fail(QUORL_NO_MEMORY, "no memory for a message on its way to the daemon");
    }
}

// The bound is another one now.
void Outbox::setConnected(bool connected) noexcept {
    bool room;
    {
        Lock lock(lock_);
        connected_ = connected;
        room = mayTellOfRoom();
    }
    if (room) observer_.room();
}

std::unique_ptr<Outbox::Chunk> Outbox::take() noexcept {
    Lock lock(lock_);
    if (chunks_.empty()) return nullptr;
    std::unique_ptr<Chunk> chunk = std::move(chunks_.front());
    chunks_.pop_front();
    if (chunks_.empty()) open_ = false;
    return chunk;
}

void Outbox::giveBack(std::unique_ptr<Chunk> chunk) noexcept {
    const size_t cost = chunk->cost;
    chunk->contents.clear();  // outside of the lock
    chunk->frames.clear();
    chunk->used = 0;
    chunk->cost = 0;
    bool room;
    {
        Lock lock(lock_);
        const size_t left = waiting_.load(std::memory_order_relaxed) - cost;
        waiting_.store(left, std::memory_order_release);
        // When half is free, so that a sender that is faster than the daemon sleeps seldom.
        room = left < connectedRoom / 2 && mayTellOfRoom();
        if (chunk->room == Chunk::standardRoom && spares_.size() < sparesKept) {
            try {
                spares_.push_back(std::move(chunk));
            } catch (const std::bad_alloc&) {
                // It goes.
            }
        }
    }
    if (room) observer_.room();
}

uint64_t Outbox::shut() noexcept {
    {
        Lock lock(lock_);
        shut_ = true;
    }
    return messages();
}

uint64_t Outbox::messages() noexcept {
    Lock lock(lock_);
    uint64_t count = 0;
    for (const auto& chunk : chunks_) {
        for (const Frame& frame : chunk->frames) count += frame.messages;
    }
    return count;
}

}  // namespace quorl::transport::nats

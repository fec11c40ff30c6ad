// Finds the listeners of a subject, and puts messages into their queues: the local half of every backend.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/mutex.h"
#include "base/thread_state.h"
#include "event/queue.h"
#include "message/delivery.h"
#include "subject/trie.h"
#include "transport/listener.h"
#include "transport/transport.h"

namespace quorl::transport {

class Router {
  public:
    Router() noexcept;

    // Throws std::bad_alloc, and has then changed nothing.
    void add(Listener& listener);
    void remove(Listener& listener) noexcept;

    // Throws std::bad_alloc, and has then changed nothing.
    void add(Request& request);
    void remove(Request& request) noexcept;

    // Puts the message into the queues of all listeners that match; of those that share a name, into that of one. Under a read guard. QUORL_INVALID_SUBJECT,
    // QUORL_NO_MEMORY.
    quorl_status route(ThreadState& thread, message::ContentRef content) noexcept;

    // Whether messages may be sent to the subject.
    static quorl_status check(std::string_view subject) noexcept;

  private:
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>{}(text); }
    };
    struct Inbox {
        Request* request = nullptr;
        std::vector<Listener*> listeners;
    };
    class Cache;
    struct Matches;

    void join(Listener& listener) REQUIRES(lock_);
    void leave(const Listener& listener) noexcept REQUIRES(lock_);

    quorl_status routeToInbox(const message::ContentRef& content, std::string_view subject) noexcept;
    quorl_status routeUncached(const message::ContentRef& content, std::string_view subject) noexcept;
    static Cache* cacheOf(ThreadState& thread) noexcept;

    const uint64_t identity_;  // differs from that of every other router of the process, also those that are gone

    Mutex lock_;
    subject::Trie<Listener> ordinary_ GUARDED_BY(lock_);
    subject::Trie<Listener> system_
        GUARDED_BY(lock_);  // apart, so that no wildcard of a program reaches the system's subjects
    // Those that have members here.
    std::unordered_map<std::string_view, std::shared_ptr<Share>> shares_ GUARDED_BY(lock_);
    std::atomic<uint64_t> version_{1};  // of the tries: changed under the lock whenever they are

    Mutex inboxLock_;
    std::unordered_map<std::string, Inbox, Hash, std::equal_to<>> inboxes_ GUARDED_BY(inboxLock_);
};

// Puts the message into the queue of one of the members of a share, whose turn it is. A member that is being destroyed is passed
// over. Under a read guard.
inline void pushToOne(Share& share, Listener* const* members, size_t count, message::ContentRef&& content) noexcept {
    const uint32_t turn = share.turn.fetch_add(1, std::memory_order_relaxed);
    size_t at = turn % count;
    for (size_t tries = count; tries != 0; --tries) {
        // NOLINTNEXTLINE(bugprone-use-after-move): a push that says no has taken nothing
        if (event::push(*members[at], std::move(content))) return;
        at = at + 1 == count ? 0 : at + 1;
    }
}

}  // namespace quorl::transport

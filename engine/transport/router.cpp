// Matching, from a cache of each sending thread where possible.
#include "transport/router.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <utility>

#include "base/status.h"
#include "event/queue.h"
#include "subject/subject.h"

namespace quorl::transport {
namespace {

constinit std::atomic<uint64_t> routersMade{0};

// Multiplies eight bytes at a time. Subjects are at least a byte long.
uint64_t hashOf(std::string_view text) noexcept {
    constexpr uint64_t factor = 0x9e3779b97f4a7c15u;
    uint64_t hash = text.size() * factor;
    const char* at = text.data();
    size_t left = text.size();
    for (; left >= 8; left -= 8, at += 8) {
        uint64_t word;
        std::memcpy(&word, at, 8);
        hash = (hash ^ word) * factor;
        hash ^= hash >> 32;
    }
    uint64_t word = 0;
    std::memcpy(&word, at, left);
    hash = (hash ^ word) * factor;
    return hash ^ hash >> 29;
}

quorl_status refuseSubject(std::string_view subject, const char* why) noexcept {
    if (subject.empty()) return fail(QUORL_INVALID_SUBJECT, "the message has no send subject");
    return fail(QUORL_INVALID_SUBJECT, "\"%.*s\" %s", static_cast<int>(std::min<size_t>(subject.size(), 254)),
                subject.data(), why);
}

// What a listener of an inbox is found by: the inbox, or for all below one, "<inbox>.*", that up to the last point. No
// subject ends with a point, so the two never meet.
std::string_view inboxKey(std::string_view pattern) noexcept {
    if (pattern.ends_with('*')) pattern.remove_suffix(1);
    return pattern;
}

// Puts those that share behind the others, the members of each share beside each other; shares gets where each begins. Throws
// std::bad_alloc.
void arrange(Listener** targets, size_t count, std::vector<uint32_t>& shares) {
    shares.clear();
    Listener** const end = targets + count;
    const auto sharing = [](const Listener* listener) { return listener->share != nullptr; };
    if (std::none_of(targets, end, sharing)) return;
    Listener** const first = std::stable_partition(targets, end, std::not_fn(sharing));
    std::sort(first, end, [](const Listener* one, const Listener* other) {
        return std::pair(one->share.get(), one->id) < std::pair(other->share.get(), other->id);
    });
    for (Listener** at = first; at != end; ++at) {
        if (at == first || at[-1]->share != (*at)->share) shares.push_back(static_cast<uint32_t>(at - targets));
    }
}

// To each of those that share with nobody, and to one of each share.
void pushToAll(Listener* const* targets, size_t count, const std::vector<uint32_t>& shares,
               message::ContentRef&& content) noexcept {
    if (shares.empty()) {
        for (size_t i = 0; i + 1 < count; ++i) event::push(*targets[i], content);
        event::push(*targets[count - 1], std::move(content));
        return;
    }
    for (size_t i = 0; i < shares.front(); ++i) event::push(*targets[i], content);
    for (size_t i = 0; i < shares.size(); ++i) {
        const bool last = i + 1 == shares.size();
        const size_t begin = shares[i];
        const size_t members = (last ? count : shares[i + 1]) - begin;
        // NOLINTNEXTLINE(bugprone-use-after-move): moved in the last round alone
        message::ContentRef own = last ? std::move(content) : message::ContentRef(content);
        pushToOne(*targets[begin]->share, targets + begin, members, std::move(own));
    }
}

}  // namespace

// What a subject matched at some version of a router.
struct Router::Matches {
    static constexpr size_t longestText = 72;
    static constexpr size_t fewTargets = 4;
    static constexpr size_t mostTargets = 1024;  // more are looked up each time: the look-up is the least of their cost

    uint64_t router = 0;
    uint64_t version = 0;
    uint32_t hash = 0;
    uint16_t length = 0;
    uint16_t count = 0;
    std::array<char, longestText> text;
    std::array<Listener*, fewTargets> few;
    std::unique_ptr<Listener*[]> many;  // when there are more than few
    // Of the targets those that share stand last, the members of each share beside each other, and here is where each begins.
    std::vector<uint32_t> shares;
};

// Of one thread, bounded, replaced by hash. What it holds is only looked at under a read guard, and only while the router's
// version is the one that was matched at, so that the listeners are alive.
class Router::Cache {
  public:
    static constexpr size_t size = 512;

    // While the thread puts a message into queues, which may make it route another one: an advisory.
    bool busy = false;

    Matches& at(uint64_t hash) noexcept { return entries_[hash % size]; }

  private:
    std::array<Matches, size> entries_;
};

Router::Router() noexcept : identity_(routersMade.fetch_add(1, std::memory_order_relaxed) + 1) {}

Router::Cache* Router::cacheOf(ThreadState& thread) noexcept {
    auto& mine = thread.part<SendingState>();
    if (mine.cache == nullptr) [[unlikely]] {
        mine.cache = new (std::nothrow) Cache;
        mine.freeCache = [](void* cache) noexcept { delete static_cast<Cache*>(cache); };
    }
    return static_cast<Cache*>(mine.cache);
}

void Router::add(Listener& listener) {
    if (subject::isInbox(listener.subject)) {
        Lock lock(inboxLock_);
        inboxes_[std::string(inboxKey(listener.subject))].listeners.push_back(&listener);
        return;
    }
    Lock lock(lock_);
    if (listener.share != nullptr) join(listener);
    try {
        (subject::isSystem(listener.subject) ? system_ : ordinary_).insert(listener.subject, &listener);
    } catch (...) {
        leave(listener);
        throw;
    }
    version_.fetch_add(1, std::memory_order_release);
}

void Router::remove(Listener& listener) noexcept {
    if (subject::isInbox(listener.subject)) {
        Lock lock(inboxLock_);
        const auto inbox = inboxes_.find(inboxKey(listener.subject));
        if (inbox == inboxes_.end()) return;
        std::erase(inbox->second.listeners, &listener);
        if (inbox->second.listeners.empty() && inbox->second.request == nullptr) inboxes_.erase(inbox);
        return;
    }
    Lock lock(lock_);
    (subject::isSystem(listener.subject) ? system_ : ordinary_).remove(listener.subject, &listener);
    leave(listener);
    version_.fetch_add(1, std::memory_order_release);
}

void Router::join(Listener& listener) {
    // The text of the key is the share's own.
    listener.share = shares_.try_emplace(listener.share->name, listener.share).first->second;
    ++listener.share->members;
}

void Router::leave(const Listener& listener) noexcept {
    if (listener.share != nullptr && --listener.share->members == 0) shares_.erase(listener.share->name);
}

void Router::add(Request& request) {
    Lock lock(inboxLock_);
    inboxes_[request.inbox].request = &request;
}

void Router::remove(Request& request) noexcept {
    Lock lock(inboxLock_);
    const auto inbox = inboxes_.find(request.inbox);
    if (inbox == inboxes_.end()) return;
    inbox->second.request = nullptr;
    if (inbox->second.listeners.empty()) inboxes_.erase(inbox);
}

quorl_status Router::check(std::string_view subject) noexcept {
    if (!subject::validForSending(subject)) return refuseSubject(subject, "is malformed or has wildcards");
    if (subject::isReserved(subject))
        return refuseSubject(subject, "is reserved: begin subjects of your own without \"_\"");
    return QUORL_OK;
}

quorl_status Router::routeToInbox(const message::ContentRef& content, std::string_view subject) noexcept {
    if (const quorl_status status = check(subject); status != QUORL_OK) return status;
    std::array<Listener*, 16> few;
    std::vector<Listener*> many;
    size_t count = 0;
    std::atomic<uint32_t>* waiting = nullptr;
    try {
        Lock lock(inboxLock_);
        auto found = inboxes_.find(subject);
        if (found == inboxes_.end()) found = inboxes_.find(subject.substr(0, subject.rfind('.') + 1));
        if (found == inboxes_.end()) return QUORL_OK;
        Inbox& inbox = found->second;
        if (inbox.request != nullptr && !inbox.request->reply) {
            Request& request = *inbox.request;
            request.reply = content;
            uint32_t state = Request::waiting;
            if (request.state->compare_exchange_strong(state, Request::replied, std::memory_order_release,
                                                       std::memory_order_relaxed))
                waiting = request.state;
        }
        count = inbox.listeners.size();
        if (count > few.size()) {
            many = inbox.listeners;
        } else {
            std::copy(inbox.listeners.begin(), inbox.listeners.end(), few.begin());
        }
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for the listeners of an inbox");
    }
    if (waiting != nullptr) futexWake(*waiting);
    Listener* const* targets = count > few.size() ? many.data() : few.data();
    for (size_t i = 0; i < count; ++i) event::push(*targets[i], content);
    return QUORL_OK;
}

quorl_status Router::routeUncached(const message::ContentRef& content, std::string_view subject) noexcept {
    if (const quorl_status status = check(subject); status != QUORL_OK) return status;
    std::vector<Listener*> targets;
    std::vector<uint32_t> shares;
    try {
        Lock lock(lock_);
        (subject::isSystem(subject) ? system_ : ordinary_).match(subject, [&](Listener* listener) {
            targets.push_back(listener);
        });
        arrange(targets.data(), targets.size(), shares);
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for the listeners of a subject");
    }
    if (!targets.empty()) pushToAll(targets.data(), targets.size(), shares, message::ContentRef(content));
    return QUORL_OK;
}

quorl_status Router::route(ThreadState& thread, message::ContentRef content) noexcept {
    const std::string_view subject = content.sendSubject();
    if (subject::isInbox(subject)) return routeToInbox(content, subject);
    Cache* cache = cacheOf(thread);
    if (cache == nullptr || cache->busy || subject.size() > Matches::longestText)
        return routeUncached(content, subject);

    const uint64_t hash = hashOf(subject);
    Matches& matches = cache->at(hash);
    uint64_t version = version_.load(std::memory_order_seq_cst);
    if (matches.version != version || matches.router != identity_ ||
        matches.hash != static_cast<uint32_t>(hash >> 32) || matches.length != subject.size() ||
        std::memcmp(matches.text.data(), subject.data(), subject.size()) != 0) [[unlikely]] {
        if (const quorl_status status = check(subject); status != QUORL_OK) return status;
        size_t count = 0;
        matches.router = 0;
        {
            Lock lock(lock_);
            version = version_.load(std::memory_order_relaxed);
            const auto& trie = subject::isSystem(subject) ? system_ : ordinary_;
            trie.match(subject, [&](Listener* listener) {
                if (count < Matches::fewTargets) matches.few[count] = listener;
                ++count;
            });
            if (count > Matches::fewTargets && count <= Matches::mostTargets) {
                matches.many.reset(new (std::nothrow) Listener*[count]);
                if (matches.many) {
                    size_t i = 0;
                    trie.match(subject, [&](Listener* listener) { matches.many[i++] = listener; });
                }
            }
            try {
                if (count <= Matches::fewTargets) {
                    arrange(matches.few.data(), count, matches.shares);
                } else if (count <= Matches::mostTargets && matches.many) {
                    arrange(matches.many.get(), count, matches.shares);
                }
            } catch (const std::bad_alloc&) {
                return fail(QUORL_NO_MEMORY, "no memory for the listeners of a subject");
            }
        }
        if (count > Matches::fewTargets && (count > Matches::mostTargets || !matches.many))
            return routeUncached(content, subject);
        matches.router = identity_;
        matches.version = version;
        matches.hash = static_cast<uint32_t>(hash >> 32);
        matches.length = static_cast<uint16_t>(subject.size());
        matches.count = static_cast<uint16_t>(count);
        std::memcpy(matches.text.data(), subject.data(), subject.size());
    }
    if (matches.count == 0) return QUORL_OK;
    Listener* const* targets = matches.count > Matches::fewTargets ? matches.many.get() : matches.few.data();
    cache->busy = true;
    pushToAll(targets, matches.count, matches.shares, std::move(content));
    cache->busy = false;
    return QUORL_OK;
}

}  // namespace quorl::transport

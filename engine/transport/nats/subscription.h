// One subject or pattern that a connection has subscribed to, and the listeners that get what comes in on it.
//
// A daemon sends one copy of a message for each subscription that matches. Each copy goes to the listeners of exactly that
// pattern, so that a listener gets a message once however many patterns overlap, and in the order of its sender.
//
// Listeners that share a name have a subscription of their own for each pattern and name, in a queue group of the daemon's with
// that name. What the daemon gives to it goes to one of them.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "message/delivery.h"
#include "transport/listener.h"
#include "transport/nats/assembler.h"
#include "transport/nats/latecomers.h"
#include "transport/nats/rejections.h"
#include "transport/nats/session.h"
#include "transport/nats/tally.h"
#include "transport/router.h"

namespace quorl::transport::nats {

// What the subscriptions of one connection share.
struct Inbound {
    explicit Inbound(std::string_view wirePrefix) : Inbound(wirePrefix, Assembler::Limits()) {}
    Inbound(std::string_view wirePrefix, const Assembler::Limits& limits) : prefix(wirePrefix), assembler(limits) {}

    const std::string prefix;
    Assembler assembler;
    Router inboxes;         // listeners and requests of inboxes
    Rejections rejections;  // messages that came in and were none
    Latecomers latecomers;  // of the connection's thread
    int wakeEvent = -1;     // an eventfd that is set when something is to be told of them; set once, before any comes

    // Messages that went to listeners, once for each pattern that brought them, and the bytes of their images and reply
    // subjects. Written by the connection's thread for every payload.
    alignas(64) Tally messages;
    Tally bytes;

    // On the connection's thread.
    void reject(const char* reason, std::string_view subject) noexcept;
};

// What a subscription is found by among those of a connection. Needs no memory, so that it can be taken back without any.
class SubscriptionKey {
  public:
    // No pattern has a zero byte.
    SubscriptionKey(std::string_view pattern, std::string_view share) noexcept
        : size_(pattern.copy(text_.data(), most)) {
        if (share.empty()) return;
        text_[size_++] = '\0';
        size_ += share.copy(text_.data() + size_, text_.size() - size_);
    }
    std::string_view view() const noexcept { return {text_.data(), size_}; }

  private:
    static constexpr size_t most = QUORL_SUBJECT_MAX;
    std::array<char, most + 1 + longestShareName> text_;
    size_t size_;
};

class Subscription final : public Sink {
  public:
    // share: the name that its listeners share; empty: they share with nobody.
    Subscription(Inbound& inbound, std::string_view pattern, std::string_view share = {});
    ~Subscription() override { inbound_.assembler.forget(this); }

    const std::string& pattern() const noexcept { return pattern_; }
    const std::string& share() const noexcept { return share_.name; }

    // Throws std::bad_alloc.
    void add(Listener& listener);
    // Whether it was the last one.
    bool remove(Listener& listener) noexcept;

    void received(std::string_view wireSubject, const uint8_t* payload, size_t size) noexcept override;

    // Guarded by the connection's lock: users are listeners, or for inboxes the transport that has them.
    uint32_t users = 0;
    // Of the connection's thread:
    bool subscribed = false;   // the daemon was asked for it
    bool waits = false;        // the next three are the business of Admissions: asked for, and not known to be taken
    bool refused = false;      // by the daemon, when it last decided
    bool toldRefused = false;  // to the program, which was not told of the contrary since

  private:
    bool isLate(const Origin& origin) noexcept;
    // What is taken: one image, or entries one behind the other, without trailers or each with its own.
    enum class Form : uint8_t { image, entries, attributed };
    static Form formOfWhole(const std::vector<uint8_t>& bytes) noexcept;
    void take(std::string_view subject, const uint8_t* bytes, size_t size, Form form) noexcept;
    quorl_status deliver(ThreadState& thread, message::ContentRef content, Listener* const* listeners,
                         size_t count) noexcept;

    Inbound& inbound_;
    const std::string pattern_;
    Share share_;        // whose turn it is; without a name nobody shares
    const bool system_;  // whether the pattern is the system's
    const bool inboxes_;

    Mutex lock_;
    std::vector<Listener*> listeners_ GUARDED_BY(lock_);
};

}  // namespace quorl::transport::nats

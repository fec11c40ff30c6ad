// What certified delivery promises, and whether it was kept: told from outside what programs send, receive and are told. It
// knows nothing of frames, registrations on their way, or ledgers' contents.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace quorl::sim {

struct CertifiedTotals {
    uint64_t accepted = 0;    // by certified senders
    uint64_t confirmed = 0;   // by a listener, as the sender was told
    uint64_t lost = 0;        // promised and never delivered
    uint64_t duplicated = 0;  // delivered again against the promise
    uint64_t recovered =
        0;               // delivered in a later life of the sender or the listener than the one in which they were sent
    uint64_t plain = 0;  // delivered before the registration
    uint64_t expired = 0;
};

class CertifiedChecker {
  public:
    // What a node's programs are like; they stay so over their lives.
    struct Peer {
        bool ledger = false;
        bool process = false;  // its ledger may lose its tail in a power failure
        bool old = false;      // asks for what was kept for its name
        bool lasting = true;   // its name
        bool reached = true;   // it is healthy in the end
        // Whether a listener is owed what was sent while it was away.
        bool durable() const noexcept { return old && lasting; }
    };
    explicit CertifiedChecker(std::vector<Peer> peers);

    // A message, named by who sent it, on which subject, and as which of those. Ascending for a sender and subject.
    struct Message {
        uint32_t sender = 0;
        uint32_t subject = 0;
        uint32_t count = 0;
        auto operator<=>(const Message&) const = default;
    };

    // ---- what senders do and are told
    void sent(const Message& message, uint64_t number, bool limited);  // it may arrive from now on
    void accepted(const Message& message);
    void refused(const Message& message);
    void added(uint32_t sender, uint32_t listener, uint32_t subject);
    void registered(uint32_t sender, uint32_t listener, uint32_t subject);
    void confirmedTo(uint32_t sender, uint32_t listener, uint32_t subject, uint64_t first, uint64_t last);
    void givenUp(uint32_t sender, uint32_t listener, uint32_t subject, uint64_t first, uint64_t last,
                 std::string_view reason);
    void sendsAgain(uint32_t sender, uint32_t listener, uint32_t subject, uint64_t number);
    // ---- what listeners do and are told
    void listening(uint32_t listener, uint32_t sender, uint32_t subject, uint64_t from);
    void stopped(uint32_t listener, uint32_t sender, uint32_t subject);
    void skipped(uint32_t listener, uint32_t sender, uint32_t subject, uint64_t first, uint64_t last);
    void delivered(uint32_t listener, const Message& message, uint64_t number, bool certified);
    void confirms(uint32_t listener, const Message& message);
    void confirmedForGood(uint32_t listener, const Message& message);
    void cancels(uint32_t listener);      // everything that it listens to
    void listensAnew(uint32_t listener);  // what it has not confirmed comes again

    void starts(uint32_t node, bool lostPower);

    // Nothing is owed any more.
    bool satisfied() const noexcept { return owed_ == 0; }
    // A message that was given up, and of which the listener was not told; empty: there is none.
    std::string untold() const;
    // Looks at what is left in the end.
    void finish();
    // Empty: every promise was kept.
    const std::string& broken() const noexcept { return broken_; }
    const CertifiedTotals& totals() const noexcept { return totals_; }

  private:
    struct Sent {
        uint64_t number = 0;
        bool limited = false;
        bool accepted = false;
        bool refused = false;
        uint32_t life = 0;        // of the sender
        uint32_t history = 0;     // how often the sender had lost its state
        uint32_t generation = 0;  // of its numbers
    };
    struct Sendings {
        std::vector<Sent> list;   // by count
        uint32_t generation = 0;  // how often numbers have begun anew, since nobody was registered
    };
    struct Pair {
        bool agreed = false;  // the sender was told, in a life whose state it has
        bool registered = false;
        uint64_t from = 0;               // the number from which on the listener was told that it is
        std::set<uint32_t> owed;         // counts
        std::set<uint32_t> delivered;    // in any life
        std::set<uint32_t> inThisLife;   // certified
        std::set<uint32_t> plain;        // in this life
        std::set<uint32_t> confirms;     // in any life
        std::set<uint32_t> confirmsNow;  // in this one
        std::set<uint32_t> forGood;
        std::set<uint32_t> told;  // confirmed, to the sender
        std::set<uint32_t> givenUp;
        std::set<uint64_t> skipped;         // numbers
        std::map<uint32_t, uint32_t> last;  // delivered in this life, by the sender's history
    };
    using Key = std::pair<uint32_t, uint32_t>;  // sender or listener, subject

    Pair& pair(uint32_t listener, uint32_t sender, uint32_t subject) { return pairs_[{listener, sender, subject}]; }
    // Calls visit(count, Sent&) for the messages with these numbers that the sender has sent since it last lost its state.
    template <class F>
    void forNumbers(uint32_t sender, uint32_t subject, uint64_t first, uint64_t last, F&& visit);
    void owe(Pair& pair, uint32_t count);
    void settle(Pair& pair, uint32_t count);
    void forgive(Pair& pair);
    void fail(const std::string& what);

    std::vector<Peer> peers_;
    std::vector<uint32_t> lives_;
    std::vector<uint32_t> histories_;
    std::map<Key, Sendings> sent_;
    std::map<std::tuple<uint32_t, uint32_t, uint32_t>, Pair> pairs_;
    std::set<uint32_t> cancelled_;  // listeners that ever have
    uint64_t owed_ = 0;
    std::string broken_;
    CertifiedTotals totals_;
};

}  // namespace quorl::sim

// Which subscriptions a daemon has taken.
//
// A SUB is answered only when it is refused, and "maximum subscriptions exceeded" does not say which one is meant. But a
// daemon works through what it is sent in order, so of the subscriptions that were asked for before a probe those were refused
// that its complaints before the probe's return count: the last ones, since what is full stays full. What is refused is asked
// for again, one at a time, when another subscription went and now and then: permissions and limits change.
//
// Without I/O; used by one thread. The subscriptions live until they are withdrawn.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace quorl::transport::nats {

class Subscription;

class Admissions {
  public:
    static constexpr int64_t firstPause = 1'000'000'000;  // nanoseconds until a refused one is asked for again
    static constexpr int64_t longestPause = 60'000'000'000;

    // A SUB was written, behind the probe of that number. Throws std::bad_alloc.
    void asked(Subscription& one, uint64_t probe);
    // It was taken back, or will be destroyed.
    void withdrawn(Subscription& one) noexcept;
    // The session is gone, and what was asked for with it.
    void restart() noexcept;

    // The daemon complains: of that one, or of one that it does not name.
    void denied(Subscription& one, int64_t now) noexcept;
    void full() noexcept { ++full_; }
    // A probe has come back.
    void returned(uint64_t probe, int64_t now) noexcept;

    // An answer is waited for that probes up to this one do not bring.
    bool wantsProbe(uint64_t lastProbe) const noexcept;
    // The daemon has complained, and which subscription it meant is not known yet.
    bool undecided() const noexcept { return full_ != 0; }

    // Those to withdraw at the daemon, which perhaps does have them; null: no more.
    Subscription* takeDoubtful() noexcept;
    // One to ask for again now; null: none.
    Subscription* takeDue(int64_t now) noexcept;
    int64_t nextDue() const noexcept { return refused_.empty() ? INT64_MAX : again_; }

    // Subscriptions that the daemon has refused, those that are asked for again included.
    size_t refused() const noexcept { return count_; }
    // Patterns that were newly refused, or taken after they had been, since the last time; at most so many of each, of how many.
    struct News {
        std::vector<std::string> refused;
        std::vector<std::string> taken;
        uint64_t refusedCount = 0;
        uint64_t takenCount = 0;
    };
    bool hasNews() const noexcept { return newlyRefused_ != 0 || !taken_.empty(); }
    // Throws std::bad_alloc, and can be called again then.
    News takeNews(size_t most);

  private:
    struct Asked {
        Subscription* one;
        uint64_t probe;
        bool again;  // it was refused before
    };

    void refuse(Subscription& one, int64_t now) noexcept;
    void take(Subscription& one) noexcept;
    void forget(Subscription& one) noexcept;

    std::vector<Asked> asked_;  // oldest first; what no probe has decided on
    size_t retries_ = 0;        // of them, those that were refused before
    uint64_t full_ = 0;         // complaints that no probe has decided on
    bool mixed_ = false;        // one was taken back meanwhile: counting from the end could be wrong
    // These have room for all that were asked for.
    std::vector<Subscription*> refused_;   // and not asked for again yet; the next one first
    std::vector<Subscription*> doubtful_;  // of the refused
    std::vector<Subscription*> taken_;     // after it was told that they were refused; to be told
    size_t count_ = 0;                     // refused
    uint64_t newlyRefused_ = 0;            // of them, to be told
    int64_t pause_ = firstPause;
    int64_t again_ = 0;  // when the first of the refused is asked for
};

}  // namespace quorl::transport::nats

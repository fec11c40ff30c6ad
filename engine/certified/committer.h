// Waits for what was stored on behalf of threads that must not: a host's thread, above all.
//
// Its thread waits for one transaction after the other, which commits them, many at once when they came quickly, and says how
// each ended.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "certified/ledger/ledger.h"
#include "companion/thread.h"

namespace quorl::certified {

struct Pending {
    Ledger::Ticket ticket;
    uint64_t token = 0;  // 0: nothing was stored
};

class Committer {
  public:
    // ended: the transactions up to that token are durable; or that one has failed, and what came behind it.
    explicit Committer(std::function<void(uint64_t token, const Outcome& outcome)> ended) : ended_(std::move(ended)) {}
    ~Committer() { stop(); }
    Committer(const Committer&) = delete;
    Committer& operator=(const Committer&) = delete;

    quorl_status start(Ledger& ledger) noexcept;
    // False: no memory. The caller waits itself.
    bool add(const Pending& pending) noexcept;
    // Waits for all that was added. Nothing is added any more.
    void stop() noexcept;

  private:
    void run() noexcept;

    const std::function<void(uint64_t token, const Outcome& outcome)> ended_;
    Ledger* ledger_ = nullptr;
    companion::Thread thread_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<Pending> pending_;
    bool stopping_ = false;
};

}  // namespace quorl::certified

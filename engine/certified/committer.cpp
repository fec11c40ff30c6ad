// The thread that waits for transactions.
#include "certified/committer.h"

#include <new>

namespace quorl::certified {

quorl_status Committer::start(Ledger& ledger) noexcept {
    ledger_ = &ledger;
    return thread_.start(
        "quorl-ledger", [](void* self) { static_cast<Committer*>(self)->run(); }, this);
}

bool Committer::add(const Pending& pending) noexcept {
    try {
        const std::lock_guard lock(lock_);
        if (stopping_) return false;
        pending_.push_back(pending);
    } catch (const std::bad_alloc&) {
        return false;
    }
    changed_.notify_one();
    return true;
}

void Committer::stop() noexcept {
    {
        const std::lock_guard lock(lock_);
        stopping_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

// Those that were durable together are told as one.
void Committer::run() noexcept {
    std::vector<Pending> taken;  // not a deque, which takes memory while it is empty
    for (;;) {
        {
            std::unique_lock lock(lock_);
            changed_.wait(lock, [&] { return stopping_ || !pending_.empty(); });
            if (pending_.empty()) return;
            taken.swap(pending_);
        }
        uint64_t durable = 0;
        for (const Pending& each : taken) {
            const Outcome outcome = ledger_->wait(each.ticket);
            if (outcome.ok()) {
                durable = each.token;
                continue;
            }
            if (durable != 0) ended_(durable, {});
            durable = 0;
            ended_(each.token, outcome);
        }
        if (durable != 0) ended_(durable, {});
        taken.clear();
    }
}

}  // namespace quorl::certified

// Deciding, between two probes, which subscriptions were refused.
#include "transport/nats/admissions.h"

#include <algorithm>

#include "transport/nats/subscription.h"

namespace quorl::transport::nats {

void Admissions::asked(Subscription& one, uint64_t probe) {
    const size_t all = asked_.size() + count_ + taken_.size() + 1;
    // Grown as vectors grow, so that asking for many costs no more than twice their number.
    const auto grow = [&](auto& list) {
        if (list.capacity() < all) list.reserve(std::max(all, 2 * list.capacity()));
    };
    grow(refused_);
    grow(doubtful_);
    grow(taken_);
    asked_.push_back({&one, probe, one.refused});
    if (one.refused) ++retries_;
    one.waits = true;
}

void Admissions::forget(Subscription& one) noexcept {
    if (!one.waits) return;
    const auto found = std::find_if(asked_.begin(), asked_.end(), [&](const Asked& each) { return each.one == &one; });
    if (found->again) --retries_;
    asked_.erase(found);
    one.waits = false;
}

void Admissions::withdrawn(Subscription& one) noexcept {
    forget(one);
    if (one.refused) {
        std::erase(refused_, &one);
        std::erase(doubtful_, &one);
        --count_;
        if (!one.toldRefused) --newlyRefused_;
    } else {
        if (one.toldRefused) std::erase(taken_, &one);
        again_ = 0;  // there is room now
        mixed_ = mixed_ || !asked_.empty();
    }
    one.refused = one.toldRefused = false;
}

void Admissions::restart() noexcept {
    for (const Asked& each : asked_) each.one->waits = false;
    asked_.clear();
    retries_ = 0;
    // What was refused stays so until the daemon takes it in the session to come, where all are asked for.
    refused_.clear();
    doubtful_.clear();
    full_ = 0;
    mixed_ = false;
    pause_ = firstPause;
}

void Admissions::denied(Subscription& one, int64_t now) noexcept {
    if (one.refused && !one.waits) return;
    forget(one);
    refuse(one, now);
}

void Admissions::returned(uint64_t probe, int64_t now) noexcept {
    size_t count = 0;
    while (count < asked_.size() && asked_[count].probe < probe) ++count;
    size_t refusals = std::min<uint64_t>(full_, count);
    if (refusals != 0 && mixed_) refusals = count;
    full_ = 0;
    for (size_t i = 0; i < count; ++i) {
        Subscription& one = *asked_[i].one;
        one.waits = false;
        if (asked_[i].again) --retries_;
        if (i + refusals < count)
            take(one);
        else
            refuse(one, now);
    }
    asked_.erase(asked_.begin(), asked_.begin() + static_cast<std::ptrdiff_t>(count));
    if (asked_.empty()) mixed_ = false;
}

void Admissions::refuse(Subscription& one, int64_t now) noexcept {
    const bool again = one.refused;
    if (again) {
        pause_ = std::min(2 * pause_, longestPause);
    } else {
        one.refused = true;
        ++count_;
        if (one.toldRefused)
            std::erase(taken_, &one);
        else
            ++newlyRefused_;
    }
    refused_.push_back(&one);
    doubtful_.push_back(&one);
    if (again || refused_.size() == 1) again_ = now + pause_;
}

void Admissions::take(Subscription& one) noexcept {
    if (!one.refused) return;
    one.refused = false;
    --count_;
    if (one.toldRefused)
        taken_.push_back(&one);
    else
        --newlyRefused_;
    pause_ = firstPause;
    again_ = 0;
}

bool Admissions::wantsProbe(uint64_t lastProbe) const noexcept {
    if (asked_.empty()) return full_ != 0;
    return (full_ != 0 || retries_ != 0) && asked_.back().probe >= lastProbe;
}

Subscription* Admissions::takeDoubtful() noexcept {
    if (doubtful_.empty()) return nullptr;
    Subscription* one = doubtful_.back();
    doubtful_.pop_back();
    return one;
}

// One at a time: while an answer is waited for, the next waits too.
Subscription* Admissions::takeDue(int64_t now) noexcept {
    if (refused_.empty() || now < again_ || full_ != 0 || retries_ != 0) return nullptr;
    Subscription* one = refused_.front();
    refused_.erase(refused_.begin());
    return one;
}

Admissions::News Admissions::takeNews(size_t most) {
    News news;
    const auto note = [&](const Subscription& one) {
        if (one.refused && !one.toldRefused && news.refused.size() < most) news.refused.push_back(one.pattern());
    };
    for (const Subscription* one : refused_) note(*one);
    for (const Asked& each : asked_) note(*each.one);
    for (const Subscription* one : taken_) {
        if (news.taken.size() < most) news.taken.push_back(one->pattern());
    }
    news.refusedCount = newlyRefused_;
    news.takenCount = taken_.size();
    for (Subscription* one : refused_) one->toldRefused = true;
    for (const Asked& each : asked_) each.one->toldRefused = each.one->refused || each.one->toldRefused;
    for (Subscription* one : taken_) one->toldRefused = false;
    newlyRefused_ = 0;
    taken_.clear();
    return news;
}

}  // namespace quorl::transport::nats

// Handing reports on.
#include "transport/observer.h"

#include <algorithm>

namespace quorl::transport {

// No lock but the reports' own is held while one is told.
template <class F>
void Observers::tellAll(F&& report) noexcept {
    for (size_t i = 0;; ++i) {
        ObserverRef observer;
        {
            Lock lock(list_);
            if (i >= observers_.size()) return;
            observer = observers_[i];
        }
        report(*observer);
    }
}

void Observers::add(ObserverRef observer) {
    Lock reporting(reporting_);
    {
        Lock lock(list_);
        observers_.push_back(observer);
    }
    if (largest_ != 0) observer->largestMessage(largest_);
    switch (state()) {
        case State::pending:
            break;
        case State::connected:
            observer->connected();
            break;
        case State::away:
            observer->connected();
            observer->away({});
            break;
        case State::lost:
            observer->lost({lostReason_, 0});
            break;
    }
}

void Observers::remove(const Observer& observer) noexcept {
    Lock reporting(reporting_);
    Lock lock(list_);
    std::erase_if(observers_, [&](const ObserverRef& one) { return one.get() == &observer; });
}

void Observers::connected() noexcept {
    Lock reporting(reporting_);
    if (state() != State::pending) return;
    state_.store(State::connected, std::memory_order_release);
    tellAll([](Observer& observer) { observer.connected(); });
}

void Observers::away(const Away& report) noexcept {
    Lock reporting(reporting_);
    if (state() != State::connected) return;
    state_.store(State::away, std::memory_order_release);
    tellAll([&](Observer& observer) { observer.away(report); });
}

void Observers::back(const Back& report) noexcept {
    Lock reporting(reporting_);
    if (state() != State::away) return;
    state_.store(State::connected, std::memory_order_release);
    tellAll([&](Observer& observer) { observer.back(report); });
}

void Observers::lost(const Lost& report) noexcept {
    Lock reporting(reporting_);
    if (isLost()) return;
    lostReason_ = report.reason;
    state_.store(State::lost, std::memory_order_release);
    tellAll([&](Observer& observer) { observer.lost(report); });
}

// Reported while a backend writes, under its locks; so not in the order of the states, but at once.
void Observers::room() noexcept {
    Lock lock(list_);
    for (const ObserverRef& observer : observers_) observer->room();
}

void Observers::largestMessage(uint32_t bytes) noexcept {
    Lock reporting(reporting_);
    largest_ = bytes;
    tellAll([&](Observer& observer) { observer.largestMessage(bytes); });
}

}  // namespace quorl::transport

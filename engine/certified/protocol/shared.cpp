// The journal of what is on its way to the ledger, and the messages that wait for it.
#include "certified/protocol/shared.h"

#include <algorithm>
#include <new>

#include "certified/protocol/subject.h"

namespace quorl::certified {
namespace {

constexpr int64_t retryPause = 200 * milliseconds;
// Written when there is nothing else to see whether storage works.
constexpr std::string_view probeKey = "T";

}  // namespace

Shared::Shared(const Settings& given, const Chance& drawn)
    : settings(given), chance(drawn), address(addressOf(given.name)) {}

void Shared::begin(Now time, Output& output) noexcept {
    now = time;
    out = &output;
    sync_ = false;
}

// ---- writes

void Shared::keep(Write write) {
    if (!settings.ledger) return;
    if (status_ != QUORL_OK) return keepForLater(write);
    out->store.writes.push_back(std::move(write));
}

// Of state the last value counts; of messages, that they are to go.
void Shared::keepForLater(const Write& write) {
    switch (write.kind) {
        case Write::Kind::putState:
            retryState_[write.key] = write.value;
            break;
        case Write::Kind::eraseState:
            retryState_[write.key] = std::nullopt;
            break;
        case Write::Kind::eraseMessages:
            if (!retryErase_.empty() && retryErase_.back().subject == write.subject &&
                retryErase_.back().last + 1 == write.number) {
                retryErase_.back().last = write.last;
            } else {
                retryErase_.push_back(write);
            }
            break;
        case Write::Kind::putMessage:
            break;
    }
}

void Shared::putMessage(uint32_t subject, uint64_t number, int64_t expires, const companion::Message& message) {
    Write write;
    write.kind = Write::Kind::putMessage;
    write.subject = subject;
    write.number = number;
    write.expires = expires;
    write.message = message;
    keep(std::move(write));
}

void Shared::undoPutMessage() noexcept {
    if (settings.ledger && !out->store.writes.empty()) out->store.writes.pop_back();
}

void Shared::eraseMessages(uint32_t subject, uint64_t first, uint64_t last) {
    Write write;
    write.kind = Write::Kind::eraseMessages;
    write.subject = subject;
    write.number = first;
    write.last = last;
    keep(std::move(write));
}

void Shared::putState(std::string key, std::string value) {
    Write write;
    write.kind = Write::Kind::putState;
    write.key = std::move(key);
    write.value = std::move(value);
    keep(std::move(write));
}

void Shared::eraseState(std::string key) {
    Write write;
    write.kind = Write::Kind::eraseState;
    write.key = std::move(key);
    keep(std::move(write));
}

void Shared::finish() noexcept {
    Transaction& store = out->store;
    try {
        if (!store.writes.empty() && store.token == 0) {
            store.token = ++lastToken_;
            store.sync = store.sync || sync_;
            for (const Write& write : store.writes)
                written_.push_back(
                    {lastToken_, write.kind, write.subject, write.number, write.last, write.key, write.value});
        }
    } catch (const std::bad_alloc&) {
        // What is not in the journal is not written again after a failure; the next change of the same state is.
    }
    try {
        for (auto& message : ofStep_) {
            // What depends on a ledger that does not work is as if it had been lost.
            if (status_ != QUORL_OK) continue;
            if (lastToken_ == persisted_ || !settings.ledger) {
                out->messages.push_back(std::move(message));
            } else {
                waiting_.push_back({lastToken_, std::move(message)});
            }
        }
    } catch (const std::bad_alloc&) {
    }
    ofStep_.clear();
}

void Shared::tell(Event::Kind kind, std::string_view name, std::string_view subject, uint64_t first, uint64_t last,
                  const char* reason) {
    Event event;
    event.kind = kind;
    event.name = name;
    event.subject = subject;
    event.first = first;
    event.last = last;
    event.reason = reason;
    out->events.push_back(std::move(event));
}

// ---- what became of them

void Shared::persisted(uint64_t token) {
    if (token <= persisted_ || token > lastToken_) return;
    persisted_ = token;
    while (!written_.empty() && written_.front().token <= token) written_.pop_front();
    while (!waiting_.empty() && waiting_.front().token <= token) {
        out->messages.push_back(std::move(waiting_.front().message));
        waiting_.pop_front();
    }
    if (retryToken_ == 0 || token < retryToken_) return;
    retryToken_ = 0;
    retryAt_ = INT64_MAX;
    if (!giveOutRetry(false)) return;  // tried again, as if the ledger did not work yet
    status_ = QUORL_OK;
    tell(Event::Kind::storageWorks, {}, {});
}

void Shared::storageFailed(uint64_t token, quorl_status status) {
    if (token <= persisted_ || token > lastToken_) return;
    // Whatever takes memory comes first.
    std::map<std::string, std::optional<std::string>> older;
    std::vector<Write> erase;
    const auto begin =
        std::find_if(written_.begin(), written_.end(), [&](const Written& one) { return one.token >= token; });
    for (auto one = written_.end(); one != begin;) {
        --one;
        if (one->kind == Write::Kind::putMessage) {
            notStored.push_back({one->subject, one->number});
        } else if (one->kind == Write::Kind::eraseMessages) {
            Write write;
            write.kind = one->kind;
            write.subject = one->subject;
            write.number = one->number;
            write.last = one->last;
            erase.push_back(std::move(write));
        } else if (one->kind == Write::Kind::putState) {
            // From the last to the first: what is there is newer.
            older.try_emplace(one->key, one->value);
        } else {
            older.try_emplace(one->key, std::nullopt);
        }
    }
    retryErase_.reserve(retryErase_.size() + erase.size());
    const int64_t again = now.monotonic + retryPause;
    set(again, Timing::storage);
    if (status_ == QUORL_OK) tell(Event::Kind::storageFailed, {}, {}, static_cast<uint64_t>(status));
    status_ = status == QUORL_OK ? QUORL_IO_FAILED : status;
    retryToken_ = 0;
    for (Write& write : erase) retryErase_.push_back(std::move(write));
    // What was to be written while this was on its way is newer, and stays.
    retryState_.merge(older);
    written_.erase(begin, written_.end());
    while (!waiting_.empty() && waiting_.back().token >= token) waiting_.pop_back();
    retryAt_ = again;
}

// False: there is no memory for it now, and it is tried again.
bool Shared::giveOutRetry(bool probes) {
    Transaction& store = out->store;
    try {
        if (probes && retryErase_.empty() && retryState_.empty()) retryState_[std::string(probeKey)] = std::string();
        store.writes.reserve(store.writes.size() + retryErase_.size() + retryState_.size());
    } catch (const std::bad_alloc&) {
        retryAt_ = now.monotonic + retryPause;
        set(retryAt_, Timing::storage);
        return false;
    }
    for (Write& write : retryErase_) store.writes.push_back(std::move(write));
    retryErase_.clear();
    while (!retryState_.empty()) {
        auto state = retryState_.extract(retryState_.begin());
        Write write;
        write.kind = state.mapped() ? Write::Kind::putState : Write::Kind::eraseState;
        write.key = std::move(state.key());
        if (state.mapped()) write.value = std::move(*state.mapped());
        store.writes.push_back(std::move(write));
    }
    return true;
}

bool Shared::tryNow() {
    if (retryToken_ != 0) return false;
    retryAt_ = now.monotonic;
    tryStorage();
    return true;
}

void Shared::tryStorage() {
    if (status_ == QUORL_OK || retryToken_ != 0 || now.monotonic < retryAt_) return;
    retryAt_ = INT64_MAX;
    if (!giveOutRetry(true)) return;
    out->store.afterFailure = true;
    out->store.sync = true;
    retryToken_ = lastToken_ + 1;
}

}  // namespace quorl::certified

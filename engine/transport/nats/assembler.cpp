// Keeping the parts of messages until they are whole.
#include "transport/nats/assembler.h"

#include <algorithm>
#include <new>

namespace quorl::transport::nats {

void Assembler::drop(std::list<Partial>::iterator at) noexcept {
    held_ -= at->bytes.size();
    partials_.erase(at);
    dropped_.fetch_add(1, std::memory_order_relaxed);
}

bool Assembler::take(const void* way, const Part& part, int64_t now, std::vector<uint8_t>* whole) noexcept {
    Lock lock(lock_);
    while (!partials_.empty() && now - partials_.front().last > limits_.patience) drop(partials_.begin());
    auto at = std::find_if(partials_.begin(), partials_.end(), [&](const Partial& partial) {
        return partial.way == way && partial.number == part.number && partial.sender == part.sender;
    });
    if (at != partials_.end() && (part.offset != at->bytes.size() || part.total != at->total)) {
        // A sender begins anew when its connection was lost in the middle.
        drop(at);
        at = partials_.end();
    }
    if (part.total > largestEntry || part.size > limits_.bytes) {
        // Once for each message.
        if (part.offset == 0) dropped_.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    try {
        if (at == partials_.end()) {
            if (part.offset != 0) return false;
            partials_.push_back({way, part.sender, part.number, part.total, now, {}});
            at = std::prev(partials_.end());
        } else {
            partials_.splice(partials_.end(), partials_, at);
        }
        // The oldest give way. What a sender announces takes no memory yet, only what has come.
        while (partials_.size() > 1 && (partials_.size() > limits_.messages || held_ + part.size > limits_.bytes))
            drop(partials_.begin());
        if (held_ + part.size > limits_.bytes) {
            drop(at);
            return false;
        }
        const size_t wanted = at->bytes.size() + part.size;
        // Grown by halves: at most half of what has come is room without use.
        if (wanted > at->bytes.capacity())
            at->bytes.reserve(std::min<size_t>(part.total, std::max(wanted, at->bytes.size() + at->bytes.size() / 2)));
        at->bytes.insert(at->bytes.end(), part.data, part.data + part.size);
    } catch (const std::bad_alloc&) {
        if (at != partials_.end()) drop(at);
        return false;
    }
    at->last = now;
    held_ += part.size;
    if (at->bytes.size() != at->total) return false;
    held_ -= at->bytes.size();
    *whole = std::move(at->bytes);
    partials_.erase(at);
    return true;
}

void Assembler::forget(const void* way) noexcept {
    Lock lock(lock_);
    for (auto at = partials_.begin(); at != partials_.end();) {
        if (at->way == way) {
            held_ -= at->bytes.size();
            at = partials_.erase(at);
        } else {
            ++at;
        }
    }
}

size_t Assembler::bytesHeld() noexcept {
    Lock lock(lock_);
    return held_;
}

}  // namespace quorl::transport::nats

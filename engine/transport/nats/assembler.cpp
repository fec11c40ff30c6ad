// Keeping the parts of messages until they are whole.
#include "transport/nats/assembler.h"

#include <algorithm>
#include <new>

namespace quorl::transport::nats {

void Assembler::erase(Place at) noexcept {
    held_ -= at->bytes->size();
    partials_.erase(at);
}

void Assembler::drop(Place at) noexcept {
    erase(at);
    dropped_.fetch_add(1, std::memory_order_relaxed);
}

// False: it does not fit into the bounds. Throws std::bad_alloc.
bool Assembler::add(Place at, Way& way, const Part& part) {
    std::vector<uint8_t>& bytes = *at->bytes;
    // Another way was first.
    if (way.come + part.size <= bytes.size()) return true;
    if (way.come != bytes.size()) return false;
    // The oldest give way. What a sender announces takes no memory yet, only what has come.
    while (partials_.size() > 1 && (partials_.size() > limits_.messages || held_ + part.size > limits_.bytes))
        drop(partials_.begin());
    if (held_ + part.size > limits_.bytes) return false;
    const size_t wanted = bytes.size() + part.size;
    // Grown by halves: at most half of what has come is room without use.
    if (wanted > bytes.capacity())
        bytes.reserve(std::min<size_t>(part.total, std::max(wanted, bytes.size() + bytes.size() / 2)));
    bytes.insert(bytes.end(), part.data, part.data + part.size);
    held_ += part.size;
    return true;
}

bool Assembler::take(const void* way, std::string_view subject, const Part& part, int64_t now, Whole* whole) noexcept {
    Lock lock(lock_);
    while (!partials_.empty() && now - partials_.front().last > limits_.patience) drop(partials_.begin());
    Place at = std::find_if(partials_.begin(), partials_.end(), [&](const Partial& partial) {
        return partial.number == part.number && partial.sender == part.origin.sender && partial.subject == subject;
    });
    const auto wayOf = [&] {
        return std::find_if(at->ways.begin(), at->ways.end(), [way](const Way& one) { return one.way == way; });
    };
    if (at != partials_.end() && part.total != at->total) {
        drop(at);
        at = partials_.end();
    }
    if (at != partials_.end()) {
        const auto known = wayOf();
        if (known == at->ways.end()) {
            if (part.offset != 0) return false;  // listened to since the middle of the message
        } else if (part.offset != known->come) {
            drop(at);
            at = partials_.end();
        }
    }
    if (part.total > largestEntry || part.size > limits_.bytes) {
        // Once for each message.
        if (part.offset == 0) dropped_.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    try {
        if (at == partials_.end()) {
            if (part.offset != 0) return false;
            auto bytes = std::make_shared<std::vector<uint8_t>>();
            partials_.push_back(
                {part.origin.sender, part.number, part.total, now, std::string(subject), {}, std::move(bytes)});
            at = std::prev(partials_.end());
        } else {
            partials_.splice(partials_.end(), partials_, at);
        }
        auto one = wayOf();
        if (one == at->ways.end()) one = at->ways.insert(one, {way, 0});
        if (!add(at, *one, part)) {
            drop(at);
            return false;
        }
        at->last = now;
        one->come += part.size;
        if (one->come != at->total) return false;
        *whole = at->bytes;
        at->ways.erase(one);
    } catch (const std::bad_alloc&) {
        if (at != partials_.end()) drop(at);
        return false;
    }
    if (at->ways.empty()) erase(at);
    return true;
}

void Assembler::forget(const void* way) noexcept {
    Lock lock(lock_);
    for (auto at = partials_.begin(); at != partials_.end();) {
        const auto next = std::next(at);
        const size_t ways = std::erase_if(at->ways, [way](const Way& one) { return one.way == way; });
        if (ways != 0 && at->ways.empty()) erase(at);
        at = next;
    }
}

int64_t Assembler::lastPart(std::string_view subject) noexcept {
    Lock lock(lock_);
    int64_t last = 0;
    for (const Partial& partial : partials_) {
        if (partial.subject == subject) last = std::max(last, partial.last);
    }
    return last;
}

size_t Assembler::bytesHeld() noexcept {
    Lock lock(lock_);
    return held_;
}

}  // namespace quorl::transport::nats

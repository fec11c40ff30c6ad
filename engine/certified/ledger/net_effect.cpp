#include "certified/ledger/net_effect.h"

#include <algorithm>
#include <utility>

namespace quorl::certified {

void NetEffect::add(Write&& write, uint64_t sum) {
    switch (write.kind) {
        case Write::Kind::putMessage: {
            const uint64_t number = write.number;
            Put& put = subjects_[write.subject].puts[number];
            put = {std::move(write), sum};
            break;
        }
        case Write::Kind::eraseMessages: {
            if (write.last < write.number) break;
            Subject& subject = subjects_[write.subject];
            addRange(&subject.erased, write.number, write.last);
            subject.puts.erase(subject.puts.lower_bound(write.number), subject.puts.upper_bound(write.last));
            break;
        }
        case Write::Kind::putState:
        case Write::Kind::eraseState: {
            Put& put = states_[write.key];
            put = {std::move(write), sum};
            break;
        }
    }
}

void NetEffect::clear() noexcept {
    subjects_.clear();
    states_.clear();
}

const NetEffect::Put* NetEffect::find(uint32_t subject, uint64_t number, bool* erased) const noexcept {
    *erased = false;
    const auto found = subjects_.find(subject);
    if (found == subjects_.end()) return nullptr;
    const auto put = found->second.puts.find(number);
    if (put != found->second.puts.end()) return &put->second;
    *erased = found->second.erases(number);
    return nullptr;
}

bool NetEffect::Subject::erases(uint64_t number) const noexcept {
    const auto after = erased.upper_bound(number);
    return after != erased.begin() && std::prev(after)->second >= number;
}

// Joined with those that it touches: what is confirmed one by one becomes one range.
void NetEffect::addRange(Ranges* ranges, uint64_t first, uint64_t last) {
    auto at = ranges->upper_bound(first);
    if (at != ranges->begin() && (std::prev(at)->second == UINT64_MAX || std::prev(at)->second + 1 >= first)) --at;
    if (at == ranges->end() || (last != UINT64_MAX && at->first > last + 1)) {
        ranges->emplace(first, last);
        return;
    }
    // Without memory of its own, which may not be had.
    auto joined = ranges->extract(at++);
    joined.key() = std::min(first, joined.key());
    joined.mapped() = std::max(last, joined.mapped());
    while (at != ranges->end() && (joined.mapped() == UINT64_MAX || at->first <= joined.mapped() + 1)) {
        joined.mapped() = std::max(joined.mapped(), at->second);
        at = ranges->erase(at);
    }
    ranges->insert(std::move(joined));
}

}  // namespace quorl::certified

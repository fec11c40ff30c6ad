// The table of what was told.
#include "ftolerance/protocol/disagreements.h"

#include <new>

namespace quorl::ftolerance {

bool Disagreements::isNews(const Frame& frame) noexcept {
    const Terms terms{frame.goal, frame.intervals};
    if (const auto known = told_.find(frame.member); known != told_.end()) {
        if (known->second == terms) return false;
        known->second = terms;
        return true;
    }
    if (told_.size() >= most) told_.clear();
    try {
        told_.emplace(frame.member, terms);
    } catch (const std::bad_alloc&) {
        // It may be told again.
    }
    return true;
}

}  // namespace quorl::ftolerance

// Which disagreements about goal and intervals were told: each once, also when the member was lost and heard again meanwhile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "ftolerance/protocol/frame.h"

namespace quorl::ftolerance {

class Disagreements {
  public:
    // Whoever sends may invent members. When so many have disagreed, all are forgotten, and may be told once more.
    static constexpr size_t most = 1024;

    // Whether it was not told yet that this member has the frame's goal and intervals; from now on it was. True when there is no
    // memory to know it by.
    bool isNews(const Frame& frame) noexcept;
    // The member agrees, or has left.
    void forget(uint64_t member) noexcept { told_.erase(member); }

  private:
    struct Terms {
        uint16_t goal;
        Intervals intervals;
        bool operator==(const Terms&) const = default;
    };
    std::unordered_map<uint64_t, Terms> told_;
};

}  // namespace quorl::ftolerance

// Random numbers of the simulated world: the same for a seed on every machine and with every standard library.
#pragma once

#include <cstdint>

namespace quorl::sim {

// SplitMix64 (Steele, Lea, Flood: Fast Splittable Pseudorandom Number Generators, 2014).
constexpr uint64_t mix(uint64_t value) noexcept {
    value += 0x9e3779b97f4a7c15u;
    value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9u;
    value = (value ^ (value >> 27)) * 0x94d049bb133111ebu;
    return value ^ (value >> 31);
}

class Random {
  public:
    constexpr explicit Random(uint64_t seed) noexcept : state_(seed) {}

    constexpr uint64_t operator()() noexcept {
        const uint64_t value = mix(state_);
        state_ += 0x9e3779b97f4a7c15u;
        return value;
    }
    // From 0 to end - 1; end is not 0.
    constexpr uint64_t below(uint64_t end) noexcept { return (*this)() % end; }
    // From least to most, both included.
    constexpr int64_t between(int64_t least, int64_t most) noexcept {
        return least + static_cast<int64_t>(below(static_cast<uint64_t>(most - least) + 1));
    }
    // True in that many of a million cases.
    constexpr bool chance(uint32_t perMillion) noexcept { return below(1'000'000) < perMillion; }
    constexpr bool coin() noexcept { return ((*this)() & 1) != 0; }

  private:
    uint64_t state_;
};

}  // namespace quorl::sim

// A schedule of faults drawn from a seed: the same seed gives the same commands, on every machine.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace quorltest {

// splitmix64: what the standard's distributions draw differs between libraries.
class Draw {
  public:
    explicit Draw(uint64_t seed) noexcept : state_(seed) {}

    uint64_t next() noexcept {
        uint64_t mixed = state_ += 0x9e3779b97f4a7c15u;
        mixed = (mixed ^ mixed >> 30) * 0xbf58476d1ce4e5b9u;
        mixed = (mixed ^ mixed >> 27) * 0x94d049bb133111ebu;
        return mixed ^ mixed >> 31;
    }
    // From least to most.
    uint64_t between(uint64_t least, uint64_t most) noexcept { return least + next() % (most - least + 1); }

  private:
    uint64_t state_;
};

// Commands of fault_proxy, one at a time, for ever: pauses, and faults that end.
class Schedule {
  public:
    // longest: of a fault, and of a pause between two, in milliseconds.
    Schedule(uint64_t seed, uint64_t longest) noexcept : draw_(seed), longest_(longest < 2 ? 2 : longest) {}

    std::string next() {
        switch (step_++ % 4) {
            case 0:
            case 2:
                return "wait " + std::to_string(draw_.between(1, longest_));
            case 1:
                return begin();
            default:
                return std::move(end_);
        }
    }

  private:
    const char* way() {
        static constexpr std::array<const char*, 3> ways{"up", "down", "both"};
        return ways[draw_.between(0, 2)];
    }
    std::string begin() {
        const std::string direction = way();
        switch (draw_.between(0, 4)) {
            case 0:
                end_ = "report";
                return "cut";
            case 1:
                end_ = "report";
                return "close";
            case 2:
                end_ = "thaw " + direction;
                return "freeze " + direction;
            case 3:
                end_ = "delay " + direction + " 0";
                return "delay " + direction + " " + std::to_string(draw_.between(1, longest_));
            default:
                end_ = "rate " + direction + " 0";
                return "rate " + direction + " " + std::to_string(draw_.between(10'000, 10'000'000));
        }
    }

    Draw draw_;
    const uint64_t longest_;
    uint64_t step_ = 0;
    std::string end_;
};

}  // namespace quorltest

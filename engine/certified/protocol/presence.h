// Seeing to it that one program alone has a certified name.
//
// An instance that starts asks who else has the name. Whoever has it answers, and the newcomer is suspended. Where two have
// settled without hearing each other, the one that started later is. Only answers to an instance's own questions count: what
// an earlier life of the same program has sent may still be on its way.
#pragma once

#include <cstdint>

#include "certified/protocol/shared.h"

namespace quorl::certified {

class Presence {
  public:
    explicit Presence(Shared& shared) : shared_(shared) {}

    void start();
    // Both return whether the name has just become this instance's.
    bool onTime();
    bool onPresence(const Frame& frame);
    // The program ends: who waits for the name may have it.
    void close();

  private:
    void say(uint64_t answered, uint8_t flags);
    bool settle();

    Shared& shared_;
    uint64_t startedAt_ = 0;  // wall clock, milliseconds
    uint32_t asked_ = 0;
    bool trying_ = true;  // for the name; false: it has it, or has given way
    int64_t at_ = INT64_MAX;
    int64_t rivalAt_ = 0;  // when the one that has the name was heard
    int64_t toldAt_ = INT64_MIN / 2;
};

}  // namespace quorl::certified

// What steps of members and monitors have for the program: actions, counts, and advisories about the group.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ftolerance/protocol/frame.h"

namespace quorl::ftolerance {

// Both in nanoseconds. monotonic may start anywhere and does not go back. wall is since 1970, and nothing but the numbers of
// activations looks at it.
struct Now {
    int64_t monotonic = 0;
    int64_t wall = 0;
};

// As quorlftAction numbers them.
enum class Action : uint8_t { prepare = 1, activate = 2, deactivate = 3 };

enum class Cause : uint8_t {
    rank,     // there is a place among the active ones, or there is none any more
    paused,   // the process stood still for so long that another member may have taken its place
    unheard,  // one that ranks below acts too, and does not hear this one
    cutOff,   // there is no way to the others any more
    token,  // others have had a higher token meanwhile, which a guard may have seen; it will be activated with a new one
};

struct Told {
    Action action = Action::prepare;
    Cause cause = Cause::rank;
    uint64_t token = 0;  // of activate and deactivate: the activation's, see tokenOf
};

// What happens in a group beside actions. about is the newest frame of the member that it is about.
enum class Event : uint8_t {
    joined,        // a member is heard for the first time
    left,          // it has said good-bye
    lost,          // it is silent
    changed,       // its state or weight is another; told by monitors
    disagreement,  // its goal or intervals are others than one's own
    tooMany,       // more members act than are to, and this is one of them; number: how many
    unheard,       // a member that acts does not step back for this one; it may not hear it. number: nanoseconds so far
    slow,          // the program has not returned from deactivation in time. number: nanoseconds
    paused,        // this process stood still. number: nanoseconds
    impostor,      // somebody sends in this member's name
    crowded,       // there is no room for one member more; number: how many are known
    malformed,     // what came is no frame; reason says why
};
inline constexpr size_t events = 12;

struct Advisory {
    Event event = Event::joined;
    Frame about;  // member 0: about nobody
    uint64_t number = 0;
    uint64_t suppressed = 0;  // of this kind, before it, since the last one
    const char* reason = "";  // static text
};

// Lets so many advisories of each kind pass in a time, and counts the rest.
class AdvisoryLimits {
  public:
    static constexpr uint32_t most = 8;
    // mostChanges: of what is no fault, but what members do: they join, leave, are lost and change.
    explicit AdvisoryLimits(int64_t span, uint32_t mostChanges = most) noexcept
        : span_(span), mostChanges_(mostChanges) {}
    // to has room for it.
    void tell(Advisory advisory, int64_t now, std::vector<Advisory>& to) noexcept {
        Limit& limit = limits_[static_cast<size_t>(advisory.event)];
        if (limit.told != 0 && now - limit.since >= span_) limit.told = 0;
        if (limit.told == 0) limit.since = now;
        if (limit.told == (advisory.event <= Event::changed ? mostChanges_ : most) || to.size() == to.capacity()) {
            ++limit.suppressed;
            return;
        }
        ++limit.told;
        advisory.suppressed = limit.suppressed;
        limit.suppressed = 0;
        to.push_back(advisory);
    }

  private:
    struct Limit {
        int64_t since = 0;
        uint32_t told = 0;
        uint64_t suppressed = 0;
    };
    int64_t span_;
    uint32_t mostChanges_;
    std::array<Limit, events> limits_{};
};

}  // namespace quorl::ftolerance

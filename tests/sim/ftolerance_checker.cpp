// Looks at quiet times: from the settling bound after a disturbance to the next disturbance, everything must be as promised.
#include "sim/ftolerance_checker.h"

#include <algorithm>
#include <optional>

namespace quorl::sim {
namespace {

constexpr Time slack = 25 * millisecond;

class Checker {
  public:
    Checker(const Plan& plan, const GroupTerms& terms, const Lives& lives, Time end)
        : plan_(plan), terms_(terms), lives_(lives), end_(end) {
        for (const FaultStep& fault : plan.faults) {
            if (fault.at >= plan.healedAt) continue;
            disturbances_.push_back(fault.at);
            disturbances_.push_back(std::min(fault.at + fault.lasts, plan.healedAt));
        }
        disturbances_.push_back(plan.healedAt);
        for (const Life& life : lives) {
            disturbances_.push_back(life.from);
            if (life.until != never) disturbances_.push_back(life.until);
            if (life.left != never) disturbances_.push_back(life.left);
            for (const auto& [at, weight] : life.weights) disturbances_.push_back(at);
        }
        disturbances_.push_back(end);
        std::ranges::sort(disturbances_);
    }

    uint64_t sides() const { return sides_; }

    std::string check() {
        for (const Life& life : lives_) {
            const std::string broken = life.monitor ? ofMonitor(life) : ofMember(life);
            if (!broken.empty()) return "node " + std::to_string(life.node) + ": " + broken;
        }
        for (size_t i = 0; i + 1 < disturbances_.size(); ++i) {
            const Time from = disturbances_[i];
            const Time until = std::min(disturbances_[i + 1], end_);
            if (from + bound() >= until || !isReliable(from, until)) continue;
            std::string broken = whileQuiet(from + bound(), until);
            if (!broken.empty()) return "at " + std::to_string(from / millisecond) + " ms and later: " + broken;
        }
        for (const auto& rule : {&Checker::leavesAreAnsweredAtOnce, &Checker::nobodyIsTooMany, &Checker::tokensGrow,
                                 &Checker::hintsComeInTime, &Checker::disagreementsAreToldOnce}) {
            std::string broken = (this->*rule)();
            if (!broken.empty()) return broken;
        }
        return "";
    }

  private:
    // The activation interval and two heartbeats, by clocks that drift.
    Time bound() const { return drifting(terms_.activation + 2 * terms_.heartbeat) + slack; }
    static Time drifting(Time time) { return time + time / 400; }
    // The longest that a message takes.
    Time delay() const { return plan_.rates.longest + slack; }

    // ---- what the plan says of a time

    // Messages come, as far as nodes are not cut off from each other. No disturbance lies between the two.
    bool isReliable(Time from, Time until) const {
        if (from >= plan_.healedAt) return true;
        if (plan_.rates.loss != 0) return false;
        return std::ranges::none_of(plan_.faults, [&](const FaultStep& fault) {
            return fault.fault == Fault::noRoom && fault.at < until &&
                   std::min(fault.at + fault.lasts, plan_.healedAt) > from;
        });
    }
    bool reaches(uint32_t from, uint32_t to, Time at) const {
        if (from == to) return true;
        if (at >= plan_.healedAt) return (plan_.healed >> from & plan_.healed >> to & 1) != 0;
        return std::ranges::none_of(plan_.faults, [&](const FaultStep& fault) {
            if (fault.at > at || fault.at + fault.lasts <= at) return false;
            if (fault.fault == Fault::isolate) return fault.node == from || fault.node == to;
            if (fault.fault == Fault::cut) return fault.node == from && fault.peer == to;
            return fault.fault == Fault::split &&
                   ((fault.node == from && fault.peer == to) || (fault.node == to && fault.peer == from));
        });
    }
    bool mutual(uint32_t one, uint32_t other, Time at) const {
        return reaches(one, other, at) && reaches(other, one, at);
    }
    bool isCut(Time at) const {
        for (uint32_t one = 0; one < plan_.nodes; ++one) {
            for (uint32_t other = 0; other < plan_.nodes; ++other) {
                if (!reaches(one, other, at)) return true;
            }
        }
        return false;
    }
    // Whether the life stands still at some time of these.
    bool isPaused(const Life& life, Time from, Time until) const {
        return std::ranges::any_of(plan_.faults, [&](const FaultStep& fault) {
            return fault.fault == Fault::pause && fault.node == life.node && fault.at >= life.from &&
                   fault.at <= until && std::min(fault.at + fault.lasts, plan_.healedAt) > from;
        });
    }
    // Whether two nodes hear each other without loss all that time.
    bool areTogether(const Life& one, const Life& other, Time from, Time until) const {
        if (!isReliable(from, until) || isPaused(one, from, until) || isPaused(other, from, until)) return false;
        if (one.from > from || other.from > from || one.until < until || other.until < until) return false;
        if (!mutual(one.node, other.node, from)) return false;
        for (const Time at : disturbances_) {
            if (at > from && at < until && !mutual(one.node, other.node, at)) return false;
        }
        return true;
    }

    // ---- what the lives say of a time

    bool isMember(const Life& life, Time at) const {
        return !life.monitor && life.from <= at && life.until > at && life.left > at;
    }
    static bool isActive(const Life& life, Time at) {
        bool active = false;
        for (const Step& step : life.steps) {
            if (step.at > at) break;
            if (step.deed == Deed::activate) active = true;
            if (step.deed == Deed::deactivate) active = false;
        }
        return active;
    }
    // Of its last activation.
    static uint64_t tokenAt(const Life& life, Time at) {
        uint64_t token = 0;
        for (const Step& step : life.steps) {
            if (step.at <= at && step.deed == Deed::activate) token = step.token;
        }
        return token;
    }
    static uint16_t weightOf(const Life& life, Time at) {
        uint16_t found = 1;
        for (const auto& [since, weight] : life.weights) {
            if (since <= at) found = weight;
        }
        return found;
    }
    // one had been a member for long when other joined, and other heard it: surely older.
    bool isOlder(const Life& one, const Life& other) const {
        const Time joins = drifting(terms_.activation) + slack;
        if (one.from + joins > other.from || isPaused(one, one.from, other.from)) return false;
        return areTogether(one, other, other.from, other.from + joins);
    }

    // ---- the promises

    std::string ofMember(const Life& life) const {
        if (life.wentOnAfterPause) return "it goes on after a pause";
        bool active = false;
        bool hinted = false;
        uint64_t token = 0;
        for (const Step& step : life.steps) {
            switch (step.deed) {
                case Deed::prepare:
                    if (active) return "an active member is hinted to prepare";
                    if (terms_.preparation == 0) return "a hint comes that nobody asked for";
                    hinted = true;
                    break;
                case Deed::activate:
                    if (active) return "it is activated twice";
                    if (terms_.preparation != 0 && !hinted) return "an activation comes without a hint";
                    if (step.token <= token) return "its token does not grow";
                    token = step.token;
                    active = true;
                    break;
                case Deed::deactivate:
                    if (!active) return "it is deactivated without being active";
                    if (step.token != token) return "a deactivation has another token than its activation";
                    active = hinted = false;
                    break;
                case Deed::returned:
                    break;
            }
        }
        return "";
    }

    std::string ofMonitor(const Life& life) const {
        const Time until = life.counts.empty() ? never : life.counts.front().first;
        const bool zero = !life.counts.empty() && life.counts.front().second == 0;
        if (zero && until - life.from < terms_.lostInterval - terms_.lostInterval / 400)
            return "a zero is told too early";
        for (size_t i = 1; i < life.counts.size(); ++i) {
            if (life.counts[i].second == life.counts[i - 1].second) return "a count is told twice";
        }
        if (!zero) return "";
        for (const Life& other : lives_) {
            if (!areTogether(life, other, life.from, until) || !isMember(other, until)) continue;
            if (!isActive(other, life.from) || changed(other, life.from, until)) continue;
            return "the first count is a false zero";
        }
        return "";
    }
    static bool changed(const Life& life, Time from, Time until) {
        return std::ranges::any_of(life.steps, [&](const Step& step) { return step.at > from && step.at <= until; });
    }

    std::string whileQuiet(Time from, Time until) {
        std::vector<const Life*> present;
        for (const Life& life : lives_) {
            const bool runs = life.monitor ? life.from <= from && life.until > from : isMember(life, from);
            if (runs && !isPaused(life, from, from)) present.push_back(&life);
        }
        // Sides, if there are such: who hears one another hears the same ones.
        for (const Life* one : present) {
            for (const Life* other : present) {
                if (reaches(one->node, other->node, from) != reaches(other->node, one->node, from))
                    return oneWay(present, from, until);
                for (const Life* third : present) {
                    if (mutual(one->node, other->node, from) && mutual(other->node, third->node, from) &&
                        !mutual(one->node, third->node, from))
                        return "";
                }
            }
        }
        std::vector<const Life*> seen;
        for (const Life* one : present) {
            if (std::ranges::find(seen, one) != seen.end()) continue;
            std::vector<const Life*> side;
            for (const Life* other : present) {
                if (mutual(one->node, other->node, from)) side.push_back(other);
            }
            ++sides_;
            seen.insert(seen.end(), side.begin(), side.end());
            std::string broken = ofSide(side, from, until);
            if (!broken.empty()) return broken;
        }
        return "";
    }

    // Two members of which one does not hear the other: one of them is active, whichever that is.
    std::string oneWay(const std::vector<const Life*>& present, Time from, Time until) {
        const Time by = from + bound();
        if (present.size() != 2 || by >= until) return "";
        size_t active = 0;
        for (const Life* life : present) {
            if (life->monitor || life->goal != 1) return "";
            active += isActive(*life, by);
            if (changed(*life, by, until - 1)) return "somebody is told to do something though one way is cut for long";
        }
        ++sides_;
        return active == 1 ? "" : std::to_string(active) + " of 2 act where one does not hear the other";
    }

    // The goal of the one that ranks highest counts. Nothing when that cannot be told.
    std::optional<uint16_t> goalOf(const std::vector<const Life*>& members, Time at) const {
        uint16_t highest = 0;
        for (const Life* life : members) highest = std::max(highest, weightOf(*life, at));
        std::optional<uint16_t> goal;
        for (const Life* life : members) {
            if (weightOf(*life, at) != highest) continue;
            if (goal && *goal != life->goal) return std::nullopt;
            goal = life->goal;
        }
        return goal;
    }

    std::string ofSide(const std::vector<const Life*>& side, Time from, Time until) const {
        std::vector<const Life*> members;
        for (const Life* life : side) {
            if (!life->monitor) members.push_back(life);
        }
        std::vector<const Life*> active;
        for (const Life* life : members) {
            if (isActive(*life, from)) active.push_back(life);
        }
        if (const auto goal = goalOf(members, from)) {
            const size_t wanted = std::min<size_t>(*goal, members.size());
            if (active.size() != wanted)
                return std::to_string(active.size()) + " of " + std::to_string(members.size()) + " are active, not " +
                       std::to_string(wanted);
        }
        for (const Life* one : members) {
            if (isActive(*one, from)) continue;
            for (const Life* other : active) {
                const uint16_t mine = weightOf(*one, from);
                const uint16_t theirs = weightOf(*other, from);
                if (mine > theirs) return "one of lower weight is active in place of one of higher weight";
                if (mine == theirs && isOlder(*one, *other)) return "a younger one is active in place of an older one";
            }
        }
        // Who is active may get a new token in the heartbeat after that.
        const Time rest = from + drifting(terms_.heartbeat) + slack;
        for (const Life* life : members) {
            if (isActive(*life, until - 1) != isActive(*life, from) || changed(*life, rest, until - 1))
                return "somebody is told to do something though nothing happens";
        }
        if (goalOf(members, from) == 1 && active.size() == 1 && rest < until) {
            for (const Life* life : members) {
                if (tokenAt(*life, rest) > tokenAt(*active.front(), rest))
                    return "the active one has a lower token than another one had";
            }
        }
        for (const Life* life : side) {
            if (!life->monitor || until - from <= drifting(terms_.lostInterval) + slack) continue;
            uint32_t count = UINT32_MAX;
            for (const auto& [at, told] : life->counts) {
                if (at < until) count = told;
            }
            if (count != active.size())
                return "a monitor counts " + (count == UINT32_MAX ? "nothing" : std::to_string(count)) + ", and " +
                       std::to_string(active.size()) + " are active";
        }
        return "";
    }

    // Nothing happens but what programs do themselves.
    bool isCalm() const { return plan_.faults.empty() && plan_.rates.loss == 0 && plan_.healed == ~uint64_t{0}; }
    bool agree() const {
        return std::ranges::all_of(lives_, [&](const Life& life) { return life.goal == terms_.goal; });
    }

    std::string leavesAreAnsweredAtOnce() const {
        if (!isCalm() || !agree()) return "";
        for (const Life& gone : lives_) {
            if (gone.left == never || !isActive(gone, gone.left)) continue;
            const Time by = gone.left + 2 * delay();
            const bool alone = std::ranges::none_of(disturbances_, [&](Time at) {
                return at != gone.left && at > gone.left - bound() - 2 * delay() && at <= by;
            });
            if (!alone || by >= end_) continue;
            size_t members = 0;
            size_t active = 0;
            for (const Life& life : lives_) {
                members += isMember(life, by);
                active += isMember(life, by) && isActive(life, by);
            }
            if (active != std::min<size_t>(terms_.goal, members)) return "nobody takes the place of one that left";
        }
        return "";
    }

    // Where nothing goes wrong more than the goal act only while messages about it are on their way.
    std::string nobodyIsTooMany() const {
        if (!isCalm() || !agree()) return "";
        std::vector<std::pair<Time, int>> changes;
        for (const Life& life : lives_) {
            bool acts = false;
            for (const Step& step : life.steps) {
                if (step.deed == Deed::activate && !acts) {
                    changes.emplace_back(step.at, 1);
                    acts = true;
                }
                if (step.deed == Deed::returned && acts) {
                    changes.emplace_back(step.at, -1);
                    acts = false;
                }
            }
            if (acts) changes.emplace_back(std::min({life.left, life.until, end_}), -1);
        }
        std::ranges::sort(changes);
        int acting = 0;
        Time since = never;
        for (const auto& [at, change] : changes) {
            acting += change;
            const bool tooMany = acting > terms_.goal;
            // The one that is too many hears of it, and its program takes its time to return.
            if (since != never && at - since > 2 * delay() + programReturns) return "more than the goal act";
            since = tooMany ? (since == never ? at : since) : never;
        }
        return "";
    }
    static constexpr Time programReturns = 60 * millisecond;

    std::string tokensGrow() const {
        const bool connected = plan_.rates.loss == 0 && plan_.healed == ~uint64_t{0} &&
                               std::ranges::none_of(plan_.faults, [](const FaultStep& fault) {
                                   return fault.fault == Fault::cut || fault.fault == Fault::split ||
                                          fault.fault == Fault::isolate || fault.fault == Fault::noRoom;
                               });
        if (!connected) return "";
        for (const Life& one : lives_) {
            for (const Step& earlier : one.steps) {
                if (earlier.deed != Deed::activate) continue;
                for (const Life& other : lives_) {
                    // Who was there then has heard of it.
                    if (&other == &one || other.from > earlier.at) continue;
                    for (const Step& later : other.steps) {
                        if (later.deed != Deed::activate || later.at <= earlier.at + delay()) continue;
                        // A send inside which a program was killed may not have gone to all.
                        if (one.until <= earlier.at + delay()) continue;
                        if (later.token <= earlier.token) return "a later activation has no higher token";
                    }
                }
            }
        }
        return "";
    }

    // Whoever takes the place of one that fell silent was hinted before.
    std::string hintsComeInTime() const {
        if (terms_.preparation == 0 || !agree()) return "";
        for (const Life& gone : lives_) {
            if (gone.monitor || gone.until >= end_ || gone.left != never || !isActive(gone, gone.until)) continue;
            const Time by = gone.until + bound();
            const bool alone = std::ranges::none_of(
                disturbances_, [&](Time at) { return at != gone.until && at > gone.until - bound() && at <= by; });
            if (!alone || !isReliable(gone.until - bound(), by) || by >= end_ || isCut(gone.until)) continue;
            for (const Life& life : lives_) {
                Time hint = never;
                for (const Step& step : life.steps) {
                    if (step.at <= gone.until || step.at > by) continue;
                    if (step.deed == Deed::prepare) hint = step.at;
                    if (step.deed != Deed::activate) continue;
                    if (hint == never || step.at - hint < (terms_.activation - terms_.preparation) / 2)
                        return "the hint before a take-over comes too late";
                }
            }
        }
        return "";
    }

    std::string disagreementsAreToldOnce() const {
        const Time at = end_ - 1;
        for (const Life& one : lives_) {
            // Once of each, also of one that was lost and heard again.
            const auto others = std::ranges::count_if(
                lives_, [&](const Life& other) { return !other.monitor && other.goal != one.goal; });
            if (!one.monitor && one.disagreements > static_cast<uint64_t>(others))
                return "a disagreement is told again";
            for (const Life& other : lives_) {
                if (&one == &other || one.goal == other.goal || !isMember(one, at) || !isMember(other, at)) continue;
                if (one.from + bound() < plan_.healedAt && other.from + bound() < plan_.healedAt &&
                    mutual(one.node, other.node, at) && one.disagreements == 0)
                    return "a disagreement is not told";
            }
        }
        return "";
    }

    const Plan& plan_;
    const GroupTerms& terms_;
    const Lives& lives_;
    const Time end_;
    std::vector<Time> disturbances_;
    uint64_t sides_ = 0;
};

}  // namespace

std::string brokenPromise(const Plan& plan, const GroupTerms& terms, const Lives& lives, Time end, uint64_t* sides) {
    Checker checker(plan, terms, lives, end);
    std::string broken = checker.check();
    *sides += checker.sides();
    return broken;
}

}  // namespace quorl::sim

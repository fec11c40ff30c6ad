// Whose task it was, when, and what went wrong meanwhile.
#include "sim/dqueue_checker.h"

#include <algorithm>

namespace quorl::sim {

QueueChecker::QueueChecker(const Terms& terms)
    : terms_(terms), current_(terms.members, 0), heard_(size_t{terms.members} * terms.members, 0) {}

void QueueChecker::fail(const std::string& what) {
    if (broken_.empty()) broken_ = what;
}

std::string QueueChecker::nameOf(const Task& task) {
    return "task " + std::to_string(task.count) + " of sender " + std::to_string(task.sender) + " on t." +
           std::to_string(task.subject);
}

// ---- senders

void QueueChecker::accepted(const Task& task, Time now) {
    Record& record = tasks_[task];
    record.accepted = true;
    record.acceptedAt = now;
    ++totals_.accepted;
    // It may be done before its send has returned.
    if (!record.settled) ++owed_;
}

void QueueChecker::settle(Record& record) {
    if (record.settled) return;
    record.settled = true;
    if (record.accepted) --owed_;
}

void QueueChecker::confirmed(const Task& task, Time) {
    if (!tasks_[task].settled) fail(nameOf(task) + " is confirmed to its sender and was not completed");
}

// ---- lives

uint32_t QueueChecker::starts(uint32_t member, Time now) {
    lives_.push_back({member, now, never, false, 0, 0, {}});
    current_[member] = static_cast<uint32_t>(lives_.size());
    for (uint32_t other = 0; other < terms_.members; ++other)
        heard_[other * terms_.members + member] = heard_[member * terms_.members + other] = now;
    return static_cast<uint32_t>(lives_.size() - 1);
}

void QueueChecker::ends(uint32_t life, bool crashed, Time now) {
    Life& ending = lives_[life];
    if (ending.until != never) return;
    for (uint32_t other = 0; other < terms_.members; ++other) {
        if (other == ending.member || current_[other] == 0) continue;
        closeSilence(other, ending.member, now);
        closeSilence(ending.member, other, now);
    }
    ending.until = now;
    ending.crashed = crashed;
    current_[ending.member] = 0;
    if (!ending.reigns.empty() && ending.reigns.back().second == never) ending.reigns.back().second = now;
}

void QueueChecker::closeSilence(uint32_t from, uint32_t to, Time now) {
    Time& last = heard_[from * terms_.members + to];
    if (now - last >= leastSilence()) silences_.push_back({from, to, last, now});
    last = now;
}

void QueueChecker::hears(uint32_t life, uint32_t from, Time now) {
    const uint32_t to = lives_[life].member;
    if (from != to && current_[from] != 0) closeSilence(from, to, now);
}

bool QueueChecker::silent(Time from, Time until) const {
    if (std::ranges::any_of(silences_,
                            [&](const Silence& silence) { return silence.begin < until && silence.end > from; }))
        return true;
    for (uint32_t one = 0; one < terms_.members; ++one) {
        for (uint32_t other = 0; other < terms_.members; ++other) {
            if (one == other || current_[one] == 0 || current_[other] == 0) continue;
            const Time last = heard_[one * terms_.members + other];
            if (until - last >= leastSilence()) return true;
        }
    }
    return false;
}

void QueueChecker::capacity(uint32_t life, uint32_t tasks) {
    lives_[life].capacity = std::max(lives_[life].capacity, tasks);
}

void QueueChecker::reigns(uint32_t life, bool begins, Time now) {
    auto& reigns = lives_[life].reigns;
    if (begins) {
        ++totals_.reigns;
        reigns.emplace_back(now, never);
    } else if (!reigns.empty()) {
        reigns.back().second = now;
    }
}

// ---- tasks

QueueChecker::Hand* QueueChecker::handOf(Record& record, uint32_t life) {
    const auto found = std::ranges::find_if(record.hands.rbegin(), record.hands.rend(),
                                            [&](const Hand& hand) { return hand.life == life; });
    return found == record.hands.rend() ? nullptr : &*found;
}

void QueueChecker::given(uint32_t life, const Task& task, bool kept, Time now) {
    Record& record = tasks_[task];
    // A plain message that the network has doubled is two tasks.
    if (const Hand* before = handOf(record, life); before != nullptr && kept) {
        if (before->completed != never) fail(nameOf(task) + " is given again to who completed it");
        if (before->completed == never && before->back == never) fail(nameOf(task) + " is given again to who has it");
    }
    if (!kept) ++totals_.plain;
    if (!record.hands.empty()) ++totals_.givenAgain;
    record.hands.push_back({life, now, never, never});
    Life& holder = lives_[life];
    // What is overdue does not count any more.
    if (++holder.holds > holder.capacity && terms_.completeTime == 0)
        fail("a worker is given more tasks than it takes: " + nameOf(task));
}

void QueueChecker::completes(uint32_t life, const Task& task, bool kept, Time now) {
    Record& record = tasks_[task];
    Hand* hand = handOf(record, life);
    if (hand == nullptr) return fail(nameOf(task) + " is completed by who was not given it");
    --lives_[life].holds;
    const bool again = std::ranges::any_of(record.hands, [](const Hand& one) { return one.completed != never; });
    hand->completed = now;
    if (again && kept) {
        explain(task, record, *hand, now);
    } else if (!again) {
        ++totals_.completed;
        // Of a dead letter too: it was taken from this worker.
        if (record.wasLettered && kept) explain(task, record, *hand, now);
    }
    settle(record);
}

void QueueChecker::givesBack(uint32_t life, const Task& task, Time now) {
    if (Hand* hand = handOf(tasks_[task], life); hand != nullptr) {
        hand->back = now;
        --lives_[life].holds;
    }
}

void QueueChecker::deadLetter(const Task& task, uint32_t reassigned, bool kept, Time now) {
    Record& record = tasks_[task];
    if (terms_.reassignments == 0) fail(nameOf(task) + " becomes a dead letter, and there is no limit");
    if (reassigned <= terms_.reassignments) fail(nameOf(task) + " becomes a dead letter too early");
    if (record.hands.empty()) fail(nameOf(task) + " becomes a dead letter and was given to nobody");
    // A task that was completed, or is a dead letter already, is settled; who does not know that was cut off.
    const auto first = std::ranges::find_if(record.hands, [](const Hand& one) { return one.completed != never; });
    if ((first != record.hands.end() || record.wasLettered) && kept && !record.hands.empty())
        explain(task, record, record.hands.back(), now);
    if (!record.wasLettered) ++totals_.deadLetters;
    record.wasLettered = true;
    record.letter = now;
    settle(record);
}

void QueueChecker::waiting(uint32_t, uint64_t unassigned, uint64_t limit) {
    uint64_t capacity = 0;
    for (const Life& life : lives_) capacity += life.capacity;
    if (limit != 0 && unassigned > limit + capacity) fail("more tasks wait than the limit says");
}

// A task was settled, and then once more.
void QueueChecker::explain(const Task& task, const Record& record, const Hand& later, Time now) {
    const Time settledAt = [&] {
        Time at = record.wasLettered ? record.letter : never;
        for (const Hand& hand : record.hands) {
            if (&hand != &later) at = std::min(at, hand.completed);
        }
        return at;
    }();
    const Time begin = record.hands.front().at;
    if (terms_.completeTime != 0) {
        const Time slack = millisecond;
        // The time runs from the hand-out on, which may have been lost several times before it came.
        if (terms_.lossy && now - record.acceptedAt >= terms_.completeTime) {
            ++totals_.twiceExpired;
            return;
        }
        for (const Hand& hand : record.hands) {
            if (std::min(hand.completed, now) - hand.at >= terms_.completeTime - terms_.completeTime / 100 - slack ||
                std::min(later.at, now) - hand.at >= terms_.completeTime * 4 / 5) {
                ++totals_.twiceExpired;
                return;
            }
        }
    }
    // Who knew of it ended before it could have told the others.
    const Time telling = terms_.lossy ? terms_.activation + 8 * second : second;
    const auto knewAndEnded = std::ranges::any_of(record.hands, [&](const Hand& hand) {
        return hand.completed != never && lives_[hand.life].until <= std::max(later.at, settledAt + telling);
    });
    const auto someoneCrashed = std::ranges::any_of(lives_, [&](const Life& life) {
        return life.crashed && life.until >= settledAt - millisecond && life.until <= settledAt + telling;
    });
    // Or ended before there was a scheduler to tell.
    const auto hadNobodyToTell = std::ranges::any_of(record.hands, [&](const Hand& hand) {
        const Time until = lives_[hand.life].until;
        if (hand.completed == never || until > later.at) return false;
        return std::ranges::none_of(lives_, [&](const Life& life) {
            return std::ranges::any_of(life.reigns, [&](const auto& reign) {
                return std::min(reign.second, until) - std::max(reign.first, hand.completed) >= telling;
            });
        });
    });
    // Or nobody is left of those who were there.
    const auto nobodyIsLeft = std::ranges::none_of(
        lives_, [&](const Life& life) { return life.from <= settledAt + telling && life.until > later.at; });
    if ((someoneCrashed && (knewAndEnded || record.wasLettered)) || hadNobodyToTell || nobodyIsLeft) {
        ++totals_.twiceCrashed;
        return;
    }
    // Or while the sender could not be told.
    const auto couldNotTell = std::ranges::any_of(record.hands, [&](const Hand& hand) {
        const Time until = lives_[hand.life].until;
        if (hand.completed == never || until > later.at) return false;
        return std::ranges::any_of(cuts_,
                                   [&](const auto& cut) { return cut.first <= until && cut.second >= hand.completed; });
    });
    if (couldNotTell || silent(begin - terms_.activation, now)) {
        ++totals_.twiceCutOff;
        return;
    }
    ++totals_.twiceUnexplained;
    std::string what = nameOf(task) + " is settled twice, and nothing explains it:";
    const auto inMs = [](Time time) {
        return time == never ? std::string("never") : std::to_string(time / millisecond);
    };
    for (const Hand& hand : record.hands) {
        const Life& life = lives_[hand.life];
        what += " member " + std::to_string(life.member) + " (" + inMs(life.from) + " to " + inMs(life.until) +
                ") has it from " + inMs(hand.at) + ", completed " + inMs(hand.completed) + ", gave it back " +
                inMs(hand.back) + ';';
    }
    for (const Life& life : lives_) {
        for (const auto& [from, until] : life.reigns)
            what += " member " + std::to_string(life.member) + " scheduler " + inMs(from) + " to " + inMs(until) + ';';
    }
    fail(what + (record.wasLettered ? " dead letter " + inMs(record.letter) : std::string()) + " now " + inMs(now));
}

// ---- the end

// Two that hear each other all the time are not both the scheduler for long.
void QueueChecker::checkReigns(Time now) {
    const Time longest = 2 * terms_.activation + 2 * terms_.heartbeat + second;
    for (size_t i = 0; i < lives_.size(); ++i) {
        for (size_t k = i + 1; k < lives_.size(); ++k) {
            if (lives_[i].member == lives_[k].member) continue;
            for (const auto& [from, until] : lives_[i].reigns) {
                for (const auto& [otherFrom, otherUntil] : lives_[k].reigns) {
                    Time begin = std::max(from, otherFrom);
                    const Time end = std::min({until, otherUntil, now});
                    if (end - begin <= longest) continue;
                    for (const Silence& silence : silences_) {
                        const bool theirs = (silence.from == lives_[i].member && silence.to == lives_[k].member) ||
                                            (silence.from == lives_[k].member && silence.to == lives_[i].member);
                        if (theirs && silence.begin < end && silence.end > begin) begin = std::max(begin, silence.end);
                    }
                    if (end - begin > longest) fail("two that hear each other are both the scheduler");
                }
            }
        }
    }
}

void QueueChecker::finish(const std::set<uint32_t>& standing, Time now) {
    for (uint32_t from = 0; from < terms_.members; ++from) {
        for (uint32_t to = 0; to < terms_.members; ++to) {
            if (from != to && current_[from] != 0 && current_[to] != 0) closeSilence(from, to, now);
        }
    }
    checkReigns(now);
    uint32_t schedulers = 0;
    for (const uint32_t life : standing) {
        const auto& reigns = lives_[life].reigns;
        schedulers += !reigns.empty() && reigns.back().second == never;
    }
    if (!standing.empty() && schedulers != 1) fail(std::to_string(schedulers) + " schedulers in the end, not one");
    for (const auto& [task, record] : tasks_) {
        if (!record.accepted || record.settled) continue;
        ++totals_.lost;
        fail(nameOf(task) + " was accepted and is never completed");
    }
}

}  // namespace quorl::sim

// What a distributed queue promises, and whether it was kept: told from outside what senders send, what programs are given and
// complete, who hears whom and who acts as the scheduler. It knows nothing of frames, attachments or what a scheduler keeps.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "sim/plan.h"

namespace quorl::sim {

struct QueueTotals {
    uint64_t accepted = 0;
    uint64_t completed = 0;  // tasks
    uint64_t deadLetters = 0;
    uint64_t lost = 0;
    uint64_t givenAgain = 0;  // hand-outs of a task beyond its first
    // Completed twice, by what explains it.
    uint64_t twiceExpired = 0;
    uint64_t twiceCrashed = 0;
    uint64_t twiceCutOff = 0;
    uint64_t twiceUnexplained = 0;
    uint64_t reigns = 0;
    uint64_t plain = 0;
};

class QueueChecker {
  public:
    struct Terms {
        uint32_t members = 1;
        Time heartbeat = second;
        Time activation = 3 * second;
        Time completeTime = 0;
        uint32_t reassignments = 0;
        bool lossy = false;
    };
    explicit QueueChecker(const Terms& terms);

    // Named by who sent it, on which subject, and as which of all that it sent.
    struct Task {
        uint32_t sender = 0;
        uint32_t subject = 0;
        uint32_t kind = 0;  // see Poison
        uint32_t count = 0;
        auto operator<=>(const Task&) const = default;
    };

    // Some cannot hear some others, senders among them, in that time.
    void cutOff(Time from, Time until) { cuts_.emplace_back(from, until); }

    // ---- senders
    void accepted(const Task& task, Time now);
    void confirmed(const Task& task, Time now);
    // ---- members; a life is from a start to its end
    uint32_t starts(uint32_t member, Time now);
    // crashed: it did not go in order.
    void ends(uint32_t life, bool crashed, Time now);
    void hears(uint32_t life, uint32_t from, Time now);
    void capacity(uint32_t life, uint32_t tasks);
    void reigns(uint32_t life, bool begins, Time now);
    void given(uint32_t life, const Task& task, bool kept, Time now);
    void completes(uint32_t life, const Task& task, bool kept, Time now);
    void givesBack(uint32_t life, const Task& task, Time now);
    void deadLetter(const Task& task, uint32_t reassigned, bool kept, Time now);
    void waiting(uint32_t life, uint64_t unassigned, uint64_t limit);
    void newer(const std::string& what) { fail(what); }

    bool satisfied() const noexcept { return owed_ == 0; }
    // What is left in the end; standing: lives that are to have exactly one scheduler among them.
    void finish(const std::set<uint32_t>& standing, Time now);
    const std::string& broken() const noexcept { return broken_; }
    const QueueTotals& totals() const noexcept { return totals_; }

  private:
    struct Hand {
        uint32_t life = 0;
        Time at = 0;
        Time completed = never;
        Time back = never;
    };
    struct Record {
        bool accepted = false;
        Time acceptedAt = 0;
        bool settled = false;
        Time letter = never;
        bool wasLettered = false;
        std::vector<Hand> hands;
    };
    struct Life {
        uint32_t member = 0;
        Time from = 0;
        Time until = never;
        bool crashed = false;
        uint32_t capacity = 0;
        uint32_t holds = 0;
        std::vector<std::pair<Time, Time>> reigns;
    };
    struct Silence {
        uint32_t from = 0;
        uint32_t to = 0;  // members
        Time begin = 0;
        Time end = 0;
    };

    void explain(const Task& task, const Record& record, const Hand& later, Time now);
    bool silent(Time from, Time until) const;
    void settle(Record& record);
    void closeSilence(uint32_t from, uint32_t to, Time now);
    void checkReigns(Time now);
    Hand* handOf(Record& record, uint32_t life);
    Time leastSilence() const noexcept { return terms_.activation * 2 / 5; }
    void fail(const std::string& what);
    static std::string nameOf(const Task& task);

    Terms terms_;
    std::map<Task, Record> tasks_;
    std::vector<Life> lives_;
    std::vector<uint32_t> current_;  // life of each member, plus one
    std::vector<Time> heard_;        // by from and to
    std::vector<Silence> silences_;
    std::vector<std::pair<Time, Time>> cuts_;
    uint64_t owed_ = 0;
    std::string broken_;
    QueueTotals totals_;
};

}  // namespace quorl::sim

// The scheduler of a queue, for one time of being it: the certified listener towards the senders, the tasks that are on their way,
// and the workers that do them.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "certified/protocol/machine.h"
#include "dqueue/protocol/shared.h"

namespace quorl::dqueue {

struct WorkerEntry;

// A task from its delivery by the certified machine, or from a worker's word that it holds it, until it is settled.
struct ScheduledTask {
    enum class State : uint8_t {
        none,      // not in use
        waiting,   // in the backlog
        parked,    // no worker with room takes it
        assigned,  // a worker holds it
        awaited,   // its worker is gone, and its message has not come yet
    };
    State state = State::none;
    bool kept = false;  // by its sender
    uint32_t reassigned = 0;
    uint32_t size = 0;
    Stream* stream = nullptr;
    uint64_t number = 0;
    uint64_t serial = 0;         // of its place, so that what remembers it knows whether it is still it
    companion::Message message;  // none: only a worker has it
    WorkerEntry* worker = nullptr;
    uint64_t attachment = 0;  // of the worker, in which it was assigned
    uint32_t handOut = 0;     // by which; 0: the worker had it before
    uint64_t listed = 0;      // the inventory that named it last
    uint64_t avoid = 0;       // member that it was taken from
    int64_t assignedAt = 0;
    ScheduledTask* before = nullptr;  // in the backlog, or among the worker's
    ScheduledTask* behind = nullptr;
    ScheduledTask* dueBefore = nullptr;  // in the order of their assignment
    ScheduledTask* dueBehind = nullptr;
    std::unique_ptr<std::vector<Attempt>> history;
};

// Tasks that are linked by two of their members.
template <ScheduledTask* ScheduledTask::*Before, ScheduledTask* ScheduledTask::*Behind>
class TaskList {
  public:
    bool empty() const noexcept { return first_ == nullptr; }
    ScheduledTask* first() const noexcept { return first_; }
    void append(ScheduledTask& task) noexcept {
        task.*Before = last_;
        task.*Behind = nullptr;
        (last_ != nullptr ? last_->*Behind : first_) = &task;
        last_ = &task;
    }
    void prepend(ScheduledTask& task) noexcept {
        task.*Before = nullptr;
        task.*Behind = first_;
        (first_ != nullptr ? first_->*Before : last_) = &task;
        first_ = &task;
    }
    void remove(ScheduledTask& task) noexcept {
        (task.*Before != nullptr ? (task.*Before)->*Behind : first_) = task.*Behind;
        (task.*Behind != nullptr ? (task.*Behind)->*Before : last_) = task.*Before;
        task.*Before = task.*Behind = nullptr;
    }

  private:
    ScheduledTask* first_ = nullptr;
    ScheduledTask* last_ = nullptr;
};
using PlaceList = TaskList<&ScheduledTask::before, &ScheduledTask::behind>;
using DueList = TaskList<&ScheduledTask::dueBefore, &ScheduledTask::dueBehind>;

// What the scheduler knows of a worker.
struct WorkerEntry {
    struct HandedOut {
        uint64_t sequence = 0;
        ScheduledTask* task = nullptr;
        uint64_t serial = 0;
        int64_t at = 0;
    };
    struct Overdue {
        Stream* stream = nullptr;
        uint64_t number = 0;
        bool occupies = false;  // it takes the room of a task
    };
    uint64_t member = 0;
    std::string label;
    std::string address;
    uint64_t attachment = 0;
    bool offered = false;  // its offer of this attachment is complete
    bool inventoried = false;
    bool joined = false;  // was ever attached, and told
    bool leaving = false;
    uint64_t offer = 0;  // the version that holds
    uint32_t weight = 1;
    uint32_t tasks = 0;
    std::vector<std::string> patterns;
    bool attached() const noexcept { return offered && inventoried; }
    bool hasRoom() const noexcept { return attached() && !leaving && uint64_t{held} + occupied < tasks; }
    uint32_t room() const noexcept { return tasks - held - occupied; }

    // Parts that have come of the offer and of the inventory that are under way.
    uint64_t offerComing = 0;
    std::vector<bool> offerParts;
    std::vector<std::pair<uint8_t, std::string>> offerPatterns;
    uint64_t inventoryComing = 0;
    std::vector<bool> inventoryParts;

    PlaceList list;
    uint32_t held = 0;
    uint32_t occupied = 0;         // by tasks that it holds and that count as another's, or as done
    double time = 0;               // tasks so far, divided by the weight
    std::vector<Overdue> overdue;  // tasks that were taken from it, and that its program may still be doing
    uint64_t handedOut = 0;

    uint64_t sequence = 0;
    std::deque<HandedOut> unacknowledged;
    int64_t resendAt = INT64_MAX;
    Pause resendPause{250 * milliseconds, 5 * seconds};
};

class Scheduler {
  public:
    Scheduler(Shared& shared, const Term& term);
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;
    ~Scheduler();

    void start();
    // A later term was heard of: this one's is to be later still, and everybody attaches anew.
    void renew(const Term& term);
    // It is the scheduler no more: what is known goes out.
    void end() noexcept;

    const Term& term() const noexcept { return term_; }
    // Whether nobody stays who would be the next, and others hold tasks still, or senders are to be told yet what was done before.
    bool isAwaited() const noexcept;

    // ---- what comes in
    void onOffer(const Frame& frame);
    void onReport(const Frame& frame);
    // From an ear.
    void onCertified(companion::Message message, uint32_t ear);
    // The election has heard of somebody, or has lost somebody.
    void membersChanged();

    void limitsChanged();
    // Takes in what the certified machine has delivered, gives tasks out, and sees to the limits.
    void pump();

    int64_t due() const noexcept;
    void tick();

    void count(Counts& counts) const noexcept;
    std::vector<WorkerReview> workers() const;

  private:
    static constexpr size_t patternsMost = 256;
    using State = ScheduledTask::State;
    struct Pattern {
        std::string text;
        uint32_t ear = 0;
    };

    // ---- the certified machine
    void addressEar();
    void makeCertified();
    void forgetSources();
    template <class F>
    void certifiedStep(F&& call);
    void tickCertified();
    void updatePatterns(const std::vector<std::string>& cancelled);
    uint32_t listenerFor(std::string_view subject) const noexcept;
    void onDelivery(const certified::Delivery& delivery);
    void skipTo(Stream& stream, uint64_t number);
    void confirm(Stream& stream, uint64_t number, uint32_t listener);

    // ---- tasks
    ScheduledTask& makeTask(Stream& stream, uint64_t number);
    void dropTask(ScheduledTask& task);
    // Takes it out of wherever it is.
    void unplace(ScheduledTask& task) noexcept;
    void enqueue(ScheduledTask& task, bool first);
    void park(ScheduledTask& task);
    void unpark();
    void dropUnwanted();
    void settle(Stream& stream, uint64_t number);
    void markDirty(Stream& stream);
    // Completed by that worker, or by nobody that is known.
    void completed(Stream& stream, uint64_t number, WorkerEntry* by);
    void reassign(ScheduledTask& task, const char* reason, bool counts);
    void deadLetter(ScheduledTask& task);
    void noteCount(ScheduledTask& task) noexcept;

    // ---- giving out
    void assign();
    WorkerEntry* best(const ScheduledTask& task, bool* anyRoom) noexcept;
    bool takes(const WorkerEntry& worker, std::string_view subject) const noexcept;
    void handOut(ScheduledTask& task, WorkerEntry& worker);
    void sendTask(const ScheduledTask& task, const WorkerEntry& worker, uint64_t sequence);
    void updateRoom();

    // ---- workers
    WorkerEntry* find(uint64_t member) const noexcept;
    WorkerEntry* meet(const Frame& frame);
    bool isMember(uint64_t member) const noexcept;
    void welcome(const WorkerEntry& worker, uint64_t report);
    void sendAnew(uint64_t member, uint64_t attachment);
    void onInventory(const Frame& frame, WorkerEntry& worker);
    void attachedNow(WorkerEntry& worker);
    void acknowledge(const Frame& frame, WorkerEntry& worker);
    void resend(WorkerEntry& worker);
    void lose(WorkerEntry& worker, bool left);
    void clearOverdue(WorkerEntry& worker) noexcept;
    void addOverdue(WorkerEntry& worker, Stream& stream, uint64_t number, bool occupies);
    static bool takeOverdue(WorkerEntry& worker, Stream& stream, uint64_t number) noexcept;
    void heldBy(Stream& stream, uint64_t number, uint32_t reassigned, WorkerEntry& worker, uint64_t inventory);
    void place(ScheduledTask& task, WorkerEntry& worker) noexcept;
    void workersChanged();
    void setResend(WorkerEntry& worker) noexcept;
    void lookWhetherSettled();

    // ---- telling
    void beat(bool ends);
    void flush();
    void tellTask(Event::Kind kind, const ScheduledTask& task, const WorkerEntry* worker, const char* reason);

    Shared& shared_;
    Term term_;
    // What no memory was found for, and the next step does first.
    enum class Wanting : uint8_t { nothing, patterns, session };
    Wanting wanting_ = Wanting::nothing;
    std::unique_ptr<certified::Machine> certified_;
    certified::Output certifiedOut_;
    std::deque<certified::Delivery> deliveries_;
    uint64_t plainIncarnation_ = 0;
    uint64_t lastPlain_ = 0;
    uint32_t addressEar_ = 0;
    uint32_t allEar_ = 0;
    std::vector<Pattern> patterns_;

    std::deque<ScheduledTask> places_;
    std::vector<ScheduledTask*> free_;
    uint64_t lastSerial_ = 0;
    PlaceList backlog_;
    DueList due_;
    std::vector<Stream*> parkedStreams_;
    uint64_t unassigned_ = 0;
    uint64_t unassignedBytes_ = 0;
    uint64_t taskBytes_ = 0;
    uint64_t assigned_ = 0;
    bool full_ = false;
    bool limited_ = false;  // the certified machine was told a limit

    std::vector<std::unique_ptr<WorkerEntry>> workers_;
    std::unordered_map<uint64_t, WorkerEntry*> workersByMember_;
    bool uniform_ = true;  // all attached workers have the same patterns
    double time_ = 0;      // of the worker that got a task last
    int64_t resendAt_ = INT64_MAX;

    bool settling_ = true;  // workers are still to say what they hold
    int64_t settlingUntil_ = 0;
    bool unconfirmed_ = false;  // something was done that its sender has not registered this session for
    int64_t beatAt_ = 0;
    std::vector<Stream*> dirty_;
    std::vector<std::pair<Stream*, uint64_t>> counting_;  // whose counts are to be told
    int64_t flushAt_ = INT64_MAX;
    GroupLists taken_;  // by this member's own worker, in this step
    bool anyTaken_ = false;
    bool crowdedTold_ = false;
};

}  // namespace quorl::dqueue

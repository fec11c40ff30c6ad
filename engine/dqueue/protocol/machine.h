// One member of a distributed queue, without input and output: calls, messages and the time go in; what to listen to, what to
// send, which tasks the program gets, and what to tell comes out. Whoever drives it serializes the calls.
//
//     Machine machine(settings, chance);
//     listen to machine.address() and machine.groupSubject(); what comes there is received with ear 0
//     machine.start(now, out);
//     ... and then, after each step, in this order:
//     for (const Ear& ear : out.ears)                     // what this member hears while it is the scheduler
//         begin or end listening to ear.subject; what comes there is received with ear.number
//     for (const DeadLetter& letter : out.deadLetters)    // add letter.history as fields, and send it to letter.subject
//     for (auto& message : out.messages) transport.send(message);      // subject and attributes are set
//     for (auto& task : out.tasks)                        // to the listener task.listener; see Task
//     for (auto& event : out.events), out.certified ...   // advisories
//     ... and machine.tick(now, out) when machine.due() has come
//
// Every member is a worker; one of them, which the members elect, is the scheduler too. While it is, it is the certified listener
// of the queue's name towards the senders: it has a certified machine inside, without a ledger, whose subjects are among out.ears.
// The document is docs/internals/distributed-queue.md.
//
// Functions that may throw throw std::bad_alloc; what they were doing is then as if a frame had been lost. Statuses come without
// a detail text.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "certified/protocol/machine.h"
#include "companion/message.h"
#include "ftolerance/protocol/frame.h"

namespace quorl::dqueue {

using certified::Now;

// Weights and tasks beyond these, and weights of 0, are refused. Tasks may be 0: a worker that is to get no more for now.
inline constexpr uint32_t workerWeightMost = 1'000'000;
inline constexpr uint32_t workerTasksMost = 1'000'000;
inline constexpr uint32_t reassignmentsMost = 1'000'000;
// Members of one queue.
inline constexpr size_t membersMost = 256;

struct Settings {
    std::string queue;             // its name, a certified name
    uint32_t workerWeight = 1;     // its share of the tasks, and who goes first
    uint32_t workerTasks = 1;      // that it holds at once
    uint16_t schedulerWeight = 1;  // not 0
    // Of the election: heartbeat and activation; preparation is 0. In order, see ftolerance::areInOrder.
    ftolerance::Intervals intervals;
    std::string label;  // for people: host and process

    // Of the scheduler; those of whoever is the scheduler hold.
    int64_t completeTime = 0;      // nanoseconds within which a task must be completed; 0: no limit
    uint64_t backlogMessages = 0;  // tasks that wait for a worker; 0: no limit
    uint64_t backlogBytes = 0;     // of their images; 0: no limit
    uint32_t reassignments = 10;   // of one task, before it becomes a dead letter; 0: no limit
    uint32_t perStream = 10'000;   // tasks of one sender and subject that are with the queue at once
};

// Drawn by the driver, of a source that nobody can guess.
struct Chance {
    uint64_t member = 0;  // not 0
    std::array<uint64_t, 2> key{};
};

// Where to listen, beside address() and groupSubject().
struct Ear {
    uint32_t number = 0;  // of receive; never used twice
    std::string subject;  // a pattern; empty: listening ends
};

// A task for the program. It is the program's until complete or giveBack; until then it counts against workerTasks.
struct Task {
    uint32_t listener = 0;  // one alone gets it: the first that was created of those whose pattern matches
    // Among the tasks that this member holds; not 0. A plain message is given to the program with a field "dqsn" of it.
    uint32_t number = 0;
    uint32_t reassigned = 0;     // how often it was taken from a worker before
    bool certified = false;      // false: a plain message, which no sender keeps
    companion::Message message;  // as it was sent: its subjects, and the certified attributes if it has any
};

struct Attempt {
    uint64_t member = 0;
    std::string label;
    int64_t at = 0;           // wall clock, when it was taken from that worker
    const char* reason = "";  // static text
};
struct DeadLetter {
    std::string subject;         // _QUORL.DEADLETTER.<queue>
    companion::Message message;  // as it was sent
    uint32_t reassigned = 0;
    std::vector<Attempt> history;  // the newest ones, the oldest first
};

struct Event {
    enum class Kind : uint8_t {
        // Told by every member.
        schedulerChanged,  // member, label: the scheduler now; member 0: none is known
        disagreement,      // member, label: its intervals or limits are others; reason says which
        newerMember,       // a frame of a version that this one does not know; told once
        crowded,           // there is no room for one member more; number: how many are known
        // Told by the scheduler.
        workerJoined,    // member, label, number: its tasks
        workerLost,      // member, label, number: tasks that it held, which go to others
        workerLeft,      // member, label: in order
        taskReassigned,  // member, label: from whom; sender, subject, number; count: how often so far; reason
        backlogFull,     // number: tasks that wait; bytes. What comes now stays with its senders
        backlogCleared,  // the same
        deadLetter,      // sender, subject, number; count: reassignments
        completedTwice,  // member, label: by whom, the second time; sender, subject, number
    };
    static constexpr size_t kinds = 12;
    Kind kind = Kind::schedulerChanged;
    uint64_t member = 0;
    std::string label;
    std::string sender;  // certified name; empty: a plain message
    std::string subject;
    uint64_t number = 0;
    uint64_t count = 0;
    uint64_t bytes = 0;
    const char* reason = "";  // static text
};

// What a step has for the program.
struct News {
    std::vector<Task> tasks;  // in order
    std::vector<Event> events;
    std::vector<certified::Event> certified;  // of the certified machine: listening, skipped, stopped, ...
    bool left = false;                        // after leave: nothing is held any more
};

struct Output : News {
    using Rest = News;

    std::vector<Ear> ears;
    std::vector<DeadLetter> deadLetters;
    std::vector<companion::Message> messages;

    void clear() noexcept {
        ears.clear();
        deadLetters.clear();
        messages.clear();
        tasks.clear();
        events.clear();
        certified.clear();
        left = false;
    }
    Rest takeRest() noexcept { return std::exchange(static_cast<News&>(*this), {}); }
};

struct Counts {
    bool scheduler = false;        // whether this member is it
    uint64_t schedulerMember = 0;  // 0: none is known
    uint64_t members = 0;          // this one too
    uint64_t unassigned = 0;       // tasks that wait; of a member that is not the scheduler, as it was told last
    uint64_t unassignedBytes = 0;
    uint64_t held = 0;        // by this worker
    uint64_t unreported = 0;  // completed here, and the scheduler has not said that it knows
    uint64_t assigned = 0;    // of the scheduler: tasks that workers hold
    uint64_t memory = 0;      // bytes, roughly, of everything that grows with tasks
    // Since it was made.
    uint64_t handedOut = 0;
    uint64_t completed = 0;
    uint64_t completedTwice = 0;
    uint64_t settled = 0;  // of the scheduler: tasks that were completed, or given up
    uint64_t reassigned = 0;
    uint64_t deadLetters = 0;
    uint64_t dropped = 0;   // plain messages that came while the backlog was full, or whose worker is gone
    uint64_t reigns = 0;    // how often it became the scheduler
    uint64_t sessions = 0;  // of its certified machines
    uint64_t foreign = 0;   // frames that are none, or of nobody who may send them, or very late
};

// As the scheduler knows them.
struct WorkerReview {
    uint64_t member = 0;
    std::string_view label;
    uint32_t weight = 0;
    uint32_t tasks = 0;
    uint32_t held = 0;
    uint64_t handedOut = 0;
    bool leaving = false;
};

class Machine {
  public:
    // The settings are as check wants them.
    Machine(const Settings& settings, const Chance& chance);
    Machine(Machine&&) noexcept;
    Machine& operator=(Machine&&) noexcept;
    ~Machine();

    uint64_t id() const noexcept;
    // What comes to this member alone, and to all members.
    const std::string& address() const noexcept;
    const std::string& groupSubject() const noexcept;

    void start(Now now, Output& out);
    int64_t due() const noexcept;  // monotonic clock; INT64_MAX: never
    void tick(Now now, Output& out);
    // ear: 0 for address() and groupSubject(), else that of an Ear.
    void receive(companion::Message message, uint32_t ear, Now now, Output& out);

    // ---- the worker
    // number is the driver's choice, not 0 and not in use. Nothing is to be listened to for it: tasks come to the address.
    // QUORL_INVALID_SUBJECT, QUORL_INVALID_ARG, QUORL_QUEUE_LIMIT (64 patterns).
    quorl_status createListener(uint32_t number, std::string_view pattern, Now now, Output& out);
    // Tasks that it was given and has not completed go back to the scheduler. cancel: when nobody in the queue listens to the
    // pattern any more, the senders forget the queue for it; without it they keep on keeping.
    void destroyListener(uint32_t number, bool cancel, Now now, Output& out);
    // The program has done with a task, certified or plain. QUORL_NOT_FOUND: this member holds no such task (any more).
    quorl_status complete(uint32_t task, Now now, Output& out);
    // The program could not do it: it goes to another worker, or here again when there is none, and counts as reassigned.
    quorl_status giveBack(uint32_t task, Now now, Output& out);
    // The task whose certified message this is; 0: none that this member holds.
    uint32_t taskOf(const companion::Message& message) const noexcept;

    // ---- while running. QUORL_INVALID_ARG: out of range, and nothing changes.
    quorl_status setWorkerWeight(uint32_t weight, Now now, Output& out);
    quorl_status setWorkerTasks(uint32_t tasks, Now now, Output& out);
    quorl_status setCompleteTime(int64_t completeTime, Now now, Output& out);
    quorl_status setBacklog(uint64_t messages, uint64_t bytes, Now now, Output& out);
    quorl_status setReassignments(uint32_t most, Now now, Output& out);

    // ---- going
    // No more tasks come, and this member will not be the scheduler again. When what it holds is completed, and the scheduler
    // knows, out.left is set in some step, and no call need follow. The driver sets a limit of time and then calls close. Of a
    // member that has gone already out.left is set at once.
    void leave(Now now, Output& out);
    // Goes at once: tasks that it holds go to others, uncounted. No call follows.
    void close(Now now, Output& out);

    Counts counts() const noexcept;
    // Of the scheduler; none otherwise. Views live until the next call.
    std::vector<WorkerReview> workers() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Null, or what is wrong with the settings; static text.
const char* check(const Settings& settings) noexcept;
// Seconds as programs give them. Null, or what is wrong; static text. 0 is no limit.
const char* completeTimeFrom(double seconds, int64_t* completeTime) noexcept;

}  // namespace quorl::dqueue

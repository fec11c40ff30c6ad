// A distributed queue of processes over a real daemon, workers and scheduler killed at random as the power would: every task is
// done, and what is done twice was held by somebody who was killed.
#include <fcntl.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>

#include "dqueue_processes.h"

namespace quorltest {
namespace {

constexpr int subjects = 16;

// What was done, by whom; it is there when they are not.
struct Note {
    int worker;
    int task;
};

class Notes {
  public:
    Notes()
        : path_(directory_.file("done")), file_(open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {
        EXPECT_GE(file_, 0);
    }
    ~Notes() { close(file_); }
    // One write, so that notes of many processes stand behind each other.
    void add(int worker, int task) const {
        const Note note{worker, task};
        if (write(file_, &note, sizeof note) != sizeof note) _exit(9);
    }
    // Those that came since the last time.
    std::vector<Note> take() {
        std::vector<Note> notes;
        const int file = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
        for (Note note; pread(file, &note, sizeof note, taken_) == sizeof note; taken_ += sizeof note)
            notes.push_back(note);
        close(file);
        return notes;
    }

  private:
    Directory directory_;
    std::string path_;
    int file_;
    off_t taken_ = 0;
};

// Lets workers do so many tasks, and then any number. A worker that is killed takes one with it at most.
class Permits {
  public:
    Permits() { EXPECT_EQ(pipe(ends_), 0); }
    ~Permits() {
        free();
        close(ends_[0]);
    }
    Permits(const Permits&) = delete;
    Permits& operator=(const Permits&) = delete;
    void give(int count) const {
        const std::string all(static_cast<size_t>(count), 'p');
        EXPECT_EQ(write(ends_[1], all.data(), all.size()), static_cast<ssize_t>(all.size()));
    }
    // Also in each process that shares it.
    void free() {
        if (ends_[1] >= 0) close(ends_[1]);
        ends_[1] = -1;
    }
    void take() const {
        char permit;
        static_cast<void>(!read(ends_[0], &permit, 1));
    }

  private:
    int ends_[2] = {-1, -1};
};

struct Worker {
    int number;
    const Notes* notes;
    const Permits* permits;
};

void onTask(quorlcmEvent, quorlMsg message, void* closure) {
    const auto& worker = *static_cast<Worker*>(closure);
    worker.permits->take();
    worker.notes->add(worker.number, numberOf(message));
}

quorl_u16 schedulerWeight(int worker) {
    return static_cast<quorl_u16>(1 + worker % 3);
}

struct Crew {
    int workers;
    quorl_u32 tasksAtOnce;
    std::vector<quorl_u32> weights;  // in turn
    quorl_u32 weightOf(int worker) const { return weights[static_cast<size_t>(worker) % weights.size()]; }
};

// It takes tasks when it listens, so that whoever sees that knows that it listens.
int work(const std::string& daemon, const Notes& notes, const Permits& permits, int number, const Crew& crew) {
    quorlTransport transport = 0;
    if (quorl_Open() != QUORL_OK) return 1;
    if (quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK) return 2;
    quorlcmTransport member = 0;
    if (quorlcmTransport_CreateDistributedQueueEx(&member, transport, "crew", crew.weightOf(number), 0,
                                                  schedulerWeight(number), 0.1, 0.35) != QUORL_OK)
        return 3;
    Worker worker{number, &notes, &permits};
    quorlcmEvent listener = 0;
    if (quorlcmEvent_CreateListener(&listener, QUORL_DEFAULT_QUEUE, onTask, member, "work.*", &worker) != QUORL_OK)
        return 4;
    if (quorlcmTransport_SetWorkerTasks(member, crew.tasksAtOnce) != QUORL_OK) return 5;
    while (quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, -1) == QUORL_OK) {
    }
    return 6;
}

// Sends, and stays for as long as what it sent is wanted.
int boss(const std::string& daemon, int tasks, int over) {
    quorlTransport transport = 0;
    if (quorl_Open() != QUORL_OK) return 1;
    if (quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK) return 2;
    quorlcmTransport certified = 0;
    if (quorlcmTransport_Create(&certified, transport, "boss", QUORL_FALSE, nullptr, QUORL_FALSE, nullptr) != QUORL_OK)
        return 3;
    if (quorlcmTransport_AddListener(certified, "crew", "work.>") != QUORL_OK) return 4;
    for (int i = 0; i < tasks; ++i) {
        // So many of one subject are with the queue at once, and no more.
        quorlMsg message = newMessage(("work." + std::to_string(i % subjects)).c_str(), i);
        const quorl_status status = quorlcmTransport_Send(certified, message);
        quorlMsg_Destroy(message);
        if (status != QUORL_OK) return 5;
    }
    char byte;
    static_cast<void>(!read(over, &byte, 1));
    return 0;
}

struct Outcome {
    std::map<int, int> done;  // how often, by task
    std::map<int, long> by;   // tasks, by worker
    int twice = 0;
    int kills = 0;
};

// handsOutFirst: nobody completes a task before all have been given to somebody.
Outcome share(int tasks, const Crew& crew, int kills, bool handsOutFirst = false) {
    NatsServer server;
    Notes notes;
    Permits permits;
    Outcome outcome;
    int over[2];
    EXPECT_EQ(pipe(over), 0);
    int next = 0;
    std::map<int, pid_t> alive;
    const auto start = [&] {
        const int number = next++;
        alive[number] = spawn([&] {
            permits.free();
            return work(server.url(), notes, permits, number, crew);
        });
    };
    while (next < crew.workers) start();
    const auto ready = static_cast<quorl_u32>(crew.workers);
    EXPECT_TRUE(untilStatusOver(server.url(), [&](const QueueStatus& status) { return status.ready == ready; }));
    const pid_t sender = spawn([&] {
        permits.free();
        close(over[1]);
        return boss(server.url(), tasks, over[0]);
    });
    const auto all = static_cast<quorl_u64>(tasks);
    if (handsOutFirst) {
        EXPECT_TRUE(untilStatusOver(server.url(), [&](const QueueStatus& status) { return status.assigned == all; }));
    }
    std::minstd_rand random(4711);
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit + tasks / 500.0);
    int noted = 0;
    const auto look = [&] {
        for (const Note& note : notes.take()) {
            ++noted;
            if (++outcome.done[note.task] > 1) ++outcome.twice;
            ++outcome.by[note.worker];
        }
        std::this_thread::yield();
        return std::chrono::steady_clock::now() < end;
    };
    // Somebody is killed when another part of the tasks is done, and another comes in its place.
    const int part = tasks / (kills + 1);
    for (int given = part; outcome.kills < kills; given += part) {
        permits.give(part);
        while (noted < given - outcome.kills && look()) {
        }
        auto victim = alive.begin();
        // Every second time it is the one that is wanted most as the scheduler, the oldest of these.
        if (outcome.kills % 2 == 1) {
            victim = std::max_element(alive.begin(), alive.end(), [](const auto& one, const auto& other) {
                return schedulerWeight(one.first) < schedulerWeight(other.first);
            });
        } else {
            std::advance(victim, static_cast<long>(random() % alive.size()));
        }
        endNow(victim->second);
        alive.erase(victim);
        ++outcome.kills;
        start();
    }
    permits.free();
    while (outcome.done.size() < static_cast<size_t>(tasks) && look()) {
    }
    close(over[1]);
    endNow(sender);
    for (const auto& [number, process] : alive) endNow(process);
    close(over[0]);
    look();
    std::printf("%d tasks, %d workers, %d killed: %zu done, %d of them more than once\n", tasks, crew.workers,
                outcome.kills, outcome.done.size(), outcome.twice);
    for (const auto& [worker, count] : outcome.by)
        std::printf("  worker %2d, weight %u: %ld\n", worker, crew.weightOf(worker), count);
    return outcome;
}

// The long form: QUORL_DQUEUE_TASKS=100000.
TEST(DistributedQueueProcesses, doEveryTaskWhoeverIsKilled) {
    const int tasks = numberFrom("QUORL_DQUEUE_TASKS", 2000);
    const int kills = tasks >= 20000 ? 40 : 6;
    const Crew crew{tasks >= 20000 ? 8 : 4, 50, {1}};
    const Outcome outcome = share(tasks, crew, kills);
    EXPECT_EQ(outcome.done.size(), static_cast<size_t>(tasks));
    EXPECT_EQ(outcome.kills, kills);
    // What a killed worker held, and had done without anybody knowing.
    EXPECT_LE(outcome.twice, kills * static_cast<int>(crew.tasksAtOnce));
}

TEST(DistributedQueueProcesses, doNothingTwiceWhenNobodyIsKilled) {
    const Outcome outcome = share(1000, {3, 50, {1}}, 0);
    EXPECT_EQ(outcome.done.size(), 1000u);
    EXPECT_EQ(outcome.twice, 0);
}

// All are busy, each with its first task, while the others are given out. The long form is the same.
TEST(DistributedQueueProcesses, shareByTheirWeightsWhenAllAreBusy) {
    const int tasks = numberFrom("QUORL_DQUEUE_TASKS", 4000);
    const Crew crew{8, 1'000'000, {1, 2, 3, 4}};
    const Outcome outcome = share(tasks, crew, 0, true);
    EXPECT_EQ(outcome.done.size(), static_cast<size_t>(tasks));
    EXPECT_EQ(outcome.twice, 0);
    for (int worker = 0; worker < crew.workers; ++worker) {
        const double share = tasks * static_cast<double>(crew.weightOf(worker)) / 20;
        ASSERT_TRUE(outcome.by.contains(worker)) << worker;
        EXPECT_NEAR(static_cast<double>(outcome.by.at(worker)), share, share / 20) << worker;
    }
}

}  // namespace
}  // namespace quorltest

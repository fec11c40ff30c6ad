// Members, monitors and listeners to advisories, with a thread that dispatches for all of them.
#pragma once

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "quorl/quorlft.h"
#include "support.h"

namespace quorltest {

// Intervals in seconds: short, but so long that a busy machine does not take each hiccup for a pause.
inline constexpr double heartbeat = 0.2;
inline constexpr double preparation = 0.5;
inline constexpr double activation = 1.0;

// What callbacks have seen, for a test that waits for it.
class Story {
  public:
    template <class F>
    void change(F&& body) {
        const std::lock_guard lock(mutex_);
        body();
        changed_.notify_all();
    }
    // False: it did not come true within the limit.
    template <class F>
    bool until(F&& holds) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::duration<double>(limit), holds);
    }
    // For what is not to happen: whether it has, after so many seconds.
    template <class F>
    bool within(double seconds, F&& holds) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::duration<double>(seconds), holds);
    }
    template <class F>
    auto look(F&& at) {
        const std::lock_guard lock(mutex_);
        return at();
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
};

class Group : public Open {
  protected:
    struct Answered {
        quorl_u32 member = 0;
        quorl_u32 action = 0;
        quorl_u64 serial = 0;
        quorl_u64 token = 0;
    };
    // Seen from outside; P, A and D are the actions.
    struct Program {
        Group* test = nullptr;
        quorlftMember id = 0;
        std::string actions;
        std::string groupName;
        bool holds = false;    // does not return from a deactivation
        int stopping = 0;      // deactivations that it was told
        int letGo = 0;         // of these, those that it may return from all the same
        quorl_u64 token = 0;   // in the last callback
        quorl_u64 hinted = 0;  // the token in the last hint
        Answered told;         // asked in it
    };
    struct Watcher {
        Group* test = nullptr;
        quorlftMonitor id = 0;
        std::vector<quorl_u32> counts;
    };
    struct Told {
        std::string name;  // INFO.ft.activated and the like
        std::map<std::string, std::string> texts;
        quorl_u64 token = 0;
        quorl_u32 weight = 0;
        quorl_u64 members = 0;
        quorl_f64 seconds = 0;
    };

    void SetUp() override {
        Open::SetUp();
        transport = newTransport();
        queue = newQueue();
        dispatch(queue);
    }
    void TearDown() override {
        story.change([&] { released = true; });
        for (const quorlQueue one : queues) quorlQueue_DestroyEx(one, nullptr, nullptr);
        threads.join();
        Open::TearDown();
    }
    void dispatch(quorlQueue on) {
        queues.push_back(on);
        threads.start([on] {
            while (quorlQueue_TimedDispatch(on, -1) == QUORL_OK) {
            }
        });
    }

    // A question to the library itself.
    bool ask(const std::string& question, Answered* answered = nullptr) {
        quorlMsg request = nullptr;
        quorlMsg reply = nullptr;
        EXPECT_EQ(quorlMsg_Create(&request), QUORL_OK);
        quorlMsg_SetSendSubject(request, ("_QUORL.ASK.fault_tolerance." + question).c_str());
        const bool came = quorlTransport_SendRequest(transport, request, &reply, 0) == QUORL_OK;
        if (came && answered != nullptr) {
            quorlMsg_GetU32Ex(reply, "member", &answered->member, 0);
            quorlMsg_GetU32Ex(reply, "action", &answered->action, 0);
            quorlMsg_GetU64Ex(reply, "serial", &answered->serial, 0);
            quorlMsg_GetU64Ex(reply, "token", &answered->token, 0);
        }
        if (came) quorlMsg_Destroy(reply);
        quorlMsg_Destroy(request);
        return came;
    }

    static void onAction(quorlftMember member, const char* group, quorlftAction action, void* closure) {
        auto& program = *static_cast<Program*>(closure);
        Group& test = *program.test;
        quorl_u64 token = 0;
        quorlftMember_GetToken(member, &token);
        Answered told;
        test.ask("told", &told);
        test.story.change([&] {
            program.token = token;
            if (action == QUORLFT_PREPARE_TO_ACTIVATE) program.hinted = token;
            program.told = told;
            // A hint may come again.
            if (action != QUORLFT_PREPARE_TO_ACTIVATE || !program.actions.ends_with('P'))
                program.actions += "-PAD"[action];
            program.groupName = group;
        });
        if (action != QUORLFT_DEACTIVATE || !program.holds) return;
        int mine = 0;
        test.story.change([&] { mine = ++program.stopping; });
        test.story.until([&] { return test.released || program.letGo >= mine; });
    }
    static void onCount(quorlftMonitor, const char*, quorl_u32 count, void* closure) {
        auto& watcher = *static_cast<Watcher*>(closure);
        watcher.test->story.change([&] { watcher.counts.push_back(count); });
    }
    static void onAdvisory(quorlEvent, quorlMsg message, void* closure) {
        auto& test = *static_cast<Group*>(closure);
        Told told;
        const char* text = nullptr;
        if (quorlMsg_GetSendSubject(message, &text) == QUORL_OK) told.name = std::string(text).substr(7);
        quorlMsg_GetU32Ex(message, "weight", &told.weight, 0);
        for (const char* name : {"group", "peer", "label", "state", "reason"}) {
            if (quorlMsg_GetStringEx(message, name, &text, 0) == QUORL_OK) told.texts[name] = text;
        }
        quorlMsg_GetU64Ex(message, "token", &told.token, 0);
        quorlMsg_GetU64Ex(message, "members", &told.members, 0);
        quorlMsg_GetF64Ex(message, "seconds", &told.seconds, 0);
        test.story.change([&] { test.advisories.push_back(told); });
    }

    // They live until nobody dispatches any more.
    Program& newProgram() { return programs_.emplace_back(); }
    Watcher& newWatcher() { return watchers_.emplace_back(); }

    quorl_status join(Program& program, quorl_u16 weight = 1, quorl_u16 goal = 1, const char* group = "plant.archive",
                      double hints = preparation, double silence = activation) {
        program.test = this;
        return quorlftMember_Create(&program.id, queue, onAction, transport, group, weight, goal, heartbeat, hints,
                                    silence, &program);
    }
    quorl_status watch(Watcher& watcher, const char* group = "plant.archive") {
        watcher.test = this;
        return quorlftMonitor_Create(&watcher.id, queue, onCount, transport, group, activation, &watcher);
    }
    void listenToAdvisories() { listen(queue, transport, "_QUORL.*.ft.*", onAdvisory, this); }
    bool until(const Program& program, const std::string& actions) {
        const bool came = story.until([&] { return program.actions.size() >= actions.size(); });
        EXPECT_EQ(story.look([&] { return program.actions; }), actions);
        return came;
    }
    // The first of that name, when it has come.
    Told await(const std::string& name) {
        Told found;
        EXPECT_TRUE(story.until([&] {
            for (const Told& told : advisories) {
                if (told.name != name) continue;
                found = told;
                return true;
            }
            return false;
        })) << name;
        return found;
    }

    Story story;
    bool released = false;  // programs that hold
    std::vector<Told> advisories;
    quorlTransport transport = 0;
    quorlQueue queue = 0;
    std::vector<quorlQueue> queues;
    Threads threads;

  private:
    std::deque<Program> programs_;
    std::deque<Watcher> watchers_;
};

}  // namespace quorltest

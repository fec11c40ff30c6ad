// Every interleaving of a few threads of a few steps, on a machine whose stores come late; for tests.
//
// The machine is x86's total store order (Sewell and others: x86-TSO, 2010): a plain store waits in its thread's buffer
// until the machine writes it, at any later time; a thread reads its own buffered stores; an atomic read-modify-write is
// done with an empty buffer. The barrier that membarrier(2) runs on all threads empties all buffers. A machine with
// release stores and acquire loads that keep their order (arm64) allows less than this one.
//
//     Interleaving model(cells);
//     model.thread({[](Step& s) { s.store(flag, 1); }, [](Step& s) { if (s.load(other) == 0) s.enter(); }});
//     EXPECT_EQ(model.explore(), "");
//
// A step is what happens at once: at most one access to a shared cell.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace quorl {

class Interleaving {
  public:
    struct State {
        std::vector<int> cells;
        struct Thread {
            uint32_t at = 0;  // its next step; behind the last one it is done
            std::vector<int> locals;
            std::deque<std::pair<uint32_t, int>> buffer;  // stores that are not written yet, the oldest first
            int sleepsOn = -1;                            // a cell
        };
        std::vector<Thread> threads;
        std::string broken;
    };

    // What a step may do.
    class Step {
      public:
        Step(State& state, uint32_t thread) noexcept : state_(state), me_(state.threads[thread]), next_(me_.at + 1) {}

        int& local(uint32_t number) { return me_.locals[number]; }
        int load(uint32_t cell) const {
            for (auto store = me_.buffer.rbegin(); store != me_.buffer.rend(); ++store) {
                if (store->first == cell) return store->second;
            }
            return state_.cells[cell];
        }
        void store(uint32_t cell, int value) { me_.buffer.emplace_back(cell, value); }
        // A sequentially consistent store or read-modify-write; returns what was there.
        int exchange(uint32_t cell, int value) {
            write(me_);
            return std::exchange(state_.cells[cell], value);
        }
        int add(uint32_t cell, int value) { return exchange(cell, load(cell) + value); }
        bool compareExchange(uint32_t cell, int expected, int value) {
            write(me_);
            if (state_.cells[cell] != expected) return false;
            state_.cells[cell] = value;
            return true;
        }
        void barrierOnAllThreads() {
            for (auto& thread : state_.threads) write(thread);
        }
        // futex: sleeps if the cell has that value. The kernel compares under its own lock.
        void sleepWhile(uint32_t cell, int value) {
            write(me_);
            if (state_.cells[cell] == value) me_.sleepsOn = static_cast<int>(cell);
        }
        void wakeOne(uint32_t cell) {
            write(me_);
            for (auto& thread : state_.threads) {
                if (thread.sleepsOn != static_cast<int>(cell)) continue;
                thread.sleepsOn = -1;
                return;
            }
        }
        void goTo(uint32_t step) noexcept { next_ = step; }
        void fail(const char* what) { state_.broken = what; }
        uint32_t next() const noexcept { return next_; }

      private:
        void write(State::Thread& thread) {
            for (const auto& [cell, value] : thread.buffer) state_.cells[cell] = value;
            thread.buffer.clear();
        }
        State& state_;
        State::Thread& me_;
        uint32_t next_;
    };
    using Program = std::vector<std::function<void(Step&)>>;

    explicit Interleaving(std::vector<int> cells) { start_.cells = std::move(cells); }

    void thread(Program program, uint32_t locals = 4) {
        programs_.push_back(std::move(program));
        start_.threads.emplace_back();
        start_.threads.back().locals.resize(locals);
    }

    // Looks at every state that can be reached. Empty, or what went wrong in one of them: a step's failure, or that every
    // thread that is not done sleeps.
    std::string explore() {
        seen_.clear();
        std::vector<State> open{start_};
        seen_.insert(key(start_));
        while (!open.empty()) {
            const State state = std::move(open.back());
            open.pop_back();
            bool moved = false;
            bool done = true;
            const auto reach = [&](State&& next) {
                moved = true;
                if (seen_.insert(key(next)).second) open.push_back(std::move(next));
            };
            for (uint32_t i = 0; i < programs_.size(); ++i) {
                const State::Thread& thread = state.threads[i];
                if (!thread.buffer.empty()) {
                    State next = state;
                    const auto [cell, value] = next.threads[i].buffer.front();
                    next.cells[cell] = value;
                    next.threads[i].buffer.pop_front();
                    reach(std::move(next));
                }
                if (thread.at >= programs_[i].size()) continue;
                done = false;
                if (thread.sleepsOn >= 0) continue;
                State next = state;
                Step step(next, i);
                programs_[i][thread.at](step);
                if (!next.broken.empty()) return next.broken;
                next.threads[i].at = step.next();
                reach(std::move(next));
            }
            if (!moved && !done) return "all threads sleep";
        }
        return "";
    }
    size_t states() const noexcept { return seen_.size(); }

  private:
    static std::string key(const State& state) {
        std::string text;
        const auto put = [&](int value) { text.append(reinterpret_cast<const char*>(&value), sizeof value); };
        for (const int cell : state.cells) put(cell);
        for (const auto& thread : state.threads) {
            put(static_cast<int>(thread.at));
            put(thread.sleepsOn);
            for (const int local : thread.locals) put(local);
            put(static_cast<int>(thread.buffer.size()));
            for (const auto& [cell, value] : thread.buffer) {
                put(static_cast<int>(cell));
                put(value);
            }
        }
        return text;
    }

    State start_;
    std::vector<Program> programs_;
    std::unordered_set<std::string> seen_;
};

}  // namespace quorl

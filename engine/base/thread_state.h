// What the engine keeps for each thread that calls it: the objects that it uses just now, and its local slots.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "base/fence.h"
#include "base/record.h"

namespace quorl {

// Fields are of the owning thread alone unless they say otherwise. States are never freed, only passed on to later
// threads, so that the reclaimer may look at any of them at any time.
struct alignas(128) ThreadState {
    static constexpr uint32_t maxPins = 64;
    static constexpr uint32_t slotCount = 256;

    // Odd while the thread is inside a section (see Section). Written by the owner, read by the reclaimer.
    std::atomic<uint64_t> section{0};
    // Set by the reclaimer when it waits for this thread; the owner tells it when a section, or a pin, ends.
    std::atomic<bool> sectionWatched{false};
    std::atomic<bool> pinsWatched{false};
    uint32_t sectionDepth = 0;
    uint32_t pinCount = 0;
    uint32_t callbackDepth = 0;  // callbacks of the user that run on this thread, one inside the other

    // The thread's key for signals: the program's own cell, which this thread alone may read.
    void* key = nullptr;

    // Sleeping in a dispatch: 0 while asleep. Written by whoever wakes, under the lock of the list that the thread is in.
    std::atomic<uint32_t> wake{0};
    // The processor of the thread that woke this one for an event; written before wake.
    std::atomic<int> wakerProcessor{-1};

    // The innermost vector callback that runs on this thread (event/queue.h: RunningBatch).
    const void* runningBatch = nullptr;

    // Waiting for a reply: what became of the request (transport/transport.h).
    std::atomic<uint32_t> reply{0};

    // Messages that this thread sent, and that its callbacks were given, for the statistics. Written by the owner, read by
    // anyone; they go on when the state is passed on.
    struct Traffic {
        std::atomic<uint64_t> messagesOut{0};
        std::atomic<uint64_t> bytesOut{0};
        std::atomic<uint64_t> messagesIn{0};
        std::atomic<uint64_t> bytesIn{0};
        static void add(std::atomic<uint64_t>& count, uint64_t amount) noexcept {
            count.store(count.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
        }
        void sent(uint64_t messages, uint64_t bytes) noexcept {
            add(messagesOut, messages);
            add(bytesOut, bytes);
        }
        void received(uint64_t messages, uint64_t bytes) noexcept {
            add(messagesIn, messages);
            add(bytesIn, bytes);
        }
    } traffic;

    // A cache that the transports keep for this thread, and how to free it.
    void* cache = nullptr;
    void (*freeCache)(void* cache) noexcept = nullptr;

    // The objects that this thread uses beyond a section, as a stack. Written by the owner, read by the reclaimer.
    std::array<std::atomic<Record*>, maxPins> pins{};

    std::array<void*, slotCount> slots{};

    ThreadState* nextState = nullptr;  // of the list of all states; set once
    std::atomic<bool> owned{false};

    static ThreadState* first() noexcept;  // of all states; for the reclaimer and the statistics
};

// The calling thread's state, for code of the engine alone: null before the thread's first call.
// initial-exec, so that reading it is one instruction; a pointer is small enough for any loader.
extern thread_local constinit ThreadState* currentThreadState [[gnu::tls_model("initial-exec")]];

// Null too in a process that was forked while the library was open.
ThreadState* registerThread() noexcept;

// For such a process: its only thread has no state any more, and gets none.
void forgetThread() noexcept;

// The calling thread's state; null when there was no memory for it.
inline ThreadState* threadState() noexcept {
    ThreadState* state = currentThreadState;
    return state != nullptr ? state : registerThread();
}

// Tells the reclaimer that something that it may wait for has ended.
void pokeReclaimer() noexcept;

// A stretch of code without blocking waits and user code, during which no record that it finds is freed.
class [[nodiscard]] Section {
  public:
    explicit Section(ThreadState& state) noexcept : state_(state) {
        if (state_.sectionDepth++ == 0) announce(state_.section, state_.section.load(std::memory_order_relaxed) + 1);
    }
    ~Section() {
        if (--state_.sectionDepth != 0) return;
        announce(state_.section, state_.section.load(std::memory_order_relaxed) + 1);
        if (state_.sectionWatched.load(std::memory_order_seq_cst)) [[unlikely]]
            pokeReclaimer();
    }
    Section(const Section&) = delete;
    Section& operator=(const Section&) = delete;

  private:
    ThreadState& state_;
};

}  // namespace quorl

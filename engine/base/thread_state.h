// What the engine keeps for each thread that calls it: the objects that it uses just now, its local slots, and a room for
// each floor above.
//
//     struct DispatchState { static constexpr size_t threadRoom = 1; ... void leaveThread() noexcept; };
//     DispatchState& mine = thread.part<DispatchState>();
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>

#include "base/fence.h"
#include "base/record.h"

namespace quorl {

// Fields are of the owning thread alone unless they say otherwise. States are never freed, only passed on to later
// threads, so that the reclaimer may look at any of them at any time.
struct alignas(128) ThreadState {
    static constexpr uint32_t maxPins = 64;
    static constexpr uint32_t slotCount = 256;

    // Odd while the thread is under a read guard (see ReadGuard). Written by the owner, read by the reclaimer.
    std::atomic<uint64_t> guard{0};
    // Set by the reclaimer when it waits for this thread; the owner tells it when a read guard, or a pin, ends.
    std::atomic<bool> guardWatched{false};
    std::atomic<bool> pinsWatched{false};
    uint32_t guardDepth = 0;
    uint32_t pinCount = 0;
    uint32_t callbackDepth = 0;  // callbacks of the user that run on this thread, one inside the other

    // A line of memory for one type of a floor above, which says its number. The part is made when its thread first asks for it, and goes on when the
    // state is passed on.
    struct alignas(64) Room {
        static constexpr size_t size = 48;
        alignas(16) std::byte memory[size];
        void (*leave)(void* part) noexcept = nullptr;  // as the thread ends; may be null
        std::atomic<bool> made{false};                 // written by the owner, read by anyone
    };
    std::array<Room, 3> rooms;

    // The owning thread's part.
    template <class Part>
    Part& part() noexcept {
        Room& room = rooms[Part::threadRoom];
        if (!room.made.load(std::memory_order_relaxed)) [[unlikely]]
            make<Part>(room);
        return *std::launder(reinterpret_cast<Part*>(room.memory));
    }
    // Any thread's; null while it has none.
    template <class Part>
    const Part* findPart() const noexcept {
        const Room& room = rooms[Part::threadRoom];
        if (!room.made.load(std::memory_order_acquire)) return nullptr;
        return std::launder(reinterpret_cast<const Part*>(room.memory));
    }

    // The objects that this thread uses beyond a read guard, as a stack. Written by the owner, read by the reclaimer.
    std::array<std::atomic<Record*>, maxPins> pins{};

    std::array<void*, slotCount> slots{};

    ThreadState* nextState = nullptr;  // of the list of all states; set once
    std::atomic<bool> owned{false};

    static ThreadState* first() noexcept;  // of all states; for the reclaimer and the statistics

  private:
    template <class Part>
    [[gnu::noinline]] static void make(Room& room) noexcept {
        static_assert(sizeof(Part) <= Room::size && alignof(Part) <= 16 && std::is_trivially_destructible_v<Part>);
        new (room.memory) Part;
        if constexpr (requires(Part & part) { part.leaveThread(); })
            room.leave = [](void* part) noexcept { std::launder(static_cast<Part*>(part))->leaveThread(); };
        room.made.store(true, std::memory_order_release);
    }
};

// The calling thread's state, for code of the engine alone: null before the thread's first call.
// initial-exec, so that reading it is one instruction; a pointer is small enough for any loader.
extern thread_local constinit ThreadState* currentThreadState [[gnu::tls_model("initial-exec")]];

// Null too in a process that was forked while the library was open.
ThreadState* registerThread() noexcept;

// A state for a thread that is about to be started, which adopts it; or it is given back. Null: no memory.
ThreadState* reserveThreadState() noexcept;
void adoptThreadState(ThreadState& state) noexcept;
void returnThreadState(ThreadState& state) noexcept;

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
class [[nodiscard]] ReadGuard {
  public:
    explicit ReadGuard(ThreadState& state) noexcept : state_(state) {
        if (state_.guardDepth++ == 0) publishHazard(state_.guard, state_.guard.load(std::memory_order_relaxed) + 1);
    }
    ~ReadGuard() {
        if (--state_.guardDepth != 0) return;
        publishHazard(state_.guard, state_.guard.load(std::memory_order_relaxed) + 1);
        if (state_.guardWatched.load(std::memory_order_seq_cst)) [[unlikely]]
            pokeReclaimer();
    }
    ReadGuard(const ReadGuard&) = delete;
    ReadGuard& operator=(const ReadGuard&) = delete;

  private:
    ThreadState& state_;
};

}  // namespace quorl

// Finding out that nobody uses a closed record: read guards must have ended, pins and references must be gone.
#include "base/reclaimer.h"

#include <algorithm>
#include <new>
#include <vector>

#include "base/clock.h"
#include "base/futex.h"
#include "base/mutex.h"
#include "base/registry.h"
#include "base/status.h"
#include "base/thread.h"
#include "base/thread_state.h"
#include "base/trim.h"

namespace quorl {
namespace {

constinit Thread reclaimerThread;  // of opening and closing, which exclude each other
constinit Mutex handOver;
constinit Record* incoming GUARDED_BY(handOver) = nullptr;  // the newest first
constinit bool finishing GUARDED_BY(handOver) = false;  // the library closes: all that is closed is here or on its way
constinit std::atomic<uint32_t> signalCount{0};         // counts reasons to look again; the thread sleeps on it
// Whether a record waits for its references alone, so that whoever gives the last one back must say so.
constinit std::atomic<bool> referencesWatched{false};

// Records that are not done. Of the thread; when it has ended, what references still hold stays for the next one.
constinit Record* pending = nullptr;

struct PinSeen {
    Record* record;
    ThreadState* thread;
};

// Read guards are short: waiting for those that run is waiting for a few microseconds of somebody else's work.
void waitForReaders() noexcept {
    for (ThreadState* thread = ThreadState::first(); thread != nullptr; thread = thread->nextState) {
        const uint64_t seen = thread->guard.load(std::memory_order_seq_cst);
        if (seen % 2 == 0) continue;
        for (;;) {
            const uint32_t count = signalCount.load(std::memory_order_acquire);
            thread->guardWatched.store(true, std::memory_order_seq_cst);
            heavyFence();
            if (thread->guard.load(std::memory_order_seq_cst) != seen) break;
            futexWait(signalCount, count);
        }
        thread->guardWatched.store(false, std::memory_order_relaxed);
    }
}

// All pins of all threads, by record. A closed record that is not among them will not be pinned again: whoever pins after
// the heavy fence that followed the closing sees that it is closed. False: no memory.
bool collectPins(std::vector<PinSeen>& pins) noexcept {
    pins.clear();
    try {
        for (ThreadState* thread = ThreadState::first(); thread != nullptr; thread = thread->nextState) {
            for (auto& cell : thread->pins) {
                if (Record* record = cell.load(std::memory_order_seq_cst)) pins.push_back({record, thread});
            }
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    std::sort(pins.begin(), pins.end(), [](const PinSeen& a, const PinSeen& b) { return a.record < b.record; });
    return true;
}

// Whether the record is pinned. Threads that have it are asked to say when that changes; asked: somebody was not yet.
bool pinned(const std::vector<PinSeen>& pins, const Record* record, bool* asked) noexcept {
    auto at = std::lower_bound(pins.begin(), pins.end(), record,
                               [](const PinSeen& pin, const Record* wanted) { return pin.record < wanted; });
    bool found = false;
    for (; at != pins.end() && at->record == record; ++at) {
        found = true;
        if (!at->thread->pinsWatched.exchange(true, std::memory_order_seq_cst)) *asked = true;
    }
    return found;
}

bool referenced(const Record* record) noexcept {
    return record->references.load(std::memory_order_seq_cst) != 0;
}

// Brings each pending record on as far as possible. closing: references do not hold completions up any more. Returns
// whether another look is worthwhile at once.
bool moveOn(const std::vector<PinSeen>& pins, bool closing) noexcept {
    bool again = false;
    Record* list = pending;
    pending = nullptr;
    for (Record* next; list != nullptr; list = next) {
        Record* record = list;
        next = record->nextRetired;
        if (!record->completionDone && !pinned(pins, record, &again) && (closing || !referenced(record))) {
            record->completionDone = true;
            if (record->completed != nullptr) record->completed(*record);
        }
        if (record->completionDone && record->children.load(std::memory_order_acquire) == 0 && !referenced(record)) {
            registry::release(*record);
            record->destroy(record);
            again = true;  // its parent may be free now
            continue;
        }
        record->nextRetired = pending;
        pending = record;
    }
    return again;
}

bool onlyHeldByReferences() noexcept {
    for (const Record* record = pending; record != nullptr; record = record->nextRetired) {
        if (!record->completionDone) return false;
    }
    return true;
}

void run() {
    ThreadState* state = threadState();
    if (state != nullptr) state->callbackDepth = 1;  // a completion that closed the library would wait for itself
    std::vector<PinSeen> pins;
    for (;;) {
        const uint32_t count = signalCount.load(std::memory_order_acquire);
        Record* fresh;
        bool closing;
        {
            Lock lock(handOver);
            fresh = incoming;
            incoming = nullptr;
            closing = finishing;
        }
        if (fresh != nullptr) {
            heavyFence();
            waitForReaders();
            while (fresh != nullptr) {
                Record* record = fresh;
                fresh = record->nextRetired;
                record->nextRetired = pending;
                pending = record;
            }
        }
        if (pending != nullptr) {
            referencesWatched.store(true, std::memory_order_seq_cst);
            bool collected = collectPins(pins);
            while (collected && moveOn(pins, closing)) {
                heavyFence();
                collected = collectPins(pins);
            }
            if (!collected) {
                futexWait(signalCount, count, monotonicNow() + 10'000'000);
                continue;
            }
        }
        if (pending == nullptr) {
            referencesWatched.store(false, std::memory_order_relaxed);
            for (ThreadState* thread = ThreadState::first(); thread != nullptr; thread = thread->nextState)
                thread->pinsWatched.store(false, std::memory_order_relaxed);
        }
        if (closing && onlyHeldByReferences()) {
            Lock lock(handOver);
            if (incoming == nullptr) break;
            continue;
        }
        futexWait(signalCount, count, trim::look(monotonicNow()));
    }
    if (state != nullptr) state->callbackDepth = 0;
}

}  // namespace

void pokeReclaimer() noexcept {
    signalCount.fetch_add(1, std::memory_order_release);
    futexWake(signalCount);
}

namespace reclaimer {

quorl_status start() noexcept {
    {
        Lock lock(handOver);
        finishing = false;
    }
    return reclaimerThread.start("quorl-reclaim", run);
}

void finish() noexcept {
    {
        Lock lock(handOver);
        finishing = true;
    }
    pokeReclaimer();
    reclaimerThread.join();
}

void take(Record& record) noexcept {
    {
        Lock lock(handOver);
        record.nextRetired = incoming;
        incoming = &record;
    }
    pokeReclaimer();
}

void releaseReference(Record& record) noexcept {
    // Not touched afterwards: with its last reference the record may go at once.
    if (record.references.fetch_sub(1, std::memory_order_seq_cst) != 1) return;
    if (referencesWatched.load(std::memory_order_seq_cst)) pokeReclaimer();
}

}  // namespace reclaimer
}  // namespace quorl

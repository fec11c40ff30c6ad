// Replaces the allocation functions. Apart from the tests, so that the compiler does not look through them.
#include "failing_allocator.h"

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

using quorltest::Whose;

std::atomic<int64_t> countdown{-1};  // negative: none fails
std::atomic<bool> fired{false};
std::atomic<Whose> whose{Whose::callers};
thread_local bool calls = false;  // this thread's allocations fail

bool onLibraryThread() noexcept {
    char name[16] = "";
    return pthread_getname_np(pthread_self(), name, sizeof name) == 0 && std::strncmp(name, "quorl-", 6) == 0;
}

bool mustFail() noexcept {
    if (countdown.load(std::memory_order_relaxed) < 0) return false;
    if (whose.load(std::memory_order_relaxed) == Whose::callers ? !calls : !onLibraryThread()) return false;
    if (countdown.fetch_sub(1, std::memory_order_relaxed) != 0) return false;
    fired.store(true, std::memory_order_relaxed);
    return true;
}

void* take(size_t size, size_t alignment) noexcept {
    if (mustFail()) return nullptr;
    void* memory = nullptr;
    if (alignment <= alignof(std::max_align_t)) return std::malloc(size == 0 ? 1 : size);
    return posix_memalign(&memory, alignment, size) == 0 ? memory : nullptr;
}

void* takeOrThrow(size_t size, size_t alignment) {
    if (void* memory = take(size, alignment)) return memory;
    throw std::bad_alloc();
}

}  // namespace

namespace quorltest {

void failAllocation(Whose fails, int64_t allowed) noexcept {
    whose = fails;
    fired = false;
    calls = true;
    countdown = allowed;
}

void* tryMalloc(size_t size) noexcept {
    return mustFail() ? nullptr : std::malloc(size);
}

void* tryRealloc(void* memory, size_t size) noexcept {
    return mustFail() ? nullptr : std::realloc(memory, size);
}

bool stopFailing() noexcept {
    countdown = -1;
    calls = false;
    return fired;
}

}  // namespace quorltest

// clang-format off
void* operator new(size_t size) { return takeOrThrow(size, 1); }
void* operator new[](size_t size) { return takeOrThrow(size, 1); }
void* operator new(size_t size, std::align_val_t alignment) { return takeOrThrow(size, static_cast<size_t>(alignment)); }
void* operator new[](size_t size, std::align_val_t alignment) { return takeOrThrow(size, static_cast<size_t>(alignment)); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return take(size, 1); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return take(size, 1); }
void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept { return take(size, static_cast<size_t>(alignment)); }
void* operator new[](size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept { return take(size, static_cast<size_t>(alignment)); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, size_t, std::align_val_t) noexcept { std::free(memory); }
// Messages take their memory here.
extern "C" void* aligned_alloc(size_t alignment, size_t size) noexcept { return take(size, alignment < 32 ? 32 : alignment); }
// clang-format on

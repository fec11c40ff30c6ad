// The system call that reads eight bytes and fails instead of ending the process.
#include "base/readable.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

namespace quorl {
namespace {

// Whether the page of that address can be read. The kernel reads the signal mask there before it finds that the first
// argument says nothing to be done with it.
bool pageReadable(uintptr_t address) noexcept {
    constexpr uintptr_t maskSize = 8;
    constexpr long noSuchChange = ~0L;
    if (address < maskSize) return false;  // a null pointer there asks for nothing
    const int before = errno;
    const long result = syscall(SYS_rt_sigprocmask, noSuchChange, address & ~(maskSize - 1), nullptr, maskSize);
    const bool readable = !(result == -1 && errno == EFAULT);
    errno = before;
    return readable;
}

}  // namespace

size_t readableLength(const char* text, size_t limit) noexcept {
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    for (size_t length = 0; length < limit;) {
        const uintptr_t address = reinterpret_cast<uintptr_t>(text) + length;
        if (!pageReadable(address)) return unreadable;
        const size_t piece = std::min<size_t>(limit - length, page - address % page);
        const size_t found = strnlen(text + length, piece);
        length += found;
        if (found < piece) return length;
    }
    return limit;
}

}  // namespace quorl

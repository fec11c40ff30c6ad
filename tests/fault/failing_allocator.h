// The allocators of C++ and of messages for a whole program, of which a test can make the n-th call fail.
#pragma once

#include <cstdint>

namespace quorltest {

enum class Whose { callers, librarys };

// The allocation after the next allowed ones fails, once: among those of this thread, or of all threads of the library.
void failAllocation(Whose whose, int64_t allowed) noexcept;
// From now on none fails. Whether one has failed.
bool stopFailing() noexcept;

}  // namespace quorltest

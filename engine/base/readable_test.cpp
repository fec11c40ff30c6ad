// Texts in memory that can be read, cannot be read, and where one begins behind the other.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "base/readable.h"

namespace quorl {
namespace {

TEST(Readable, MeasuresATextUpToTheLimit) {
    EXPECT_EQ(0u, readableLength("", 10));
    EXPECT_EQ(5u, readableLength("quorl", 10));
    EXPECT_EQ(3u, readableLength("quorl", 3));
    EXPECT_EQ(0u, readableLength("quorl", 0));
}

TEST(Readable, FindsWhereMemoryEnds) {
    const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* memory = mmap(nullptr, 2 * size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(MAP_FAILED, memory);
    auto* page = static_cast<char*>(memory);
    ASSERT_EQ(0, mprotect(page + size, size, PROT_NONE));
    std::memset(page, 'x', size);
    EXPECT_EQ(unreadable, readableLength(page, 2 * size));
    EXPECT_EQ(unreadable, readableLength(page + size - 1, 2));
    EXPECT_EQ(1u, readableLength(page + size - 1, 1));
    EXPECT_EQ(unreadable, readableLength(page + size, 1));
    page[size - 1] = '\0';
    EXPECT_EQ(size - 1, readableLength(page, 2 * size));
    EXPECT_EQ(0u, readableLength(page + size - 1, 2 * size));
    munmap(memory, 2 * size);
}

TEST(Readable, RefusesWhatIsNoAddress) {
    for (const uintptr_t value :
         {uintptr_t{0}, uintptr_t{1}, uintptr_t{4095}, ~uintptr_t{0}, uintptr_t{0x4141414141414141}}) {
        EXPECT_EQ(unreadable, readableLength(reinterpret_cast<const char*>(value), 100))
            << value;  // NOLINT(performance-no-int-to-ptr)
    }
}

}  // namespace
}  // namespace quorl

// The pages behind secrets.
#include "secure/secret.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

namespace quorl::secure {
namespace {

size_t pagesFor(size_t size) noexcept {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return (size + 1 + page - 1) / page * page;
}

}  // namespace

bool Secret::assign(std::string_view text) noexcept {
    const size_t room = pagesFor(text.size());
    void* pages = mmap(nullptr, room, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) return false;
    // Both may be refused, by an old kernel or by a limit of the process. The secret is then kept all the same.
    static_cast<void>(madvise(pages, room, MADV_DONTDUMP));
    static_cast<void>(mlock(pages, room));
    std::memcpy(pages, text.data(), text.size());
    wipe();
    bytes_ = static_cast<char*>(pages);
    size_ = text.size();
    return true;
}

void Secret::wipe() noexcept {
    if (bytes_ == nullptr) return;
    explicit_bzero(bytes_, size_);
    munmap(bytes_, pagesFor(size_));
    bytes_ = nullptr;
    size_ = 0;
}

}  // namespace quorl::secure

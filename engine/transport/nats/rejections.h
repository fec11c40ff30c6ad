// What came in and was no message: counted as it comes, told now and then.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "quorl/quorl.h"

namespace quorl::transport::nats {

class Rejections {
  public:
    struct Notice {
        uint64_t count = 0;            // since the last notice
        const char* reason = nullptr;  // of the first of them
        std::string subject;           // the same; bytes that no subject has are written as "%" and two digits
    };

    // On the connection's thread alone; does not wait. reason: a text that stays. True: the first since the last notice.
    bool note(const char* reason, std::string_view subject) noexcept;

    uint64_t total() const noexcept { return total_.load(std::memory_order_relaxed); }
    bool waiting() const noexcept { return waiting_.load(std::memory_order_acquire); }
    // False: nothing was noted since the last time. Throws std::bad_alloc, and can be called again then.
    bool take(Notice* notice);

  private:
    std::atomic<uint64_t> total_{0};
    std::atomic<bool> waiting_{false};  // the first was noted

    // Written while nothing is waiting, and read while something is.
    const char* reason_ = nullptr;
    std::array<char, QUORL_SUBJECT_MAX> subject_;
    size_t subjectSize_ = 0;

    uint64_t told_ = 0;  // of the connection's thread: the total at the last notice
};

}  // namespace quorl::transport::nats

// Keeping the first, counting the rest.
#include "transport/nats/rejections.h"

#include <algorithm>
#include <cstring>

#include "subject/subject.h"

namespace quorl::transport::nats {

bool Rejections::note(const char* reason, std::string_view subject) noexcept {
    total_.fetch_add(1, std::memory_order_seq_cst);
    if (waiting_.load(std::memory_order_seq_cst)) return false;
    reason_ = reason;
    subjectSize_ = std::min(subject.size(), subject_.size());
    std::memcpy(subject_.data(), subject.data(), subjectSize_);
    waiting_.store(true, std::memory_order_release);
    return true;
}

bool Rejections::take(Notice* notice) {
    if (!waiting_.load(std::memory_order_acquire)) return false;
    const std::string_view subject(subject_.data(), subjectSize_);
    notice->subject.clear();
    if (subject::wellFormed(subject)) {
        notice->subject = subject;
    } else {
        for (const char c : subject) {
            const auto byte = static_cast<unsigned char>(c);
            if (byte > 0x20 && byte < 0x7f) {
                notice->subject += c;
                continue;
            }
            notice->subject += '%';
            notice->subject += "0123456789ABCDEF"[byte >> 4];
            notice->subject += "0123456789ABCDEF"[byte & 15];
        }
    }
    notice->reason = reason_;
    waiting_.store(false, std::memory_order_seq_cst);
    // Who saw that something was waiting is counted here. Who did not may be too, and then has nothing of its own to tell.
    const uint64_t total = total_.load(std::memory_order_seq_cst);
    notice->count = total - told_;
    told_ = total;
    return notice->count != 0;
}

}  // namespace quorl::transport::nats

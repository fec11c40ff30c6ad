// The table.
#include "dqueue/protocol/streams.h"

namespace quorl::dqueue {

Stream* Streams::find(const StreamRef& ref) noexcept {
    if (last_ != nullptr && last_->ref() == ref) return last_;
    const auto found = all_.find(ref);
    if (found == all_.end()) return nullptr;
    return last_ = found->second.get();
}

Stream* Streams::make(const StreamRef& ref, int64_t now) {
    if (Stream* found = find(ref); found != nullptr) {
        found->touchedAt = now;
        return found;
    }
    if (all_.size() >= most) {
        // The one that nothing has happened to for the longest time gives way.
        Stream* oldest = nullptr;
        for (auto& [key, stream] : all_) {
            if (stream->idle() && (oldest == nullptr || stream->touchedAt < oldest->touchedAt)) oldest = stream.get();
        }
        if (oldest == nullptr || oldest->touchedAt == now) return nullptr;
        if (last_ == oldest) last_ = nullptr;
        all_.erase(all_.find(oldest->ref()));
    }
    auto made = std::make_unique<Stream>();
    made->name = ref.name;
    made->incarnation = ref.incarnation;
    made->subjectId = ref.subjectId;
    made->touchedAt = now;
    Stream* stream = made.get();
    all_.emplace(stream->ref(), std::move(made));
    return stream;
}

void Streams::forget(int64_t before) noexcept {
    std::erase_if(all_, [&](const auto& entry) {
        const Stream& stream = *entry.second;
        return stream.idle() && stream.touchedAt < before;
    });
    last_ = nullptr;
}

uint64_t Streams::memory() const noexcept {
    uint64_t bytes = 0;
    for (const auto& [ref, stream] : all_) {
        constexpr uint64_t entry = 48;  // of a map
        bytes += sizeof(Stream) + stream->name.size() + stream->subject.size() +
                 entry * (stream->settled.rangeCount() + stream->held.size() + stream->counted.size() +
                          stream->tasks.size()) +
                 8 * (stream->unreported.capacity() + stream->fresh.capacity() + stream->parked.capacity());
    }
    return bytes;
}

}  // namespace quorl::dqueue

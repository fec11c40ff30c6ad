// Cutting what is too large.
#include "transport/nats/frame_writer.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "transport/nats/assembler.h"

namespace quorl::transport::nats {

// An entry that the outbox has taken has a size of this type, with its reply subject and its headers.
static_assert(largestEntry + uint64_t{entriesHeaderSize} + partHeaderSize <= UINT32_MAX);

bool FrameWriter::write(PayloadSink& sink, const Outbox::Chunk& chunk, const Outbox::Frame& frame) noexcept {
    const char* wireSubject = chunk.subjectOf(frame);
    if (frame.size == 0) {
        const message::ContentRef& content = chunk.contents[frame.content];
        const auto* image = static_cast<const uint8_t*>(content.bytes());
        return writeEntry(sink, wireSubject, content.replySubject(), image, content.byteSize(), true);
    }
    uint8_t* payload = chunk.payloadOf(frame);
    writeOrigin(payload, origin_);
    if (entryAt_ == 0 && frame.size <= sink.limit().bytes()) return sink.publish(wireSubject, payload, frame.size);
    // The daemon takes less than a frame: the messages go one by one.
    if (entryAt_ == 0) entryAt_ = entriesHeaderSize;
    while (entryAt_ < frame.size) {
        Entry entry;
        size_t used;
        if (!readEntry(payload + entryAt_, frame.size - entryAt_, &entry, &used)) break;
        // A frame is small: the session keeps what the socket does not take.
        if (!writeEntry(sink, wireSubject, entry.replySubject, entry.image, entry.size, false)) return false;
        entryAt_ += static_cast<uint32_t>(used);
    }
    entryAt_ = 0;
    return true;
}

// One entry by itself, in parts when it is too large. False: the way is broken, or, when it may stop, not all of it was taken
// yet; partOffset_ says how much.
bool FrameWriter::writeEntry(PayloadSink& sink, const char* wireSubject, std::string_view reply, const uint8_t* image,
                             uint32_t size, bool mayStop) noexcept {
    const size_t headSize = entrySize(reply.size(), 0);
    const size_t whole = entrySize(reply.size(), size);
    if (whole > largestEntry) return false;  // no outbox takes it
    const auto total = static_cast<uint32_t>(whole);
    // Copies bytes of the entry, which lie in pieces.
    const auto copy = [&](uint8_t* to, size_t from, size_t count) {
        for (; count != 0 && from < headSize; ++from, --count)
            *to++ = from == 0 ? static_cast<uint8_t>(reply.size()) : static_cast<uint8_t>(reply[from - 1]);
        if (count != 0) std::memcpy(to, image + (from - headSize), count);
    };
    // Asked once: the daemon may tell of another limit meanwhile, which then refuses what is too large.
    const PayloadLimit most = sink.limit().atMost<partMost>();
    try {
        scratch_.resize(most.bytes());
    } catch (const std::bad_alloc&) {
        failed_ = true;
        return false;
    }
    if (partOffset_ == 0 && total <= most.behind<entriesHeaderSize>()) {
        message::wire::store(scratch_.data(), frameHead(FrameKind::entries));
        writeOrigin(scratch_.data(), origin_);
        copy(scratch_.data() + entriesHeaderSize, 0, total);
        return sink.publish(wireSubject, scratch_.data(), entriesHeaderSize + total);
    }
    Part part{origin_, 0, total, 0, nullptr, 0};
    if (partOffset_ == 0) ++partNumber_;
    part.number = partNumber_;
    while (partOffset_ < total) {
        if (mayStop && !sink.takesMore()) return false;
        part.offset = partOffset_;
        part.size = std::min(most.behind<partHeaderSize>(), total - partOffset_);
        writePartHeader(scratch_.data(), part);
        copy(scratch_.data() + partHeaderSize, part.offset, part.size);
        if (!sink.publish(wireSubject, scratch_.data(), partHeaderSize + part.size)) return false;
        partOffset_ += part.size;
    }
    partOffset_ = 0;
    return true;
}

}  // namespace quorl::transport::nats

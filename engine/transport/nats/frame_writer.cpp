// Cutting what is too large.
#include "transport/nats/frame_writer.h"

#include <algorithm>
#include <array>
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
        return writeEntry(sink, wireSubject, {content.replySubject(), image, content.byteSize(), content.attributes()},
                          true);
    }
    uint8_t* payload = chunk.payloadOf(frame);
    writeOrigin(payload, origin_);
    if (entryAt_ == 0 && frame.size <= sink.limit().bytes()) return sink.publish(wireSubject, payload, frame.size);
    // The daemon takes less than a frame: the messages go one by one.
    const bool trailed = message::wire::load<uint32_t>(payload) == frameHead(FrameKind::attributed);
    if (entryAt_ == 0) entryAt_ = entriesHeaderSize;
    while (entryAt_ < frame.size) {
        Entry entry;
        size_t used;
        if (!readEntry(payload + entryAt_, frame.size - entryAt_, &entry, &used, trailed)) break;
        // A frame is small: the session keeps what the socket does not take.
        if (!writeEntry(sink, wireSubject, entry, false)) return false;
        entryAt_ += static_cast<uint32_t>(used);
    }
    entryAt_ = 0;
    return true;
}

// One entry by itself, in parts when it is too large. False: the way is broken, or, when it may stop, not all of it was taken
// yet; partOffset_ says how much.
bool FrameWriter::writeEntry(PayloadSink& sink, const char* wireSubject, const Entry& entry, bool mayStop) noexcept {
    const size_t whole = entrySize(entry.replySubject.size(), entry.size, entry.attributes.size());
    if (whole > largestEntry) return false;  // no outbox takes it
    const auto total = static_cast<uint32_t>(whole);
    const auto replyLength = static_cast<uint8_t>(entry.replySubject.size());
    std::array<uint8_t, message::trailer::mostBytes> trailer;
    size_t trailerSize = 0;
    if (!entry.attributes.empty()) {
        message::trailer::write(trailer.data(), entry.attributes);
        trailerSize = message::trailer::sizeFor(entry.attributes.size());
    }
    struct Piece {
        const void* bytes;
        size_t size;
    };
    const Piece pieces[] = {{&replyLength, 1},
                            {entry.replySubject.data(), replyLength},
                            {entry.image, entry.size},
                            {trailer.data(), trailerSize}};
    // Copies bytes of the entry.
    const auto copy = [&](uint8_t* to, size_t from, size_t count) {
        for (const Piece& piece : pieces) {
            const size_t taken = from < piece.size ? std::min(count, piece.size - from) : 0;
            if (taken != 0) std::memcpy(to, static_cast<const uint8_t*>(piece.bytes) + from, taken);
            to += taken;
            count -= taken;
            from -= std::min(from, piece.size);
        }
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
        const FrameKind kind = trailerSize == 0 ? FrameKind::entries : FrameKind::attributed;
        message::wire::store(scratch_.data(), frameHead(kind));
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

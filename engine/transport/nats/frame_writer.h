// Puts frames of the outbox into messages that a daemon takes: whole where they fit, one by one or in parts where they do not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "transport/nats/frame.h"
#include "transport/nats/outbox.h"
#include "transport/nats/payload_limit.h"

namespace quorl::transport::nats {

// Where messages of a daemon's protocol go.
class PayloadSink {
  public:
    virtual ~PayloadSink() = default;
    // What the daemon takes now. It may tell otherwise at any time, on another thread.
    virtual PayloadLimit limit() const noexcept = 0;
    // False: the way is broken, or takes no message of that size any more.
    virtual bool publish(std::string_view wireSubject, const uint8_t* payload, size_t size) noexcept = 0;
    // False: what was published has to get out first.
    virtual bool takesMore() noexcept = 0;
};

class FrameWriter {
  public:
    // Bytes of a part: far smaller than most daemons allow, so that a large message holds up others only for a moment.
    static constexpr uint32_t partMost = 256u << 10;

    explicit FrameWriter(uint64_t sender) noexcept : origin_{sender, 1} {}

    // False: not all of it went. It goes on with the same frame where it stopped, unless restart was called.
    bool write(PayloadSink& sink, const Outbox::Chunk& chunk, const Outbox::Frame& frame) noexcept;
    // The session was lost: the frame that went in part goes whole again, in the next one.
    void restart() noexcept {
        partOffset_ = entryAt_ = 0;
        ++origin_.session;
    }
    // There was no memory for a part, ever.
    bool failed() const noexcept { return failed_; }

  private:
    bool writeEntry(PayloadSink& sink, const char* wireSubject, const Entry& entry, bool mayStop) noexcept;

    Origin origin_;
    uint32_t entryAt_ = 0;     // in a frame whose messages go one by one: the next one; 0: none went
    uint32_t partOffset_ = 0;  // of an entry that goes in parts
    uint64_t partNumber_ = 0;  // of that entry
    std::vector<uint8_t> scratch_;
    bool failed_ = false;
};

}  // namespace quorl::transport::nats

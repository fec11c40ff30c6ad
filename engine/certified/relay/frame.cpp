// The codec.
#include "certified/relay/frame.h"

#include "certified/protocol/subject.h"

namespace quorl::certified {

void encode(const RelayFrame& frame, FrameWriter& writer) noexcept {
    writer.byte(companionNumber);
    writer.byte(protocolVersion);
    writer.byte(static_cast<uint8_t>(frame.kind));
    writer.text(frame.name);
    writer.text(frame.inbox);
    writer.fixed(frame.exchange);
    writer.number(frame.number);
    writer.number(frame.last);
    writer.raw(frame.rest.data(), frame.rest.size());
}

bool decode(std::span<const uint8_t> attributes, RelayFrame* frame) noexcept {
    Reader reader(attributes);
    if (reader.byte() != companionNumber || reader.byte() != protocolVersion) return false;
    const uint8_t kind = reader.byte();
    if (kind < static_cast<uint8_t>(RelayKind::connect) || kind > static_cast<uint8_t>(RelayKind::failed)) return false;
    frame->kind = static_cast<RelayKind>(kind);
    frame->name = reader.text();
    frame->inbox = reader.text();
    frame->exchange = reader.fixed();
    frame->number = reader.number();
    frame->last = reader.number();
    if (!reader.ok() || !validName(frame->name)) return false;
    if (!frame->inbox.empty() && !validSubject(frame->inbox)) return false;
    frame->rest = attributes.last(reader.left());
    return true;
}

}  // namespace quorl::certified

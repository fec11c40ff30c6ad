// Frames as messages. A program's message travels as bytes in a field, so that it may be nested as deep as any other.
#include "transport/circuit/frame.h"

#include <array>
#include <new>

#include "message/attributes.h"
#include "message/builder.h"
#include "message/fields.h"
#include "quorl/quorl.h"
#include "subject/subject.h"
#include "transport/local.h"

namespace quorl::transport::circuit {
namespace {

// Field ids. A frame without protocol field, or of another version, is none.
enum : uint16_t {
    idVersion = 1,
    idKind,
    idSession,
    idSequence,
    idAcknowledged,
    idFrom,
    idSend,
    idReply,
    idBytes,
    idTrailer
};
constexpr uint8_t version = 1;

// Looks a field up by its id alone. False: not there, or of another type.
bool find(quorlMsg message, uint16_t id, uint8_t type, quorlMsgField* field) noexcept {
    return message::fieldOf(message, id, field) == QUORL_OK && field->type == type;
}

bool readNumber(quorlMsg message, uint16_t id, uint64_t* number) noexcept {
    quorlMsgField field;
    if (!find(message, id, QUORLMSG_U64, &field)) return false;
    *number = field.data.u64;
    return true;
}

// An empty view when the field is missing.
std::string_view readText(quorlMsg message, uint16_t id) noexcept {
    quorlMsgField field;
    return find(message, id, QUORLMSG_STRING, &field) ? std::string_view(field.data.str) : std::string_view();
}

bool readContent(quorlMsg message, message::ContentRef* content) noexcept {
    quorlMsgField bytes;
    if (!find(message, idBytes, QUORLMSG_OPAQUE, &bytes)) return false;
    const std::string_view send = readText(message, idSend);
    const std::string_view reply = readText(message, idReply);
    if (!subject::validForSending(send) || (!reply.empty() && !subject::validForSending(reply))) return false;
    // The peer is another process: neither a message nor a reply to it becomes an advisory of this one.
    if (local::staysHere(send) || local::staysHere(reply)) return false;
    message::Attributes attributes;
    quorlMsgField trailer;
    if (find(message, idTrailer, QUORLMSG_OPAQUE, &trailer)) {
        size_t used = 0;
        const auto* from = static_cast<const uint8_t*>(trailer.data.buf);
        if (!message::trailer::read(from, trailer.size, &attributes, &used) || used != trailer.size) return false;
    }
    return message::contentFromBytes(bytes.data.buf, bytes.size, send, reply, content, attributes) == QUORL_OK;
}

}  // namespace

quorl_status encode(const Frame& frame, std::string_view to, message::ContentRef* wire) noexcept {
    message::Builder message;
    message.u8(idVersion, version)
        .u8(idKind, static_cast<uint8_t>(frame.kind))
        .u64(idSession, frame.session)
        .u64(idSequence, frame.sequence)
        .u64(idAcknowledged, frame.acknowledged);
    if (!frame.from.empty()) message.text(idFrom, frame.from);
    if (frame.content) {
        // Subjects of a content are zero-terminated.
        message.text(idSend, frame.content.sendSubject().data());
        if (!frame.content.replySubject().empty()) message.text(idReply, frame.content.replySubject().data());
        message.bytes(idBytes, frame.content.bytes(), frame.content.byteSize());
        if (const message::Attributes attributes = frame.content.attributes(); !attributes.empty()) {
            std::array<uint8_t, message::trailer::mostBytes> trailer;
            message::trailer::write(trailer.data(), attributes);
            message.bytes(idTrailer, trailer.data(),
                          static_cast<uint32_t>(message::trailer::sizeFor(attributes.size())));
        }
    }
    return message.content(to, wire);
}

bool decode(quorlMsg message, Frame* frame) noexcept {
    quorlMsgField field;
    if (!find(message, idVersion, QUORLMSG_U8, &field) || field.data.u8 != version) return false;
    if (!find(message, idKind, QUORLMSG_U8, &field)) return false;
    if (field.data.u8 < static_cast<uint8_t>(Kind::connect) || field.data.u8 > static_cast<uint8_t>(Kind::closed))
        return false;
    frame->kind = static_cast<Kind>(field.data.u8);
    if (!readNumber(message, idSession, &frame->session) || !readNumber(message, idSequence, &frame->sequence) ||
        !readNumber(message, idAcknowledged, &frame->acknowledged))
        return false;
    frame->content = {};
    frame->from.clear();
    if (frame->kind == Kind::data) return readContent(message, &frame->content);
    if (frame->kind != Kind::connect) return true;
    const std::string_view from = readText(message, idFrom);
    if (!subject::isInbox(from) || !subject::validForSending(from)) return false;
    try {
        frame->from = from;
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

}  // namespace quorl::transport::circuit

// Entry points for the subjects of messages.
#include <cstring>

#include "base/status.h"
#include "message/message.h"
#include "quorl/quorl.h"
#include "subject/subject.h"

using namespace quorl;
using namespace quorl::message;

namespace {

quorl_status set(quorlMsg message, const char* subject, bool reply) noexcept {
    Slot* slot;
    if (quorl_status status = findToChange(message, &slot); status != QUORL_OK) return status;
    if (subject == nullptr) return setSubject(*slot, {}, reply);
    const std::string_view text(subject, strnlen(subject, QUORL_SUBJECT_MAX + 1));
    switch (subject::formOf(text)) {
        case subject::Form::malformed:
            return fail(QUORL_INVALID_SUBJECT, "\"%.*s\" is not a valid subject: %s", QUORL_SUBJECT_MAX, subject,
                        subject::whyMalformed(text));
        case subject::Form::pattern:
            return fail(QUORL_INVALID_SUBJECT,
                        "\"%s\" has wildcards: listen to it; send to a subject without wildcards", subject);
        case subject::Form::plain:
            break;
    }
    if (subject::isReserved(text))
        return fail(QUORL_INVALID_SUBJECT, "\"%s\" is reserved: begin subjects of your own without \"_\"", subject);
    return setSubject(*slot, text, reply);
}

quorl_status get(quorlMsg message, const char** subject, bool reply) noexcept {
    if (subject == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the subject is null");
    Slot* slot;
    Content* content;
    if (quorl_status status = open(message, &slot, &content); status != QUORL_OK) return status;
    const std::string_view text = reply ? content->replySubject() : content->sendSubject();
    if (text.empty()) return fail(QUORL_NOT_FOUND, "the message has no %s subject", reply ? "reply" : "send");
    noteBorrowed(*slot);
    *subject = text.data();
    return QUORL_OK;
}

}  // namespace

extern "C" {
// clang-format off
quorl_status quorlMsg_SetSendSubject(quorlMsg message, const char* subject) noexcept { return set(message, subject, false); }
quorl_status quorlMsg_GetSendSubject(quorlMsg message, const char** subject) noexcept { return get(message, subject, false); }
quorl_status quorlMsg_SetReplySubject(quorlMsg message, const char* subject) noexcept { return set(message, subject, true); }
quorl_status quorlMsg_GetReplySubject(quorlMsg message, const char** subject) noexcept { return get(message, subject, true); }
// clang-format on
}

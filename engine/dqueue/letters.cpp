// Adding fields to tasks.
#include "dqueue/letters.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <new>
#include <vector>

#include "certified/protocol/machine.h"
#include "companion/builder.h"
#include "companion/status.h"

namespace quorl::dqueue {

using companion::Builder;
using companion::Message;

std::string memberText(uint64_t member) {
    std::array<char, 17> text;
    std::snprintf(text.data(), text.size(), "%016" PRIx64, member);
    return text.data();
}

quorl_status numbered(const Message& task, uint32_t number, Message* made) noexcept {
    Builder builder(task);
    builder.without("dqsn").u32("dqsn", number);
    return builder.message({}, made);
}

quorl_status letterOf(const DeadLetter& letter, std::string_view queue, Message* made) noexcept {
    try {
        std::vector<Message> history;
        for (const Attempt& attempt : letter.history) {
            Builder one;
            one.text("member", memberText(attempt.member))
                .text("label", attempt.label)
                .f64("at", static_cast<double>(attempt.at) / 1e9)
                .text("reason", std::string_view(attempt.reason));
            const quorl_status status = one.message({}, &history.emplace_back());
            if (status != QUORL_OK) return status;
        }
        certified::Attributes attributes;
        const bool certified = certified::attributesOf(letter.message, &attributes);
        Builder about;
        about.text("queue", queue)
            .text("subject", letter.message.subject())
            .text("reply", letter.message.replySubject())
            .text("sender", certified ? std::string_view(attributes.sender) : std::string_view())
            .u64("number", certified ? attributes.number : 0)
            .u32("reassigned", letter.reassigned)
            .messages("history", history);
        Message fields;
        if (const quorl_status status = about.message({}, &fields); status != QUORL_OK) return status;
        Builder whole(letter.message);
        whole.without("deadletter").inner("deadletter", fields);
        if (const quorl_status status = whole.message({}, made); status != QUORL_OK) return status;
        return made->withSubjects(letter.subject, {}, made);
    } catch (const std::bad_alloc&) {
        return companion::fail(QUORL_NO_MEMORY, "no memory for a dead letter");
    }
}

}  // namespace quorl::dqueue

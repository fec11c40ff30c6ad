// The questions, by their first word; the others end with the id of a member.
#include "ftolerance/answers.h"

#include <charconv>

#include "companion/object.h"
#include "companion/status.h"
#include "ftolerance/member_event.h"

namespace quorl::ftolerance {
namespace {

bool tellLast(companion::Statistics& fields) noexcept {
    LastTold told;
    if (!MemberEvent::lastTold(&told)) return false;
    fields.u32("member", told.member).u32("action", told.action).u64("serial", told.serial).u64("token", told.token);
    return true;
}

// The id behind the word; 0: it is another question.
uint32_t memberOf(std::string_view question, std::string_view word) noexcept {
    if (!question.starts_with(word)) return 0;
    question.remove_prefix(word.size());
    uint32_t id = 0;
    const char* const end = question.data() + question.size();
    const auto [behind, error] = std::from_chars(question.data(), end, id);
    return error == std::errc() && behind == end ? id : 0;
}

}  // namespace

bool answer(std::string_view question, companion::Statistics& fields) noexcept {
    if (question == "told") return tellLast(fields);
    const companion::KeptErrorText kept;
    const uint32_t deferring = memberOf(question, "defers.");
    const uint32_t returned = memberOf(question, "returned.");
    const companion::Hold<MemberEvent> member(companion::Type::member, deferring | returned);
    if (!member) return false;
    if (deferring != 0) member->defer();
    if (returned != 0) member->returned();
    fields.u32("member", deferring | returned);
    return true;
}

}  // namespace quorl::ftolerance

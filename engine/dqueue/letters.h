// Messages that the library makes of tasks: those with a number for the
// program, and dead letters.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "companion/message.h"
#include "dqueue/protocol/machine.h"

namespace quorl::dqueue {

// The task with its number as field "dqsn", in the place of any that it has.
// QUORL_NO_MEMORY.
quorl_status numbered(const companion::Message& task, uint32_t number, companion::Message* made) noexcept;

// The letter's message with its history as field "deadletter", on the letter's
// subject, without a reply subject. QUORL_NO_MEMORY, and what a message that
// has no room for a field says.
quorl_status letterOf(const DeadLetter& letter, std::string_view queue, companion::Message* made) noexcept;

// A member's number as people see it.
std::string memberText(uint64_t member);

}  // namespace quorl::dqueue

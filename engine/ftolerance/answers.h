// What members answer to requests of this process on _QUORL.ASK.fault_tolerance.: for bindings, whose handlers run after the
// callback. docs/reference/advisories.md has the questions.
#pragma once

#include <string_view>

#include "companion/advisory.h"

namespace quorl::ftolerance {

// As companion::Module::answer.
bool answer(std::string_view question, companion::Statistics& fields) noexcept;

}  // namespace quorl::ftolerance

// Telling what is damaged in a ledger, as advisories.
#pragma once

#include <string>
#include <string_view>

#include "certified/ledger/inspect.h"

namespace quorl::certified {

void tellFinding(std::string_view name, const Finding& finding) noexcept;

// Each damage of a ledger that was refused for it. Nobody has it open.
void tellDamage(std::string_view name, const std::string& path, const Outcome& refused) noexcept;

}  // namespace quorl::certified

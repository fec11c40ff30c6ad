// What the events of a certified machine are told as: docs/reference/advisories.md lists them.
#pragma once

#include <cstdint>
#include <string_view>

#include "certified/protocol/machine.h"

namespace quorl::certified {

// id: of the certified transport. name: its certified name. failure: of storageFailed, what the ledger says.
void tell(const Event& event, uint32_t id, std::string_view name, std::string_view failure = {}) noexcept;

}  // namespace quorl::certified

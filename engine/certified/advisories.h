// What the events of a certified machine are told as: docs/reference/advisories.md lists them.
#pragma once

#include <cstdint>
#include <string_view>

#include "certified/protocol/machine.h"

namespace quorl::certified {

// id: of the certified transport. name: its certified name.
void tell(const Event& event, uint32_t id, std::string_view name) noexcept;

}  // namespace quorl::certified

// Reading the fields of messages inside the engine.
#pragma once

#include <cstdint>

#include "quorl/quorl.h"

namespace quorl::message {

// The field with that id. QUORL_INVALID_MSG, QUORL_NOT_FOUND, QUORL_NO_MEMORY.
quorl_status fieldOf(quorlMsg message, uint16_t id, quorlMsgField* field) noexcept;

}  // namespace quorl::message

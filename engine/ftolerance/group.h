// What members and monitors of this process share: their host, the group's subject, frames as messages, and advisories.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "companion/host.h"
#include "companion/message.h"
#include "ftolerance/protocol/output.h"

namespace quorl::ftolerance {

// The host of all. Guests are added after useLibrary.
companion::Host& host() noexcept;
// QUORL_NOT_INITIALIZED.
quorl_status useLibrary() noexcept;

Now now() noexcept;

// One of the group, as advisories name it.
struct Who {
    const char* role = "";  // the name of the field: member or monitor
    uint32_t id = 0;
    std::string group;
};

// The subject of a group's frames. name: may be null. QUORL_INVALID_SUBJECT, QUORL_INVALID_TRANSPORT. Throws std::bad_alloc.
quorl_status groupSubject(uint32_t transport, const char* name, std::string* subject);

quorl_status sendFrame(uint32_t transport, const std::string& subject, const Frame& frame) noexcept;

void tell(const Who& who, const Advisory& advisory) noexcept;
// Of an activation or deactivation; before the program hears of it.
void tell(const Who& who, const Told& told) noexcept;

}  // namespace quorl::ftolerance

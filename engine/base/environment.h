// Whether the library is open, how often, and with which parameters.
#pragma once

#include <atomic>

#include "base/module.h"
#include "base/parameters.h"
#include "quorl/quorl.h"

namespace quorl::environment {

// The modules are the same for all calls. path: a file of parameters, null for none.
quorl_status open(Modules modules, const char* path) noexcept;
// The last close returns when nothing of the library runs any more. A failure says what was lost, and stops nothing.
quorl_status close(Modules modules) noexcept;

quorl_status setParameters(Modules modules, const std::vector<std::string_view>& settings) noexcept;

// True from the end of the first open to the beginning of the last close.
bool isOpen() noexcept;

// Whether the library is open, and a parameter is empty.
bool isOpenWithout(const TextParameter& parameter) noexcept;

// The parameters; they do not change from before start until after stop.
const Parameters& parameters() noexcept;

// The status of a call on an id that names no such object: status while the library is open.
quorl_status noObject(quorl_status status, const char* kind, quorl_u32 id) noexcept;

// QUORL_OK while the library is open.
quorl_status requireOpen() noexcept;

}  // namespace quorl::environment

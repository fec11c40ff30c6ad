// Transports and what carries their messages as parts of the library.
#pragma once

#include "base/module.h"

namespace quorl::transport {

extern const environment::Module module;

}  // namespace quorl::transport

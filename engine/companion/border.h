// The place of all companion libraries among the modules of the core.
#pragma once

#include "base/module.h"

namespace quorl::companion {

extern const environment::Module border;

}  // namespace quorl::companion

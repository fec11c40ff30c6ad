// Connections to daemons as a part of the library.
#pragma once

#include "base/module.h"

namespace quorl::transport::nats {

extern const environment::Module module;

}  // namespace quorl::transport::nats

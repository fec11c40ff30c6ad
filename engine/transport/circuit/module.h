// Circuits as a part of the library.
#pragma once

#include "base/module.h"

namespace quorl::transport::circuit {

extern const environment::Module module;

}  // namespace quorl::transport::circuit

// What an operation on a ledger came to: a status, and the sentence that goes with it.
#pragma once

#include <string>

#include "quorl/quorl.h"

namespace quorl::certified {

struct Outcome {
    quorl_status status = QUORL_OK;
    std::string text;  // empty with QUORL_OK
    bool ok() const noexcept { return status == QUORL_OK; }
};

}  // namespace quorl::certified

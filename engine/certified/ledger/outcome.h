// What an operation on a ledger came to: a status, and the sentence that goes with it.
#pragma once

#include <string>

#include "quorl/quorl.h"

namespace quorl::certified {

struct Outcome {
    quorl_status status = QUORL_OK;
    std::string text = {};  // empty with QUORL_OK, and where there was no memory for it
    bool ok() const noexcept { return status == QUORL_OK; }
    // What to tell: never empty.
    const char* reason() const noexcept { return text.empty() ? "no memory" : text.c_str(); }
};

}  // namespace quorl::certified

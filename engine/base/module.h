// A part of the library as the environment knows it: what it does when the library opens and closes, and its parameters.
#pragma once

#include <span>

#include "base/parameters.h"

namespace quorl::environment {

// A constant of its module. The environment has a list of all, each behind those that it stands on: start goes through the
// list from its beginning, close and stop from its end. Any of the functions may be null. close and stop are also called
// after a start that failed, and then of modules that did not start.
struct Module {
    std::span<const Parameter* const> parameters;
    quorl_status (*start)() noexcept = nullptr;
    // Destroys the module's objects. The registry takes no new ones any more, and no lock is held.
    void (*close)() noexcept = nullptr;
    // All objects are gone but for those that references hold: ends what is left. A failure says what was lost.
    quorl_status (*stop)() noexcept = nullptr;
    // In a process that was forked while the library was open.
    void (*forget)() noexcept = nullptr;
};

using Modules = std::span<const Module* const>;

}  // namespace quorl::environment

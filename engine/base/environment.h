// Whether the library is open, how often, and with which parameters.
#pragma once

#include <atomic>

#include "base/parameters.h"
#include "quorl/quorl.h"

namespace quorl::environment {

// What opening for the first time and closing for the last time have to do. stop is called while no lock is held, and
// returns when nothing of the library runs any more; a failure says what was lost, and stops nothing.
struct Engine {
    quorl_status (*start)() noexcept;
    quorl_status (*stop)() noexcept;
    void (*forgetMessages)() noexcept;  // in a process that was forked while the library was open, see base/forked.h
};

// path: a file of parameters, null for none.
quorl_status open(const Engine& engine, const char* path) noexcept;
quorl_status close(const Engine& engine) noexcept;

quorl_status setParameters(const std::vector<std::string_view>& settings) noexcept;

// True from the end of the first open to the beginning of the last close.
bool isOpen() noexcept;

// Whether the library is open without a default daemon.
bool isIpm() noexcept;

// The parameters; they do not change from before start until after stop.
const Parameters& parameters() noexcept;

void disableReadyCheck() noexcept;
bool readyCheckDisabled() noexcept;

// The status of a call on an id that names no such object: status while the library is open.
quorl_status noObject(quorl_status status, const char* kind, quorl_u32 id) noexcept;

// QUORL_OK while the library is open.
quorl_status requireOpen() noexcept;

}  // namespace quorl::environment

// A companion library as the core knows it: what it does when the library closes, and in the child of a fork.
//
//     constinit Module module{.name = "certified", .close = close, .forget = nullptr, .statistics = fill};
//
//     if (const quorl_status status = use(module); status != QUORL_OK) return status;
//
// When the library closes, this happens in order: no new object can be made; the objects of all companions are closed, events
// first, while transports and queues still work; the modules close, the one that was used first last; events, queues and
// transports of the program are destroyed; all completions are called. Nothing of a companion may run after that.
#pragma once

#include <cstdint>
#include <string_view>

#include "companion/advisory.h"

namespace quorl::companion {

// All functions may be null, throw nothing, and are called with no lock of the engine held.
struct Module {
    const char* name;  // of its message in the statistics
    // The library closes, and the objects of all companions were closed: stops the hosts.
    void (*close)() noexcept = nullptr;
    // All objects are complete, and nothing else of the library runs: gives back what is left. The library may open again.
    void (*stopped)() noexcept = nullptr;
    // In the child of a fork: forgets what the parent's threads used. Takes no lock, frees nothing, closes nothing.
    void (*forget)() noexcept = nullptr;
    // On any thread. Left out of the statistics when null.
    void (*statistics)(Statistics& statistics) noexcept = nullptr;
    // A request of this process on _QUORL.ASK.<name>.<question>: adds the answer's fields and says true; false: that is no
    // question, and nobody answers. On any thread. Not asked when null.
    bool (*answer)(std::string_view question, Statistics& answer) noexcept = nullptr;

    Module* next = nullptr;  // the border's
};

// Makes the module known, which is a constant of its library; again without effect. Called first by whatever makes objects.
// QUORL_NOT_INITIALIZED: the library is not open.
QUORL_API quorl_status use(Module& module) noexcept;

// What the program set before it opened the library (docs/reference/parameters.md), or the value that holds without.
namespace parameters {
// Megabytes of messages that a certified transport keeps for its listeners at most; 0: as many as there is room for.
QUORL_API uint32_t pendingMegabytes() noexcept;
}  // namespace parameters

}  // namespace quorl::companion

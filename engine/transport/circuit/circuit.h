// Virtual circuits: transports to exactly one peer, over whatever carries the messages of another transport.
#pragma once

#include <cstdint>

#include "quorl/quorl.h"

namespace quorl::transport::circuit {

// subject: where the peer connects to; lives as long as the circuit.
quorl_status createAccept(uint32_t* id, const char** subject, uint32_t parent) noexcept;
// subject may be null.
quorl_status createConnect(uint32_t* id, const char* subject, uint32_t parent) noexcept;
quorl_status waitForConnection(uint32_t id, double timeout) noexcept;

// The transport is about to be destroyed: the circuits over it, and those over these, say good-bye while they can. Inside a
// read guard, no lock held.
void parentCloses(uint32_t parent) noexcept;
// It takes no listeners any more: circuits that were made meanwhile end too. Under a read guard, no lock held.
void parentClosed(uint32_t parent) noexcept;
// Its way is lost: so are the circuits over it. Locks of what reports it may be held.
void parentLost(uint32_t parent) noexcept;

// Ends all circuits and the thread; the registry takes no new objects by then.
void stop() noexcept;

}  // namespace quorl::transport::circuit

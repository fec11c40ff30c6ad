// Transports over daemons: each a port on a connection, which those with the same daemon, service and network share.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "transport/transport.h"

namespace quorl::transport::nats {

// A port on a connection to that daemon; connects when there is none yet, and waits for that up to the limit.
// QUORL_DAEMON_NOT_FOUND and others with the reason; QUORL_NO_MEMORY.
quorl_status openPort(std::string_view daemon, std::string_view service, std::string_view network,
                      std::unique_ptr<Backend>* port) noexcept;

// The connections of this process. Throws std::bad_alloc.
class Connection;
std::vector<std::shared_ptr<Connection>> connections();

// A connection has ended: messages that it dropped at its end, that it sent then and whose arrival was not confirmed, and all
// that it ever lost.
void hasEnded(uint64_t dropped, uint64_t unconfirmed, uint64_t missing) noexcept;
// Messages that those have lost that have ended.
uint64_t missingOfEnded() noexcept;

// New connections take a daemon's greeting for enough, and do not wait until it has answered.
void disableReadyCheck() noexcept;

// The library opens, or closes: then waits until what was sent is out, and no thread is left.
// QUORL_DAEMON_NOT_CONNECTED: messages were dropped when connections ended, since the library was opened.
void start() noexcept;
quorl_status stop() noexcept;

}  // namespace quorl::transport::nats

// Why a connection cannot be made, asked of the system itself.
#pragma once

#include <cstdint>
#include <string>

#include "transport/nats/address.h"

namespace quorl::transport::nats {

// Tries to reach the server once. Blocks up to the timeout (nanoseconds) and as long as the system looks up the name.
// Empty: it can be reached.
std::string whyUnreachable(const Server& server, int64_t timeout);

// Whether the daemon says in its greeting, which it gives in the clear, that it wants to see a certificate of its clients.
bool demandsCertificate(const Server& server, int64_t timeout);

}  // namespace quorl::transport::nats

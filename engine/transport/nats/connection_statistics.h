// What the statistics say of the connections to daemons. docs/reference/advisories.md describes the fields.
#pragma once

namespace quorl::transport::nats {

// From now on the statistics have them.
void countConnections() noexcept;

}  // namespace quorl::transport::nats

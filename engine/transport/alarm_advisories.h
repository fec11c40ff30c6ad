// Tells the alarms of queues as advisories.
#pragma once

namespace quorl::transport {

// From now on; once the library starts.
void tellAlarms() noexcept;

}  // namespace quorl::transport

// What the library does with the objects of all companions; for the border's own sources, and not for companions.
#pragma once

namespace quorl::companion::objects {

// From now on transports tell what stands on them that they close. Again without effect.
void watchTransports() noexcept;

// Closes what is open, events first.
void closeAll() noexcept;

}  // namespace quorl::companion::objects

// Queues, groups, events and timers as parts of the library.
#pragma once

#include "base/module.h"

namespace quorl::event {

extern const environment::Module timersModule;
// Stands on the timers; its objects go before what feeds them.
extern const environment::Module module;

}  // namespace quorl::event

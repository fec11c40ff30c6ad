// Keys of dispatching threads, and signals to them.
#include "event/dispatch.h"
#include "quorl/private.h"

using namespace quorl;

extern "C" {

quorl_status _quorlDispatchable_SetThreadKey(void* key) noexcept {
    return event::setThreadKey(key);
}

quorl_status _quorlDispatchable_Signal(quorl_u32 id) noexcept {
    return event::signalDispatchable(id);
}

}  // extern "C"

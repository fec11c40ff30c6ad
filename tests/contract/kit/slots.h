// The thread-local slots of the doubles, real per thread, for rows that look at them or let one operation fail.
#ifndef QUORL_CONTRACT_SLOTS_H
#define QUORL_CONTRACT_SLOTS_H

#include "quorl/private.h"

namespace contract {

quorl_status make_slot(_quorlThreadLocal* key, void (*at_end)(void*));
quorl_status set_slot(_quorlThreadLocal key, void* value);
quorl_status get_slot(_quorlThreadLocal key, void** value);
// The calling thread's value; null when there is none.
void* peek_slot(_quorlThreadLocal key);

}  // namespace contract

#endif

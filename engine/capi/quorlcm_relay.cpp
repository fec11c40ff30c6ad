// What the program quorl-relay calls.
#include <new>

#include "certified/relay/agent.h"
#include "companion/status.h"
#include "quorl/private.h"

using quorl::certified::RelayAgent;
using quorl::companion::fail;

extern "C" {

quorl_status _quorlcmRelay_Run(quorlTransport transport, const char* name, const char* ledgerName,
                               quorl_bool syncLedger, int stop, void (*ready)(void)) noexcept {
    if (name == nullptr || ledgerName == nullptr || *ledgerName == '\0')
        return fail(QUORL_INVALID_ARG, "a relay agent needs a name and a ledger");
    try {
        return RelayAgent::run(
            {.transport = transport, .name = name, .ledger = ledgerName, .sync = syncLedger != QUORL_FALSE}, stop,
            ready);
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a relay agent");
    }
}

}  // extern "C"

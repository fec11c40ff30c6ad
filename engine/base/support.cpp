// The services for the companion libraries.
#include "base/support.h"

#include "base/status.h"

extern "C" quorl_status _quorlSupport_Fail(quorl_status status, const char* text) {
    return quorl::fail(status, "%s", text == nullptr ? "" : text);
}

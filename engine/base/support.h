/* support.h: what libquorl lends to its companion libraries, which reach the engine through its exports alone. */
#pragma once

#include "quorl/quorl.h"

extern "C" {

/* Sets the calling thread's detail text (null for none) and returns status. */
QUORL_API quorl_status _quorlSupport_Fail(quorl_status status, const char* text);
}

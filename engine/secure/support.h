/* support.h: the way by which libquorlsd, which has checked them, puts credentials into the store of libquorl. */
#pragma once

#include "quorl/quorl.h"

extern "C" {

/* All texts are zero-terminated, copied, and null to take away what is there. */
QUORL_API quorl_status _quorlSupport_SetDaemonCertificates(const char* daemonName, const char* pem);
QUORL_API quorl_status _quorlSupport_SetIdentity(const char* certPem, const char* keyPem);
QUORL_API quorl_status _quorlSupport_SetUser(const char* name, const char* password);
}

/* support.h: what libquorl lends to its companion libraries, which reach the engine through its exports alone. */
#pragma once

#include "quorl/quorl.h"

extern "C" {

/* Sets the calling thread's detail text (null for none) and returns status. */
QUORL_API quorl_status _quorlSupport_Fail(quorl_status status, const char* text) QUORL_NOEXCEPT;

/* Publishes a message of the caller's as an advisory of this process (transport/advisory.h); its send subject is
 * _QUORL.<INFO|WARN|ERROR>.<source>.<name>. The calling thread's detail text stays as it is. */
QUORL_API void _quorlSupport_Advise(quorlMsg advisory) QUORL_NOEXCEPT;

/* Credentials that libquorlsd has checked, for the store of libquorl. All texts are zero-terminated, copied, and null to
 * take away what is there. */
QUORL_API quorl_status _quorlSupport_SetDaemonCertificates(const char* daemonName, const char* pem) QUORL_NOEXCEPT;
QUORL_API quorl_status _quorlSupport_SetIdentity(const char* certPem, const char* keyPem) QUORL_NOEXCEPT;
QUORL_API quorl_status _quorlSupport_SetUser(const char* name, const char* password) QUORL_NOEXCEPT;
}

/* quorlsd.h: credentials for secure daemons.
 *
 * The rules of quorl.h hold here too. Credentials are copied, belong to the process, and are used by the connections that
 * are made after the call. A null credential takes the earlier one away. */
#ifndef QUORL_QUORLSD_H
#define QUORL_QUORLSD_H

#include "quorl/quorl.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The name under which a certificate holds for any daemon. */
#define QUORLSD_ANY_DAEMON "*"

/* The PEM certificate to trust for the daemon of that name; a null name means QUORLSD_ANY_DAEMON. */
QUORL_API quorl_status quorlSecureDaemon_SetDaemonCert(const char* daemonName, const char* daemonCert);
/* This program's PEM certificate with its private key, and the key's password (null for none). */
QUORL_API quorl_status quorlSecureDaemon_SetUserCertWithKey(const char* userCertWithKey, const char* password);
/* The same in binary form (PKCS #12): size bytes. */
QUORL_API quorl_status quorlSecureDaemon_SetUserCertWithKeyBin(const void* userCertWithKey, quorl_u32 size,
                                                               const char* password);
QUORL_API quorl_status quorlSecureDaemon_SetUserNameWithPassword(const char* userName, const char* password);

#ifdef __cplusplus
}
#endif

#endif

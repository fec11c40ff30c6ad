/* quorlsd.h: credentials for secure daemons.
 *
 * The rules of quorl.h hold here too, but that no environment need be open. Credentials are checked, copied, belong to the
 * process, and are used by the connections that are made after the call. A null credential takes the earlier one away; the
 * last quorl_Close takes all of them. The library's memory of them is overwritten before it is given back; OpenSSL, which
 * works with copies, sees to its own. No detail text repeats one.
 *
 * A certificate is PEM, 1 MiB at most (QUORL_INVALID_SIZE). */
#ifndef QUORL_QUORLSD_H
#define QUORL_QUORLSD_H

#include "quorl/quorl.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The name under which a certificate holds for any daemon. */
#define QUORLSD_ANY_DAEMON "*"

/* The PEM certificates to trust for the daemon of that name: of the authority that signed the daemon's certificate, or
 * that certificate itself when it signed itself. The name is "host:port" or "host", also with a scheme before it; letters
 * count in either case; the longer name is preferred. A null name means QUORLSD_ANY_DAEMON, which holds for daemons with
 * no certificate of their own here. QUORL_INVALID_NAME: empty, more than 255 bytes, or not printable ASCII without blanks
 * and commas. QUORL_INVALID_ARG: no certificate in the text, or a damaged one. */
QUORL_API quorl_status quorlSecureDaemon_SetDaemonCert(const char* daemonName, const char* daemonCert) QUORL_NOEXCEPT;
/* This program's PEM certificate with its private key, in any order, other certificates of its chain among them, and the
 * key's password (null for none; not looked at when the key is not encrypted). Replaces what the binary form set.
 * QUORL_INVALID_ARG: no PEM, no certificate or no key in it, or a damaged one; QUORL_ARG_CONFLICT: the key belongs to none
 * of the certificates; QUORL_USERPASS_MISMATCH: the password is wrong, or missing. */
QUORL_API quorl_status quorlSecureDaemon_SetUserCertWithKey(const char* userCertWithKey,
                                                            const char* password) QUORL_NOEXCEPT;
/* The same in binary form (PKCS #12): size bytes; an empty password and none are the same. Replaces what the text form
 * set. */
QUORL_API quorl_status quorlSecureDaemon_SetUserCertWithKeyBin(const void* userCertWithKey, quorl_u32 size,
                                                               const char* password) QUORL_NOEXCEPT;
/* A user's name and password, 1 to 255 bytes each. QUORL_INVALID_ARG: empty, too long, or no password with a name. */
QUORL_API quorl_status quorlSecureDaemon_SetUserNameWithPassword(const char* userName,
                                                                 const char* password) QUORL_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif

/* smtp_auth.h - credential strings of SMTP AUTH (RFC 4954), in base64 (RFC 4648).
 *
 * Results: 0; -1 when an output is null or a text does not fit the limits below, with empty
 * outputs. A null user name or password is an empty one. Outputs end with NUL and belong to the
 * caller, who wipes them after use. No call blocks. PLAIN and LOGIN only encode: anyone who reads
 * their texts has the password. */
#ifndef OVRMAIL_SMTP_AUTH_H
#define OVRMAIL_SMTP_AUTH_H

#include "mail_types.h"

MAIL_BEGIN_DECLS

/* Auth_GetCertPlainString - initial response of PLAIN (RFC 4616): user, NUL, user, NUL, password.
 *   user, password  2 * the length of user + the length of password + 2: at most 512 bytes
 *   out             out, 4 * ceil(that sum / 3) + 1 bytes: 261 for 64 and 64 */
MAIL_API int32_t Auth_GetCertPlainString(const char* user, const char* password,
                                         char* out) MAIL_NOEXCEPT;

/* Auth_GetCertLoginString - the two responses of LOGIN.
 *   user, password          at most 189 bytes each
 *   out_user, out_password  out, 256 bytes each */
MAIL_API int32_t Auth_GetCertLoginString(const char* user, const char* password, char* out_user,
                                         char* out_password) MAIL_NOEXCEPT;

/* Auth_GetCertCramString - response of CRAM-MD5 (RFC 2195): user, blank, keyed digest in hex.
 *   user       at most 478 bytes
 *   password   any length
 *   challenge  base64 as sent by the server; one CR LF at its end is dropped; decoded at most 511
 *              bytes, of which the text ends at the first NUL
 *   out        out, 4 * ceil((length of user + 33) / 3) + 1 bytes: 133 for 64 */
MAIL_API int32_t Auth_GetCertCramString(const char* user, const char* password,
                                        const char* challenge, char* out) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

/* smtp_auth.h - credential strings of SMTP AUTH (RFC 4616, RFC 2195). */
#ifndef OVRMAIL_SMTP_AUTH_H
#define OVRMAIL_SMTP_AUTH_H

#include "mail_types.h"

MAIL_BEGIN_DECLS

MAIL_API int32_t Auth_GetCertPlainString(const char* user, const char* password,
                                         char* out) MAIL_NOEXCEPT;
MAIL_API int32_t Auth_GetCertLoginString(const char* user, const char* password, char* out_user,
                                         char* out_password) MAIL_NOEXCEPT;
MAIL_API int32_t Auth_GetCertCramString(const char* user, const char* password,
                                        const char* challenge, char* out) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

/* pop3.h - POP3 session of POP before SMTP (RFC 1939). */
#ifndef OVRMAIL_POP3_H
#define OVRMAIL_POP3_H

#include "mail_types.h"
#include "trace.h"

MAIL_BEGIN_DECLS

extern MAIL_API uint32_t g_ulPopTimeOut;

MAIL_API int32_t Pop3_Connect(const char* host, uint32_t port, uint32_t* err,
                              TraceHandle* trace) MAIL_NOEXCEPT;
MAIL_API int32_t Pop3_Login(int32_t sock, const char* user, const char* password, char* error_text,
                            uint32_t* err, TraceHandle* trace) MAIL_NOEXCEPT;
MAIL_API int32_t Pop3_STAT(int32_t sock, char* error_text, uint32_t* err,
                           TraceHandle* trace) MAIL_NOEXCEPT;
MAIL_API int32_t Pop3_Logout(int32_t sock, char* error_text, uint32_t* err,
                             TraceHandle* trace) MAIL_NOEXCEPT;
MAIL_API void Pop3_SetTimeOut(uint32_t seconds, TraceHandle* trace) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

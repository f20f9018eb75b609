/* smtp.h - SMTP client: connection, line transport, time budgets, commands (RFC 5321). */
#ifndef OVRMAIL_SMTP_H
#define OVRMAIL_SMTP_H

#include <sys/time.h>
#include <time.h>

#include "mail_types.h"

MAIL_BEGIN_DECLS

extern MAIL_API MailTimeout g_stMailTimeout;
extern MAIL_API uint32_t g_ulTimeOut;
extern MAIL_API time_t g_tStartTime;

MAIL_API int32_t SMTP_connect(const char* server, uint32_t port, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_send(int32_t sock, const char* buf, int32_t len, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_send2(int32_t sock, const char* buf, int32_t len, uint32_t* err,
                            int32_t trace_flag) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_recv(int32_t sock, char* buf, int32_t size, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_returnMessage(int32_t sock, char* buf, int32_t size,
                                    uint32_t* err) MAIL_NOEXCEPT;
MAIL_API void SMTP_GetSmtpSvResponce(char* dst) MAIL_NOEXCEPT;

MAIL_API void SMTP_SetTimeOutInfo(const MailTimeout* values) MAIL_NOEXCEPT;
MAIL_API void SMTP_SetTimeOut(uint32_t seconds) MAIL_NOEXCEPT;
MAIL_API void SMTP_SetStartTime(void) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_CheckOverTimeOut(void) MAIL_NOEXCEPT;
MAIL_API void SMTP_GetSelectTimeOut(struct timeval* tv) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_GetTimeDifference(void) MAIL_NOEXCEPT;

MAIL_API int32_t SMTP_initialize(int32_t sock, const MailEntry* auth, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_MAIL(int32_t sock, const char* sender, const char* recipients,
                           uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_startData(int32_t sock, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_endData(int32_t sock, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_RSET(int32_t sock, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_QUIT(int32_t sock, uint32_t* err) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

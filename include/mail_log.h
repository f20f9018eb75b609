/* mail_log.h - the mail log: what was said to the mail servers and what they answered. */
#ifndef OVRMAIL_MAIL_LOG_H
#define OVRMAIL_MAIL_LOG_H

#include "mail_types.h"

MAIL_BEGIN_DECLS

typedef struct MailLogHandle MailLogHandle;

extern MAIL_API MailLogHandle* g_pLogHandle;

MAIL_API MailLogHandle* MailLogOpen(uint32_t unused) MAIL_NOEXCEPT;
MAIL_API int32_t MailLogWrite(MailLogHandle* log, uint32_t level, const char* text) MAIL_NOEXCEPT;
MAIL_API int32_t MailLogSysErrWrite(MailLogHandle* log, const char* function, int32_t code,
                                    long detail, const char* text) MAIL_NOEXCEPT;
MAIL_API int32_t MailLogTimeOutWrite(MailLogHandle* log, int32_t timer, int32_t kind,
                                     const char* text) MAIL_NOEXCEPT;
MAIL_API int32_t MailLogClose(MailLogHandle* log) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

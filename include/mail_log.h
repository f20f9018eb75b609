/* mail_log.h - the mail log: what was said to the mail servers and what they answered.
 *
 * One text file per process, "/var/opt/Quorvin/log/rmsmtpPID.log", lines end with CR LF. A file
 * that has come within 500 bytes of its size is moved to generation 1 ("rmsmtpPID.log1", older
 * ones further up) at the next opening. Settings come from the section "LOG" of
 * "/etc/opt/Quorvin/trc_conf": LOGSIZE (KiB, 10 to 100) and LOGNUM (files kept in the directory,
 * 5 to 100, or 0 for no log); another number means 20, a text without digits counts as 0.
 *
 * Passwords are never handed to these functions: callers write "******" instead. A null handle
 * makes every writer return -1 and do nothing. Failing writes are not reported. */
#ifndef OVRMAIL_MAIL_LOG_H
#define OVRMAIL_MAIL_LOG_H

#include "mail_types.h"

MAIL_BEGIN_DECLS

typedef struct MailLogHandle MailLogHandle;

/* Log of the send in progress, null without one. Set by OvRm_SendEMail; a caller of
 * OvRm_SendEMailPartial_parts or of the functions of smtp.h may set a log of its own. */
extern MAIL_API MailLogHandle* g_pLogHandle;

/* MailLogOpen - open the log of this process, rotate it when it is full, delete the oldest log
 * files of the directory, and write the opening banner.
 *   unused  ignored; 0
 * Only a regular file of the effective user with no other name is written to; links are not
 * followed. A full log that cannot be moved away is emptied.
 * Returns a handle to be ended with MailLogClose; null when the log is switched off, the file
 * cannot be opened or is another one, or memory runs out. */
MAIL_API MailLogHandle* MailLogOpen(uint32_t unused) MAIL_NOEXCEPT;

/* MailLogWrite - one line "HH:MM:SS LABEL TEXT".
 *   log    from MailLogOpen, or null
 *   level  1: "S:", sent to a server; 2: "R:", received; 3: "-:", an error or a note
 *   text   any length; CR LF is added unless it ends with it. In a text of level 2 every control
 *          byte (below 0x20, and 0x7F) but that CR LF is written as "?". In the other levels the
 *          text is written as it is, line breaks and control bytes too
 * Returns 0; -1 for another level, a null text or a null log. */
MAIL_API int32_t MailLogWrite(MailLogHandle* log, uint32_t level, const char* text) MAIL_NOEXCEPT;

/* MailLogSysErrWrite - a line of level 3 about a failing system call:
 * "ERROR: func=FUNCTION code=CODE detail=DETAIL TEXT".
 *   log       from MailLogOpen, or null
 *   function  name of the call
 *   code      what it returned
 *   detail    errno, or the resolver's error
 *   text      null, or a remark; up to 1,024 bytes of it are written
 * Returns 0; -1 when log or function is null. */
MAIL_API int32_t MailLogSysErrWrite(MailLogHandle* log, const char* function, int32_t code,
                                    long detail, const char* text) MAIL_NOEXCEPT;

/* MailLogTimeOutWrite - a line of level 3 about a time-out: "ERROR: SMTP TIMEOUT (timer=N) TEXT".
 *   log    from MailLogOpen, or null
 *   timer  the time-out in seconds
 *   kind   1: SMTP, 2: POP
 *   text   null, or a remark; up to 1,024 bytes of it are written
 * Returns 0; -1 for another kind or a null log. */
MAIL_API int32_t MailLogTimeOutWrite(MailLogHandle* log, int32_t timer, int32_t kind,
                                     const char* text) MAIL_NOEXCEPT;

/* MailLogClose - write the closing banner, close the file and free the handle.
 *   log  from MailLogOpen, or null
 * Returns 0. */
MAIL_API int32_t MailLogClose(MailLogHandle* log) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

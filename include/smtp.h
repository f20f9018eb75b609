/* smtp.h - SMTP client: connection, lines, time budgets, commands (RFC 5321).
 *
 * One conversation at a time per process: buffers and budgets are shared. Order of calls:
 * SMTP_connect, SMTP_initialize, then for each mail SMTP_MAIL, SMTP_startData, the message,
 * SMTP_endData (SMTP_RSET before another mail), SMTP_QUIT, and the caller closes the descriptor,
 * also after a failure: no call here closes a connected one. Plain IPv4, no TLS.
 *
 * Arguments and results of all calls that talk to the server:
 *   sock  descriptor from SMTP_connect; stays open, whatever happens, and belongs to the caller
 *   err   null, or out, the error word: errno of the failing call; 0 after success, after a
 *         refusal, and with -4 when the server has closed the connection; after -6 it means nothing
 * Results:
 *     0  success          -3  send failed
 *    -6  budget spent     -4  receiving failed, or the server closed the connection
 *   and the refusals named at each call. A refused reply is kept for SMTP_GetSmtpSvResponce.
 *   Only the first digit of a reply's last line is judged.
 * SIGPIPE is never raised; interrupted calls are repeated (a send at most five times).
 * Blocking: each command, and each line of a reply, ends when the running budget is spent; but a
 * server that sends without an end meets no time-out. The clock is that of time(), in seconds. Each
 * command starts it. While a reply is read it goes on; only the reply to EHLO starts it again with
 * each line. */
#ifndef OVRMAIL_SMTP_H
#define OVRMAIL_SMTP_H

#include <sys/time.h>
#include <time.h>

#include "mail_types.h"

MAIL_BEGIN_DECLS

/* Budgets of the phases, in seconds. Set by SMTP_SetTimeOutInfo; at first MAIL_TIMEOUT_DEFAULTS. */
extern MAIL_API MailTimeout g_stMailTimeout;

/* The running budget in seconds, read as a signed number, and when it began. At first both 0. */
extern MAIL_API uint32_t g_ulTimeOut;
extern MAIL_API time_t g_tStartTime;

/* SMTP_connect - open the connection to the mail server.
 *   server  host name or dotted IPv4 address; null is ""
 *   port    TCP port (low 16 bits); 0: service "SMTP", else "smtp", of the services database,
 *           else 25
 *   err     null, or out: errno, or for -5 the resolver's error (h_errno); untouched on success
 * Starts the budget ulConnectTimeOut, which also covers SMTP_initialize.
 * Returns the descriptor (close-on-exec, owned by the caller); -1 no socket; -2 not connected;
 *   -5 name not resolved (also when its host entry does not fit in 1,024 bytes).
 * Blocks in the resolver and in connect() as long as the system lets them; a refused connection
 * is tried 6 times and a temporary resolver failure 5 times, one second apart. */
MAIL_API int32_t SMTP_connect(const char* server, uint32_t port, uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_send, SMTP_send2 - send all of a buffer; SMTP_send is SMTP_send2 with a flag of 1.
 *   sock, err   as in the head of this file
 *   buf, len    the bytes and their number, 1 or more. No bytes: -3, err 0; a null buffer or a
 *               negative length: -3, err EINVAL
 *   trace_flag  1: the trace may keep the bytes; any other value: it may not (credentials)
 * Returns 0, -3, -6. Does not start the clock: the budget is what is left of the running one. */
MAIL_API int32_t SMTP_send(int32_t sock, const char* buf, int32_t len, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_send2(int32_t sock, const char* buf, int32_t len, uint32_t* err,
                            int32_t trace_flag) MAIL_NOEXCEPT;

/* SMTP_recv - read one reply line.
 *   sock, err  as in the head of this file
 *   buf, size  out: the line with its CR LF, and the room for it in bytes, which is cleared first.
 *              A line of `size` bytes or more is handed out in parts of `size` bytes without a
 *              NUL. A null buffer or a size below 1: -4, err EINVAL
 * Returns 0, -4, -6. Nothing behind the line is taken from the socket. Every wait within the line
 * is what was left of the budget when it began. */
MAIL_API int32_t SMTP_recv(int32_t sock, char* buf, int32_t size, uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_returnMessage - read a whole reply (RFC 5321 4.2.1).
 *   sock, err  as in the head of this file
 *   buf, size  out: the last line of the reply, as by SMTP_recv
 * Returns 0, -4, -6. Each line is bounded as by SMTP_recv; the clock goes on between them. */
MAIL_API int32_t SMTP_returnMessage(int32_t sock, char* buf, int32_t size,
                                    uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_GetSmtpSvResponce - copy the last reply line of the conversation.
 *   dst  out: 256 bytes; at most 255 of the line, raw, with its CR LF, then NULs; null: nothing is
 *        done */
MAIL_API void SMTP_GetSmtpSvResponce(char* dst) MAIL_NOEXCEPT;

/* SMTP_SetTimeOutInfo - set the budgets of the phases.
 *   values  six numbers of seconds, not checked; null: no change */
MAIL_API void SMTP_SetTimeOutInfo(const MailTimeout* values) MAIL_NOEXCEPT;

/* SMTP_SetTimeOut - set the running budget without starting its clock.
 *   seconds  its length */
MAIL_API void SMTP_SetTimeOut(uint32_t seconds) MAIL_NOEXCEPT;

/* SMTP_SetStartTime - start the clock of the running budget. */
MAIL_API void SMTP_SetStartTime(void) MAIL_NOEXCEPT;

/* SMTP_CheckOverTimeOut - 0 while time is left, -6 when the budget is spent (elapsed >= budget).
 * A clock that was set back starts the budget again. */
MAIL_API int32_t SMTP_CheckOverTimeOut(void) MAIL_NOEXCEPT;

/* SMTP_GetSelectTimeOut - what is left of the budget, never negative.
 *   tv  out: whole seconds; null: nothing is stored */
MAIL_API void SMTP_GetSelectTimeOut(struct timeval* tv) MAIL_NOEXCEPT;

/* SMTP_GetTimeDifference - hours that the local zone is ahead of UTC (negative: behind). Summer
 * time is left out: the result is that of winter all year. Half hours are cut off: 5 for +5:30, -3
 * for -3:30. Reads TZ as tzset() does. */
MAIL_API int32_t SMTP_GetTimeDifference(void) MAIL_NOEXCEPT;

/* SMTP_initialize - read the greeting, say EHLO (or HELO where EHLO is refused), authenticate.
 *   sock, err  as in the head of this file
 *   auth       null, or an option of kind MAIL_AUTH_SMTP with a MailAuthAccount; other kinds mean
 *              none
 * Runs on the budget of SMTP_connect; the clock starts again with each command and with each line
 * of the reply to EHLO.
 * Returns 0;
 *     2  no authentication: HELO only, no AUTH line or no mechanism in common
 *     3  every mechanism in common was refused
 *    -5  no local host name; -21 HELO refused; -26 greeting refused; or -3, -4, -6.
 * After 2 and 3 the connection is usable. RFC 4954; PLAIN (RFC 4616), LOGIN, CRAM-MD5 (RFC 2195).
 * Passwords reach neither mail log nor trace. */
MAIL_API int32_t SMTP_initialize(int32_t sock, const MailEntry* auth, uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_MAIL - MAIL FROM and one RCPT TO for each recipient (RFC 5321 4.1.1.2, 4.1.1.3).
 *   sock, err   as in the head of this file
 *   sender      address without brackets, up to 4,089 bytes; null or "": the null sender
 *   recipients  addresses without brackets, up to 307 bytes each, separated by commas and taken as
 *               they stand: no blank is trimmed, and an empty one is sent as "<>"; null is ""
 * The texts are not checked: a CR, LF, ">" or blank in them can add commands or parameters. Budgets
 * ulMailFromTimeOut, then ulRcptToTimeOut for each recipient. Returns 0; -22 sender refused or too
 * long; -23 a recipient refused (the following are not sent) or too long; or -3, -4, -6. After a
 * text that is too long the kept reply is empty. */
MAIL_API int32_t SMTP_MAIL(int32_t sock, const char* sender, const char* recipients,
                           uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_startData - DATA (RFC 5321 4.1.1.4), budget ulDataTimeOut.
 *   sock, err  as in the head of this file
 * Returns 0; -24 not answered with 3xx; or -3, -4, -6. */
MAIL_API int32_t SMTP_startData(int32_t sock, uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_endData - end of the message: CR LF . CR LF, budget ulEndDataTimeOut.
 *   sock, err  as in the head of this file
 * Returns 0: the server has the mail; -25 refused; or -3, -4, -6: it may have it. */
MAIL_API int32_t SMTP_endData(int32_t sock, uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_RSET - abort the mail transaction (RFC 5321 4.1.1.5). The running budget starts again.
 *   sock, err  as in the head of this file
 * Returns 0; -27 refused; or -3, -4, -6. */
MAIL_API int32_t SMTP_RSET(int32_t sock, uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_QUIT - end the session (RFC 5321 4.1.1.10), budget 300 seconds.
 *   sock, err  as in the head of this file; without an answer err is that of reading it
 * Returns 0 whatever the answer, also without one; -3 or -6 when QUIT could not be sent. */
MAIL_API int32_t SMTP_QUIT(int32_t sock, uint32_t* err) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

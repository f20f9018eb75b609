/* smtp.h - SMTP client: connection, line transport, time budgets, commands (RFC 5321).
 *
 * One conversation at a time per process: buffers and budgets are shared. Order of calls:
 * SMTP_connect, SMTP_initialize, then for each mail SMTP_MAIL, SMTP_startData, the message,
 * SMTP_endData (SMTP_RSET before another mail), SMTP_QUIT, and the caller closes the descriptor,
 * also after a failure: no call here closes a connected one. Plain IPv4, no TLS.
 *
 * Results of all calls that talk to the server:
 *     0  success          -3  send failed
 *    -6  budget spent     -4  receiving failed, or the server closed the connection
 *   and the refusals named at each call. A refused reply is kept for SMTP_GetSmtpSvResponce.
 *   Only the first digit of a reply's last line is judged.
 * The error word `err` (may be null) receives the errno of the failing call, 0 after success and
 * after a refusal; after -6 it says nothing. SIGPIPE is never raised; interrupted calls are
 * repeated (a send at most five times).
 * Blocking: each command, and each line of a reply, ends when the running budget is spent; but a
 * server that sends without an end meets no time-out. The clock is that of time(), in seconds. */
#ifndef OVRMAIL_SMTP_H
#define OVRMAIL_SMTP_H

#include <sys/time.h>
#include <time.h>

#include "mail_types.h"

MAIL_BEGIN_DECLS

/* Budgets of the phases, in seconds. Set through SMTP_SetTimeOutInfo; at first 300, 300, 300, 120,
 * 180, 600. */
extern MAIL_API MailTimeout g_stMailTimeout;

/* The running budget in seconds, taken as signed, and when it began. At first 0. */
extern MAIL_API uint32_t g_ulTimeOut;
extern MAIL_API time_t g_tStartTime;

/* SMTP_connect - open the connection to the mail server.
 *   server  host name or dotted IPv4 address
 *   port    TCP port (low 16 bits); 0: service "SMTP", else "smtp", of the services database,
 *           else 25
 *   err     out: errno, or for -5 the resolver's error (h_errno); untouched on success
 * Installs the budget ulConnectTimeOut, which goes on to cover SMTP_initialize.
 * Returns the descriptor (close-on-exec, owned by the caller); -1 no socket; -2 not connected;
 *   -5 name not resolved (also when its host entry does not fit in 1,024 bytes).
 * Blocks in the resolver and in connect() as long as the system lets them; a refused connection
 * is tried 6 times and a temporary resolver failure 5 times, one second apart. */
MAIL_API int32_t SMTP_connect(const char* server, uint32_t port, uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_send, SMTP_send2 - send all of a buffer; SMTP_send is SMTP_send2 with a flag of 1.
 *   buf, len    the bytes; not empty (an empty buffer fails with -3)
 *   trace_flag  1: the trace may keep the bytes; any other value: it may not (credentials)
 * Returns 0, -3, -6. Does not start the clock: the budget is what is left of the running one. */
MAIL_API int32_t SMTP_send(int32_t sock, const char* buf, int32_t len, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_send2(int32_t sock, const char* buf, int32_t len, uint32_t* err,
                            int32_t trace_flag) MAIL_NOEXCEPT;

/* SMTP_recv - read one reply line.
 *   buf, size  out: the line with its CR LF; all `size` bytes are cleared first. A line of `size`
 *              bytes or more is handed out in parts, which have no NUL and no CR LF.
 * Returns 0, -4, -6. Nothing behind the line is taken from the socket. Every wait within the line
 * is what was left of the budget when it began. */
MAIL_API int32_t SMTP_recv(int32_t sock, char* buf, int32_t size, uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_returnMessage - read a whole reply (RFC 5321 4.2.1); `buf` keeps its last line.
 * Arguments, results and bounds as SMTP_recv, for each line. */
MAIL_API int32_t SMTP_returnMessage(int32_t sock, char* buf, int32_t size,
                                    uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_GetSmtpSvResponce - copy the last reply line of the conversation.
 *   dst  out: 256 bytes; at most 255 characters, then NULs; null: nothing is done */
MAIL_API void SMTP_GetSmtpSvResponce(char* dst) MAIL_NOEXCEPT;

/* SMTP_SetTimeOutInfo - set the budgets of the phases; taken as they are. Null: no change. */
MAIL_API void SMTP_SetTimeOutInfo(const MailTimeout* values) MAIL_NOEXCEPT;

/* SMTP_SetTimeOut - install a budget in seconds, without starting its clock. */
MAIL_API void SMTP_SetTimeOut(uint32_t seconds) MAIL_NOEXCEPT;

/* SMTP_SetStartTime - start the clock of the running budget. */
MAIL_API void SMTP_SetStartTime(void) MAIL_NOEXCEPT;

/* SMTP_CheckOverTimeOut - 0 while time is left, -6 when the budget is spent (elapsed >= budget).
 * A clock that was set back starts the budget again. */
MAIL_API int32_t SMTP_CheckOverTimeOut(void) MAIL_NOEXCEPT;

/* SMTP_GetSelectTimeOut - what is left of the budget, never negative.
 *   tv  out: whole seconds; null: nothing is stored */
MAIL_API void SMTP_GetSelectTimeOut(struct timeval* tv) MAIL_NOEXCEPT;

/* SMTP_GetTimeDifference - hours that the local zone is ahead of UTC (negative: behind), without
 * summer time, half hours cut off towards zero. Reads TZ as tzset() does. */
MAIL_API int32_t SMTP_GetTimeDifference(void) MAIL_NOEXCEPT;

/* SMTP_initialize - read the greeting, say EHLO (or HELO where EHLO is refused), authenticate.
 *   auth  null, or an option of kind MAIL_AUTH_SMTP with a MailAuthAccount; other kinds mean none
 * Runs on the budget of SMTP_connect; the clock starts again with each command and reply line.
 * Returns 0;
 *     2  no authentication: HELO only, no AUTH line or no mechanism in common
 *     3  every mechanism in common was refused
 *    -5  no local host name; -21 HELO refused; -26 greeting refused; or -3, -4, -6.
 * After 2 and 3 the connection is usable. RFC 4954; PLAIN (RFC 4616), LOGIN, CRAM-MD5 (RFC 2195).
 * Passwords reach neither mail log nor trace. */
MAIL_API int32_t SMTP_initialize(int32_t sock, const MailEntry* auth, uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_MAIL - MAIL FROM and one RCPT TO for each recipient (RFC 5321 4.1.1.2, 4.1.1.3).
 *   sender      address without brackets, up to 4,089 characters; null or "": the null sender
 *   recipients  addresses without brackets, up to 307 characters each, separated by commas and
 *               taken as they stand: no blank is trimmed, and an empty one is sent as "<>"; null
 *               is ""
 * The texts must hold no CR or LF. Budgets ulMailFromTimeOut, then ulRcptToTimeOut for each
 * recipient. Returns 0; -22 sender refused or too long; -23 a recipient refused (the following
 * are not sent) or too long; or -3, -4, -6. After a text too long the kept reply is empty. */
MAIL_API int32_t SMTP_MAIL(int32_t sock, const char* sender, const char* recipients,
                           uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_startData - DATA (RFC 5321 4.1.1.4), budget ulDataTimeOut.
 * Returns 0; -24 not answered with 3xx; or -3, -4, -6. */
MAIL_API int32_t SMTP_startData(int32_t sock, uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_endData - end of the message: CR LF . CR LF, budget ulEndDataTimeOut.
 * Returns 0: the server has the mail; -25 refused; or -3, -4, -6. */
MAIL_API int32_t SMTP_endData(int32_t sock, uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_RSET - abort the mail transaction (RFC 5321 4.1.1.5). The running budget starts again.
 * Returns 0; -27 refused; or -3, -4, -6. */
MAIL_API int32_t SMTP_RSET(int32_t sock, uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_QUIT - end the session (RFC 5321 4.1.1.10), budget 300 seconds.
 * Returns 0 whatever the answer, also without one (`err` is then that of the read); -3 or -6 when
 * it could not be sent. */
MAIL_API int32_t SMTP_QUIT(int32_t sock, uint32_t* err) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

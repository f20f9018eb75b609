/* pop3.h - POP3 session of POP before SMTP (RFC 1939).
 *
 * Order of calls: Pop3_SetTimeOut, Pop3_Connect, Pop3_Login, Pop3_STAT, Pop3_Logout; then the
 * caller closes the descriptor, also after a failure: no call here closes a connected one.
 *
 * Results of the calls that talk to the server:
 *     0  the server answered +OK
 *    -1  send or receive failed, or the server closed the connection; errno in `err`
 *   -17  the command or its reply line took longer than the time-out
 *   and the refusal named at each call; then `error_text` holds the server's line.
 * Arguments of those calls:
 *   sock        descriptor from Pop3_Connect; stays open, whatever happens, and is the caller's
 *   error_text  null, or out, 256 bytes: the refusing reply, cut to 255 bytes, raw: with its CR LF
 *               and any control bytes; empty in all other cases
 *   err         null, or out: errno of the failing call, 0 when the server has closed the
 *               connection; untouched by success, refusals and time-outs
 *   trace       null, or a ring from Topen
 * The password reaches neither trace nor mail log, but goes to the server unencrypted. SIGPIPE is
 * never raised; interrupted calls are repeated. */
#ifndef OVRMAIL_POP3_H
#define OVRMAIL_POP3_H

#include "mail_types.h"
#include "trace.h"

MAIL_BEGIN_DECLS

/* Seconds that one command, and one reply line, may take. At first 60. */
extern MAIL_API uint32_t g_ulPopTimeOut;

/* Pop3_Connect - open the connection to the POP3 server.
 *   host   host name or dotted IPv4 address; null is ""
 *   port   TCP port (low 16 bits); 0: service "pop3" of the services database, else 110
 *   err    null, or out: errno, or for -11 the resolver's error (h_errno); untouched on success
 *   trace  null, or a ring from Topen
 * Returns the descriptor (close-on-exec, owned by the caller); -1 no socket; -2 not connected;
 *   -11 name not resolved.
 * Blocks in the resolver and in connect() as long as the system lets them; a refused connection
 * is tried 7 times and a temporary resolver failure 5 times, one second apart. */
MAIL_API int32_t Pop3_Connect(const char* host, uint32_t port, uint32_t* err,
                              TraceHandle* trace) MAIL_NOEXCEPT;

/* Pop3_Login - read the greeting, then USER and PASS.
 *   sock, error_text, err, trace  as in the head of this file
 *   user, password  up to 1,020 bytes without CR or LF, which would start a command of their own;
 *                   longer ones count as refused, with an empty error_text; null is ""
 * Refusals: -2 greeting, -3 user name, -4 password. */
MAIL_API int32_t Pop3_Login(int32_t sock, const char* user, const char* password, char* error_text,
                            uint32_t* err, TraceHandle* trace) MAIL_NOEXCEPT;

/* Pop3_STAT - STAT; the counts are not looked at. Refusal: -5.
 *   sock, error_text, err, trace  as in the head of this file */
MAIL_API int32_t Pop3_STAT(int32_t sock, char* error_text, uint32_t* err,
                           TraceHandle* trace) MAIL_NOEXCEPT;

/* Pop3_Logout - QUIT. Refusal: -8.
 *   sock, error_text, err, trace  as in the head of this file */
MAIL_API int32_t Pop3_Logout(int32_t sock, char* error_text, uint32_t* err,
                             TraceHandle* trace) MAIL_NOEXCEPT;

/* Pop3_SetTimeOut - set g_ulPopTimeOut.
 *   seconds  its value, not checked
 *   trace    null, or a ring from Topen */
MAIL_API void Pop3_SetTimeOut(uint32_t seconds, TraceHandle* trace) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

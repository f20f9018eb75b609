/* mail_api.h - send one mail; ask what the installation can send. */
#ifndef OVRMAIL_MAIL_API_H
#define OVRMAIL_MAIL_API_H

#include "mail_types.h"
#include "trace.h"

MAIL_BEGIN_DECLS

/* OvRm_SendEMail - send one mail, now, through one SMTP server (RFC 5321, RFC 5322, RFC 2045).
 *   recipients       list of entries; the first alone is used: kind MAIL_KIND_RECIPIENT, value one
 *                    or more addresses separated by commas, 1 to 256 characters in all
 *   recipient_count  1 or more; above 1 counts as 1
 *   parts            entry 0: MAIL_KIND_BODY (value may be null: no text); then the attachments,
 *                    or MAIL_KIND_PREPARED alone or with MAIL_KIND_PREPARED_HEADER
 *   part_count       1 or more; 2 or 3 for a prepared message
 *   sender           address, 1 to 256 characters
 *   subject          0 to 64 characters; a line break in it becomes a blank
 *   server           host name or dotted IPv4 address, 1 to 256 characters
 *   partial_flag     1: a mail whose size exceeds the split size goes out as message/partial
 *                    pieces (RFC 2046 5.2.2), each a mail of its own; 0: always one mail.
 *                    Must be 0 for a prepared message
 *   split            piece size and port; null: 64 KiB, port 0
 *   time_out         six time budgets; null: the defaults of RFC 5321 4.5.3.2
 *   auth             null, or a kind of MAIL_AUTH_ with its account
 *   detail           out: at least 256 bytes; a NUL-terminated text, empty after success. Which
 *                    failure leaves what: at the result codes in mail_types.h
 * No text may be a null pointer but the body. Addresses must hold no CR and no LF.
 *
 * Text is EUC-JP when the locale of the process (all categories, as setlocale tells it) is an EUC
 * locale of Japan, else Shift_JIS or ASCII; on the wire it is ISO-2022-JP.
 *
 * A prepared message is sent as stored: the caller ends its lines with LF alone, which becomes
 * CR LF (CR LF would become CR CR LF), and doubles the dot at the start of a line
 * (RFC 5321 4.5.2), which the library does not do for it. A prepared header ends with the headers
 * that belong to the content, or with the empty line.
 *
 * Returns a result code of mail_types.h: 0 and above when the server has the mail. MAIL_E_BUSY
 * when another send runs in this process: then nothing was touched. Files of kind
 * MAIL_KIND_ATTACHMENT_TEMP are deleted after success only, so that a failed call can be repeated.
 *
 * Reads trc_conf and rmmail.ini in /etc/opt/Quorvin. Needs the directory tmp of /var/opt/Quorvin
 * for its working files, which end with the call; writes to the directories log and tmp2 there if
 * they exist. Memory stays with the caller; nothing is kept after the call. The process's signal
 * dispositions are never touched, and no call raises SIGPIPE.
 *
 * Blocks until the mail is sent or has failed: each wait for the server is bounded by the time
 * budget of its step; the connection attempt by the system, with 5 pauses of a second while the
 * server refuses; POP before SMTP by its own time-out and wait. A server that keeps sending
 * a reply that never ends is not bounded. One send at a time: of threads that enter at the same
 * moment one sends. Cancellation of the thread takes effect after the call. */
MAIL_API int32_t OvRm_SendEMail(const MailEntry* recipients, uint32_t recipient_count,
                                const MailEntry* parts, uint32_t part_count, const char* sender,
                                const char* subject, const char* server, uint32_t partial_flag,
                                const MailSplitOption* split, const MailTimeout* time_out,
                                const MailEntry* auth, char* detail) MAIL_NOEXCEPT;

/* OvRm_SendEMailPartial_parts - the same send without trace, mail log and busy check of its own.
 *   unused    0
 *   work_dir  existing directory for the working files; its name, a slash and the name of a file
 *             (a prefix of 3, process id, hyphen, thread id) fit 1,024 characters
 * The other arguments and the results are those of OvRm_SendEMail, without MAIL_E_BUSY. Traces and
 * logs through g_trace and g_pLogHandle, which the caller has opened or set to null. Must not run
 * while another send runs in the process. */
MAIL_API int32_t OvRm_SendEMailPartial_parts(uint32_t unused, const MailEntry* recipients,
                                             uint32_t recipient_count, const MailEntry* parts,
                                             uint32_t part_count, const char* sender,
                                             const char* subject, const char* server,
                                             uint32_t partial_flag, const MailSplitOption* split,
                                             const MailTimeout* time_out, const MailEntry* auth,
                                             char* detail, const char* work_dir) MAIL_NOEXCEPT;

/* OvRm_GetStatusDovrin, OvRm_GetStatusDovrin2 - what the installation can send.
 *   status  out: status word, made from the start type of the agent's installation record
 *   err     out: 0, or errno of what failed in the system
 *   trace   open trace or null; the first function opens and closes one of its own, as section
 *           "AGETS" of trc_conf says
 * Start type bit 0x1 sets status bits 0x101, 0x100 sets 0x100301, 0x1000 clears 0x1 and sets
 * 0x100302; 0x10000 is always set. Where bit 0x1000 is there and the management product cannot be
 * read or is too old, 0x100202 are cleared and 0x1 is set.
 * Returns 0; -2 when the agent's record cannot be read (status untouched), or start type bit
 * 0x10000 requires the management product and it is missing or too old (status set); -3 for a
 * null status or err. A running send does not refuse it. */
MAIL_API int32_t OvRm_GetStatusDovrin(uint32_t* status, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t OvRm_GetStatusDovrin2(uint32_t* status, uint32_t* err,
                                       TraceHandle* trace) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

/* mail_api.h - send one mail; ask what the installation can send. */
#ifndef OVRMAIL_MAIL_API_H
#define OVRMAIL_MAIL_API_H

#include "mail_types.h"
#include "trace.h"

MAIL_BEGIN_DECLS

/* OvRm_SendEMail - send one mail, now, through one SMTP server (RFC 5321, RFC 5322, RFC 2045).
 *   recipients       list of entries; the first alone is used: kind MAIL_KIND_RECIPIENT, value one
 *                    or more addresses separated by commas, 1 to 256 bytes in all
 *   recipient_count  1 or more; above 1 counts as 1
 *   parts            entry 0: MAIL_KIND_BODY (value may be null: no text); then the attachments,
 *                    or MAIL_KIND_PREPARED alone or with MAIL_KIND_PREPARED_HEADER. Attachments and
 *                    prepared files must be regular files
 *   part_count       1 or more; 2 or 3 for a prepared message
 *   sender           address, 1 to 256 bytes
 *   subject          0 to 64 bytes (32 Japanese characters); CR and LF in it become blanks
 *   server           host name or dotted IPv4 address, 1 to 256 bytes
 *   partial_flag     1: a mail whose size exceeds the split size goes out as message/partial
 *                    pieces (RFC 2046 5.2.2), each a mail of its own; 0: always one mail.
 *                    Must be 0 for a prepared message
 *   split            piece size and port; null: 64 KiB, port 0
 *   time_out         six time budgets; null: the defaults of RFC 5321 4.5.3.2
 *   auth             null, or a kind of MAIL_AUTH_ with its account
 *   detail           out: at least 256 bytes; a text with a NUL, empty after success. It is raw and
 *                    may hold control bytes. mail_types.h says at the result codes which failure
 *                    leaves what, and when it is untouched
 * No text may be a null pointer but the body. The limits of subject and body are those of the texts
 * as they are given.
 *
 * Addresses are the caller's to check. The library refuses CR and LF in them and looks at nothing
 * else. An address is put between "<" and ">" into a command, and as it is into a header field. A
 * ">" or a blank can add parameters to the command, a comma makes two addresses of one, and other
 * control bytes reach the server and the mail log. An address that comes from outside must be
 * refused when it holds one of these. The name of an attached file goes into the header as it is,
 * too, with CR and LF made blanks: a quote in it ends the name there.
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
 * Before a repeat after MAIL_E_TIMEOUT or MAIL_E_SYSTEM read the comment at the result codes.
 *
 * Reads trc_conf and rmmail.ini in /etc/opt/Quorvin. Needs the directory tmp of /var/opt/Quorvin
 * for its working files, which end with the call; writes to the directories log and tmp2 there if
 * they exist. Memory stays with the caller; nothing is kept after the call. The process's signal
 * dispositions are never touched, and no call raises SIGPIPE.
 *
 * Blocks until the mail is sent or has failed: each wait for the server is bounded by the time
 * budget of its step; the look-up of a name by the resolver, 5 times with a second between while it
 * asks to try again; the connection attempt by the system, with 5 pauses of a second while the
 * server refuses; POP before SMTP by its own time-out and wait. A reply that never ends is not
 * bounded. One send at a time: of threads that enter at the same moment one sends. Cancellation of
 * the thread takes effect after the call. */
MAIL_API int32_t OvRm_SendEMail(const MailEntry* recipients, uint32_t recipient_count,
                                const MailEntry* parts, uint32_t part_count, const char* sender,
                                const char* subject, const char* server, uint32_t partial_flag,
                                const MailSplitOption* split, const MailTimeout* time_out,
                                const MailEntry* auth, char* detail) MAIL_NOEXCEPT;

/* OvRm_SendEMailPartial_parts - the same send without trace, mail log and busy check of its own.
 *   unused    not used; 0
 *   work_dir  existing directory for the working files; its path, a slash and the name of a file
 *             (3 letters, process id, hyphen, thread id) have at most 1,024 bytes together
 * As for OvRm_SendEMail: recipients, recipient_count, parts, part_count, sender, subject, server,
 * partial_flag, split, time_out, auth, detail, and the results, without MAIL_E_BUSY. Trace and log
 * go to g_trace and g_pLogHandle, which the caller has opened or set to null. Must not run while
 * another send runs in the process. */
MAIL_API int32_t OvRm_SendEMailPartial_parts(uint32_t unused, const MailEntry* recipients,
                                             uint32_t recipient_count, const MailEntry* parts,
                                             uint32_t part_count, const char* sender,
                                             const char* subject, const char* server,
                                             uint32_t partial_flag, const MailSplitOption* split,
                                             const MailTimeout* time_out, const MailEntry* auth,
                                             char* detail, const char* work_dir) MAIL_NOEXCEPT;

/* OvRm_GetStatusDovrin, OvRm_GetStatusDovrin2 - what the installation can send.
 *   status  out: status word, made from the start type of the agent's installation record
 *   err     out, must not be null: 0, or errno of what failed in the system
 *   trace   open trace ring or null; the first function has no such argument: it opens and closes a
 *           ring of its own, as section "AGETS" of trc_conf says
 * Start type bit 0x1 sets status bits 0x101, 0x100 sets 0x100301, 0x1000 clears 0x1 and sets
 * 0x100302; 0x10000 is always set. Where bit 0x1000 is there and the management product cannot be
 * read or is too old, 0x100202 are cleared, 0x1 is set and the result is 0.
 * Returns 0; -2 when the agent's record cannot be read (status untouched), or start type bit
 * 0x10000 without 0x1000 requires the management product and it is missing or too old (status
 * set); -3 for a null status or err. May be called while a send runs. */
MAIL_API int32_t OvRm_GetStatusDovrin(uint32_t* status, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t OvRm_GetStatusDovrin2(uint32_t* status, uint32_t* err,
                                       TraceHandle* trace) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

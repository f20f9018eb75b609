/* mail_api.h - send one mail; ask what the installation can send. */
#ifndef OVRMAIL_MAIL_API_H
#define OVRMAIL_MAIL_API_H

#include "mail_types.h"
#include "trace.h"

MAIL_BEGIN_DECLS

MAIL_API int32_t OvRm_SendEMail(const MailEntry* recipients, uint32_t recipient_count,
                                const MailEntry* parts, uint32_t part_count, const char* sender,
                                const char* subject, const char* server, uint32_t partial_flag,
                                const MailSplitOption* split, const MailTimeout* time_out,
                                const MailEntry* auth, char* detail) MAIL_NOEXCEPT;
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

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
MAIL_API int32_t OvRm_GetStatusDovrin(uint32_t* status, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t OvRm_GetStatusDovrin2(uint32_t* status, uint32_t* err,
                                       TraceHandle* trace) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

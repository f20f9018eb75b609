/* inst_info.h - installation records of the agent and of the management product. */
#ifndef OVRMAIL_INST_INFO_H
#define OVRMAIL_INST_INFO_H

#include "mail_types.h"

MAIL_BEGIN_DECLS

typedef struct MailInstInfo {
    uint32_t ulMajorVersion;          /* DM_MajorVersion */
    uint32_t ulLevel;                 /* DM_MajorLevel */
    uint32_t ulMinorVersion;          /* DM_MinorVersion */
    uint32_t ulCompanionMajorVersion; /* QXACS_MajorVersion */
    uint32_t ulCompanionLevel;        /* QXACS_MajorLevel */
    uint32_t ulCompanionMinorVersion; /* QXACS_MinorVersion */
    char szInstallDir[261];
    char szConfigDir[261];
    char szDataDir[261];
    char szPartnerInstallDir[261];
    char szPartnerConfigDir[261];
    char szPartnerDataDir[261];
    uint32_t ulAddon;     /* DM_Addon */
    uint32_t ulStartType; /* DM_Start */
} MailInstInfo;

MAIL_API int32_t Info_GetDovrinInstInfo(MailInstInfo* info, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t Info_GetKorvantaInstInfo(MailInstInfo* info, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t Info_CheckKorvantaVersion(const MailInstInfo* info) MAIL_NOEXCEPT;
MAIL_API int32_t Info_SetDovrinInstInfo(const MailInstInfo* info, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t Info_SetDovrinStartType(MailInstInfo* info, uint32_t start_type,
                                         uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t Info_SetDovrinInstallType(uint32_t addon, uint32_t* err) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

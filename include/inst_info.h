/* inst_info.h - installation records of the agent and of the management product.
 *
 * They are kept in profile files (profile.h), numbers as hexadecimal texts:
 *   /opt/Quorvin/etc/Dovrin.reg      version and add-on of the agent
 *   /opt/Quorvin/etc/korvanta.reg    start type and companion version
 *   /opt/korvanta/etc/korvanta.reg   version of the management product
 * Arguments of several functions:
 *   info  the caller's record
 *   err   null, or out: errno of what failed in the system, EINVAL for a null record; else it is
 *         untouched
 * All functions return 0; -1 when memory for a profile runs out, when a setter finds a file that it
 * cannot read, or for a null record; -2 when a key is missing, as in a missing file, or the file
 * could not be written.
 * A setter rewrites each file wholly or leaves it as it was, on a full disk as well;
 * Com_ClosePrivateProfile2 says how and with which exceptions. Comments and empty sections are
 * lost. Two processes must not set at the same time; the callers see to that. */
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

/* Info_GetDovrinInstInfo - the agent: version, add-on, directories, start type and, where it is
 * stored, the companion version.
 *   info  out; cleared first; a failure leaves what was read
 *   err   as in the head of this file */
MAIL_API int32_t Info_GetDovrinInstInfo(MailInstInfo* info, uint32_t* err) MAIL_NOEXCEPT;

/* Info_GetKorvantaInstInfo - the management product: version and directories.
 *   info  out; not cleared, other fields stay
 *   err   as in the head of this file */
MAIL_API int32_t Info_GetKorvantaInstInfo(MailInstInfo* info, uint32_t* err) MAIL_NOEXCEPT;

/* Info_CheckKorvantaVersion - whether the management product is recent enough.
 *   info  record from Info_GetKorvantaInstInfo; null counts as too old
 * Returns 0 when its version is 5.0 level 30 or later, else -1. */
MAIL_API int32_t Info_CheckKorvantaVersion(const MailInstInfo* info) MAIL_NOEXCEPT;

/* Info_SetDovrinInstInfo - write the add-on, then the start type and the companion version. When
 * the second file fails the first stays written.
 *   info  what to write
 *   err   as in the head of this file */
MAIL_API int32_t Info_SetDovrinInstInfo(const MailInstInfo* info, uint32_t* err) MAIL_NOEXCEPT;

/* Info_SetDovrinStartType - store a start type in the record, copy the record's version into its
 * companion version, and write both.
 *   info        in, out: changed even when the file cannot be written
 *   start_type  the start type
 *   err         as in the head of this file */
MAIL_API int32_t Info_SetDovrinStartType(MailInstInfo* info, uint32_t start_type,
                                         uint32_t* err) MAIL_NOEXCEPT;

/* Info_SetDovrinInstallType - write the add-on.
 *   addon  its value
 *   err    as in the head of this file */
MAIL_API int32_t Info_SetDovrinInstallType(uint32_t addon, uint32_t* err) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

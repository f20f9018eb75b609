/* profile.h - INI-style profile files. */
#ifndef OVRMAIL_PROFILE_H
#define OVRMAIL_PROFILE_H

#include "mail_types.h"

MAIL_BEGIN_DECLS

typedef struct MailProfile MailProfile;

MAIL_API MailProfile* Com_OpenPrivateProfile(const char* path, uint32_t flags) MAIL_NOEXCEPT;
MAIL_API MailProfile* Com_OpenPrivateProfile2(const char* path, uint32_t flags,
                                              uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t Com_ClosePrivateProfile(MailProfile* profile, const char* path) MAIL_NOEXCEPT;
MAIL_API int32_t Com_ClosePrivateProfile2(MailProfile* profile, const char* path,
                                          uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t Com_GetPrivateProfileString(const MailProfile* profile, const char* section,
                                             const char* key, const char* fallback, char* buffer,
                                             uint32_t size) MAIL_NOEXCEPT;
MAIL_API int32_t Com_GetPrivateProfileInt(const MailProfile* profile, const char* section,
                                          const char* key, int32_t fallback,
                                          const char* path) MAIL_NOEXCEPT;
MAIL_API int32_t Com_GetPrivateProfileIntHex(const MailProfile* profile, const char* section,
                                             const char* key, int32_t fallback,
                                             const char* path) MAIL_NOEXCEPT;
MAIL_API int32_t Com_WritePrivateProfileString(MailProfile* profile, const char* section,
                                               const char* key, const char* value) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

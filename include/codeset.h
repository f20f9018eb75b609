/* codeset.h - EUC-JP and Shift_JIS conversion, and the locale names that mean one of them. */
#ifndef OVRMAIL_CODESET_H
#define OVRMAIL_CODESET_H

#include "mail_types.h"

MAIL_BEGIN_DECLS

/* One locale name. kind 1: compared exactly; 2: ignoring letter case; 0: end of the table. */
typedef struct MailLangInfo {
    int32_t kind;
    char name[32];
} MailLangInfo;

extern MAIL_API const MailLangInfo stEucLangInfo[9];
extern MAIL_API const MailLangInfo stSjisLangInfo[5];

MAIL_API int32_t Cnv_open(const char* from_code, const char* to_code) MAIL_NOEXCEPT;
MAIL_API int32_t Cnv_euctosjis(int32_t handle, int32_t in_length, const char* in, int32_t out_size,
                               char* out, int32_t* out_length) MAIL_NOEXCEPT;
MAIL_API int32_t Cnv_sjistoeuc(int32_t handle, int32_t in_length, const char* in, int32_t out_size,
                               char* out, int32_t* out_length) MAIL_NOEXCEPT;
MAIL_API int32_t Cnv_tocode(const char* text, char* out) MAIL_NOEXCEPT;
MAIL_API int32_t Cnv_close(int32_t handle) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

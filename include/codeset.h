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

/* Locale names that mean text in EUC-JP, and in Shift_JIS. */
extern MAIL_API const MailLangInfo stEucLangInfo[9];
extern MAIL_API const MailLangInfo stSjisLangInfo[5];

/* Cnv_open - open a converter.
 *   from_code, to_code  "eucJP" or "SJIS", exactly so; both may be the same
 * Up to 1,024 may be open at once, in any threads; one converter serves one thread at a time.
 * Returns a handle above 0, to be closed by Cnv_close; -1 for another name, or when there is no
 * converter. */
MAIL_API int32_t Cnv_open(const char* from_code, const char* to_code) MAIL_NOEXCEPT;

/* Cnv_euctosjis, Cnv_sjistoeuc - convert a text with a handle of the matching direction.
 *   in_length   bytes of in
 *   out_size    bytes of out; no NUL is added
 *   out_length  out: bytes placed in out; may be null; untouched with -1
 * The result ends before its first NUL. When the text turns out invalid, incomplete or longer than
 * out_size, out receives what was converted before, or, if that is nothing, the remaining input in
 * hexadecimal, as much of it as fits.
 * Returns the bytes placed in out; -1 a null text, no such handle, no memory; -2 stopped early. */
MAIL_API int32_t Cnv_euctosjis(int32_t handle, int32_t in_length, const char* in, int32_t out_size,
                               char* out, int32_t* out_length) MAIL_NOEXCEPT;
MAIL_API int32_t Cnv_sjistoeuc(int32_t handle, int32_t in_length, const char* in, int32_t out_size,
                               char* out, int32_t* out_length) MAIL_NOEXCEPT;

/* Cnv_tocode - write each byte of a text as two lower-case hexadecimal digits.
 *   out  2 * strlen(text) + 1 bytes, NUL-terminated
 * Returns the length of text. */
MAIL_API int32_t Cnv_tocode(const char* text, char* out) MAIL_NOEXCEPT;

/* Cnv_close - close a converter. -1, which is no handle, is accepted.
 * Returns 0, or -1 with EBADF for a handle that is not open. */
MAIL_API int32_t Cnv_close(int32_t handle) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

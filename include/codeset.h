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
 *   handle      from Cnv_open
 *   in_length   bytes of in, 0 or more
 *   in          the text; needs no NUL
 *   out_size    bytes of room in out; below 0 counts as 0
 *   out         out: the converted text; no NUL is added
 *   out_length  null, or out: bytes placed in out; untouched with -1
 * The result ends before its first NUL. Where the text is invalid, incomplete or longer than
 * out_size, the conversion stops: out receives what was converted before that, or, if that is
 * nothing, the rest of the input in hexadecimal, as much of it as fits.
 * Returns the bytes placed in out; -1 for a null text, an in_length below 0, a handle that is not
 * open, or no memory; -2 stopped, out_length tells how many bytes out has. */
MAIL_API int32_t Cnv_euctosjis(int32_t handle, int32_t in_length, const char* in, int32_t out_size,
                               char* out, int32_t* out_length) MAIL_NOEXCEPT;
MAIL_API int32_t Cnv_sjistoeuc(int32_t handle, int32_t in_length, const char* in, int32_t out_size,
                               char* out, int32_t* out_length) MAIL_NOEXCEPT;

/* Cnv_tocode - write each byte of a text as two lower-case hexadecimal digits.
 *   text  null counts as empty
 *   out   out, 2 * strlen(text) + 1 bytes, ends with NUL; null: nothing is written
 * Returns the length of text; 0 for a null out. */
MAIL_API int32_t Cnv_tocode(const char* text, char* out) MAIL_NOEXCEPT;

/* Cnv_close - close a converter.
 *   handle  from Cnv_open; -1, which Cnv_open returns for none, is accepted
 * Returns 0, or -1 with EBADF for a handle that is not open. */
MAIL_API int32_t Cnv_close(int32_t handle) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

/* md5.h - the MD5 message digest (RFC 1321). */
#ifndef OVRMAIL_MD5_H
#define OVRMAIL_MD5_H

#include "mail_types.h"

MAIL_BEGIN_DECLS

typedef struct MailMd5Context {
    uint32_t state[4];        /* chaining values A, B, C, D */
    uint32_t count[2];        /* bits hashed so far, low word first */
    unsigned char buffer[64]; /* input not yet hashed */
} MailMd5Context;

MAIL_API void MD5Init(MailMd5Context* context) MAIL_NOEXCEPT;
MAIL_API void MD5Update(MailMd5Context* context, const unsigned char* input,
                        uint32_t length) MAIL_NOEXCEPT;
MAIL_API void MD5Final(unsigned char digest[16], MailMd5Context* context) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

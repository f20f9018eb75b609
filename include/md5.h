/* md5.h - the MD5 message digest (RFC 1321). For protocols that demand it; it protects nothing.
 *
 * The context belongs to the caller; separate contexts may be used by separate threads. A null
 * pointer is ignored. No call fails or blocks. */
#ifndef OVRMAIL_MD5_H
#define OVRMAIL_MD5_H

#include "mail_types.h"

MAIL_BEGIN_DECLS

typedef struct MailMd5Context {
    uint32_t state[4];        /* chaining values A, B, C, D */
    uint32_t count[2];        /* bits hashed so far, low word first */
    unsigned char buffer[64]; /* input not yet hashed */
} MailMd5Context;

/* MD5Init - begin a digest.
 *   context  out: the state of the digest */
MAIL_API void MD5Init(MailMd5Context* context) MAIL_NOEXCEPT;

/* MD5Update - hash more bytes.
 *   context  in, out: the state of the digest
 *   input    the bytes
 *   length   their number */
MAIL_API void MD5Update(MailMd5Context* context, const unsigned char* input,
                        uint32_t length) MAIL_NOEXCEPT;

/* MD5Final - end the digest.
 *   digest   out: 16 bytes
 *   context  in: the state of the digest; out: cleared to zero */
MAIL_API void MD5Final(unsigned char digest[16], MailMd5Context* context) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif

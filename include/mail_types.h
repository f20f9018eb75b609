/* mail_types.h - records, constants and declaration macros shared by every public header.
 *
 * All integers are 32 bits wide unless a field says otherwise. Records hold exactly the fields
 * listed, naturally aligned, without packing. Texts end with NUL. Lengths and limits of texts are
 * bytes, without the NUL: a Japanese character has two of them in Shift_JIS and in EUC-JP. */
#ifndef OVRMAIL_MAIL_TYPES_H
#define OVRMAIL_MAIL_TYPES_H

#include <stdint.h>

#if defined(__GNUC__)
#define MAIL_API __attribute__((visibility("default")))
#define MAIL_CHECKED __attribute__((warn_unused_result))
#else
#define MAIL_API
#define MAIL_CHECKED
#endif

#ifdef __cplusplus
#define MAIL_NOEXCEPT noexcept
#define MAIL_BEGIN_DECLS extern "C" {
#define MAIL_END_DECLS }
#else
#define MAIL_NOEXCEPT
#define MAIL_BEGIN_DECLS
#define MAIL_END_DECLS
#endif

MAIL_BEGIN_DECLS

/* Limits, in bytes without the NUL unless the line says otherwise. */
enum {
    MAIL_ADDRESS_MAX = 256,     /* sender; server; all recipients with their commas */
    MAIL_SUBJECT_MAX = 64,      /* subject: 32 Japanese characters */
    MAIL_BODY_MAX = 10238,      /* body text */
    MAIL_PATH_MAX = 1024,       /* path of an attachment or of a prepared file */
    MAIL_ACCOUNT_MAX = 64,      /* user name; password */
    MAIL_DETAIL_SIZE = 256,     /* the caller's detail buffer, with the NUL */
    MAIL_SPLIT_MIN = 10,        /* KiB of one piece */
    MAIL_SPLIT_MAX = 100,       /* KiB */
    MAIL_SPLIT_DEFAULT = 64,    /* KiB */
    MAIL_TIMEOUT_MIN = 60,      /* seconds of one time budget */
    MAIL_TIMEOUT_MAX = 3600,    /* seconds */
    MAIL_POP_WAIT_MAX = 3600000 /* milliseconds after the POP session */
};

/* Initialiser of a MailTimeout with the default budgets (RFC 5321 4.5.3.2). */
#define MAIL_TIMEOUT_DEFAULTS \
    { 300, 300, 300, 120, 180, 600 }

/* Kinds of a list entry. */
enum {
    MAIL_KIND_RECIPIENT = 1,  /* recipient list: addresses separated by commas, 1 to 256 bytes */
    MAIL_KIND_BODY = 2,       /* part list, index 0: body text, up to 10,238 bytes, or null */
    MAIL_KIND_ATTACHMENT = 3, /* part list: path of a regular file to attach, 1 to 1,024 bytes */
    MAIL_KIND_ATTACHMENT_TEMP = 4, /* the same; the file is deleted after a successful send */
    MAIL_KIND_PREPARED = 5,        /* part list, index 1: path of a prepared S/MIME content file */
    MAIL_KIND_PREPARED_HEADER = 6  /* part list, index 2 after kind 5: path of a prepared header */
};

/* Kinds of an authentication option. */
enum {
    MAIL_AUTH_POP_BEFORE_SMTP = 1, /* value: MailPopAccount */
    MAIL_AUTH_SMTP = 2             /* value: MailAuthAccount */
};

/* Mechanisms of SMTP AUTH that may be used, a bit set. Those that the server offers are tried in
 * the order CRAM-MD5, PLAIN, LOGIN until one succeeds. PLAIN and LOGIN send the password
 * unencrypted. Only mask 4 (MAIL_MECH_CRAM_MD5 alone) keeps the password off the wire: with any
 * other mask a server, or somebody in between, gets it in clear by leaving CRAM-MD5 out of the
 * reply to EHLO, or by refusing it. */
enum { MAIL_MECH_LOGIN = 1, MAIL_MECH_PLAIN = 2, MAIL_MECH_CRAM_MD5 = 4 };

/* One entry of the recipient list, of the part list, or the authentication option. */
typedef struct MailEntry {
    uint32_t kind;
    int32_t reserved;  /* not read; set it to 0 */
    const void* value; /* a text, or the detail record of an authentication option */
} MailEntry;

/* Split option. A null pointer selects { 64, 0 }. */
typedef struct MailSplitOption {
    int32_t lSplitSize; /* KiB of one message/partial piece, 10 to 100 */
    uint32_t ulPort;    /* SMTP port; 0: the "smtp" service, else 25 */
} MailSplitOption;

/* Time budgets in seconds, each 60 to 3,600. A null pointer selects the defaults in brackets
 * (RFC 5321 4.5.3.2). */
typedef struct MailTimeout {
    uint32_t ulConnectTimeOut;  /* [300] greeting, EHLO or HELO, SMTP AUTH */
    uint32_t ulMailFromTimeOut; /* [300] MAIL FROM */
    uint32_t ulRcptToTimeOut;   /* [300] each RCPT TO */
    uint32_t ulDataTimeOut;     /* [120] DATA */
    uint32_t ulSendDataTimeOut; /* [180] each block of the message */
    uint32_t ulEndDataTimeOut;  /* [600] end of data and its reply */
} MailTimeout;

/* Account of POP before SMTP (MAIL_AUTH_POP_BEFORE_SMTP). No text may hold a CR or LF. */
typedef struct MailPopAccount {
    uint32_t ulPort;     /* POP3 port; 0: the "pop3" service, else 110 */
    int32_t lWaitMs;     /* milliseconds to wait after the POP session, 0 to 3,600,000 */
    char szUser[65];     /* 1 to 64 bytes */
    char szPassword[65]; /* 0 to 64 bytes; sent unencrypted */
    char szHost[257];    /* name or dotted IPv4 address, 1 to 256 bytes */
    uint16_t usTimeOut;  /* seconds for one reply line; outside 60 to 3,600: 60 */
} MailPopAccount;

/* Account of SMTP AUTH (MAIL_AUTH_SMTP). */
typedef struct MailAuthAccount {
    uint32_t ulMechanisms; /* MAIL_MECH_ bits; at least one known bit */
    char szUser[65];       /* 1 to 64 bytes */
    char szPassword[65];   /* 0 to 64 bytes */
} MailAuthAccount;

/* Result codes of OvRm_SendEMail and OvRm_SendEMailPartial_parts. 0 and above: the server has
 * accepted the mail for all recipients. Below 0 it has not, with two exceptions:
 *   - After MAIL_E_TIMEOUT and MAIL_E_SYSTEM the server may have the mail, because the failure may
 *     have come with the end mark (a line with a lone dot) or after it. The mail log tells: a reply
 *     that begins with 2 behind the end mark means that the server has the mail; no end mark means
 *     that it has not. An end mark without a reply leaves it open, and the caller has to choose: a
 *     repeat may deliver the mail twice, no repeat may lose it.
 *   - Of a mail in pieces, some may have arrived before any failure. A repeat sends all of them
 *     again under a new identifier.
 *
 * The detail buffer is untouched after MAIL_E_BUSY, and after MAIL_E_ARGUMENT for a null argument
 * of the call. Otherwise it holds a text with a NUL, empty unless a line below says more:
 *   - errno is a decimal number, 0 when the server closed the connection instead of replying.
 *   - A reply is the last line of the server's reply as received, with its CR LF, cut to 255
 *     bytes. It is raw: it may hold any control byte, also escape sequences for terminals.
 *     Replace those before showing it; the mail log shows them as "?". */
enum {
    MAIL_SENT = 0,                 /* sent */
    MAIL_SENT_UNCONVERTED = 1,     /* sent, but subject or body could not be converted from EUC-JP:
                                    * a text that is not EUC-JP goes out as given; without a
                                    * converter in the system both go out empty */
    MAIL_SENT_UNAUTHENTICATED = 2, /* sent, but the SMTP AUTH asked for did not take place; never
                                    * for a mail that went out in pieces */
    MAIL_E_ARGUMENT = -1,          /* an argument is null or out of range; nothing was sent */
    MAIL_E_MEMORY = -2,            /* no memory; nothing was sent */
    MAIL_E_WORK_FILE = -3,  /* a working file failed, or an attachment or prepared file could not
                             * be read; detail: errno (21: a directory; 22: no regular file
                             * either; 0: the path of the working directory is too long) */
    MAIL_E_TIMEOUT = -4,    /* no answer within the time-out; the server may have the mail */
    MAIL_E_RECIPIENT = -5,  /* no entries, the first one is of another kind or its value null; or
                             * the list is empty, too long, or holds CR or LF */
    MAIL_E_REJECTED = -6,   /* the server refused a command; detail: its reply */
    MAIL_E_SYSTEM = -7,     /* a socket or system call failed in the conversation, or the server
                             * closed the connection; it may have the mail; detail: errno */
    MAIL_E_ATTACHMENT = -8, /* an attachment does not exist or cannot be examined */
    MAIL_E_BUSY = -9,       /* another send is running in this process */
    MAIL_E_CONNECT = -10,   /* no connection; detail: errno, or the resolver's error (h_errno) when
                             * the name was not resolved; empty when this host has no name */
    MAIL_E_POP_REFUSED = -15, /* POP before SMTP: refused; detail: the reply */
    MAIL_E_POP_SYSTEM = -16,  /* POP before SMTP: send or receive failed; detail: errno */
    MAIL_E_POP_TIMEOUT = -17, /* POP before SMTP: no reply line within the time-out */
    MAIL_E_POP_CONNECT = -18, /* POP before SMTP: no connection; detail: errno, or the resolver's
                               * error (h_errno) */
    MAIL_E_INTERNAL = -20,    /* any other internal failure */
    /* MAIL or RCPT refused, of the first piece in a split mail; detail: the server's reply */
    MAIL_E_REJECTED_AUTH_FAILED = -25, /* after every mechanism in common had failed */
    MAIL_E_REJECTED_NO_AUTH = -26      /* after there was no mechanism in common */
};

MAIL_END_DECLS

#endif

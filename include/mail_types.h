/* mail_types.h - records, constants and declaration macros shared by every public header.
 *
 * All integers are 32 bits wide unless a field says otherwise. Records hold exactly the fields
 * listed, naturally aligned, without packing. Texts are NUL-terminated. */
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
    MAIL_KIND_RECIPIENT = 1,  /* recipient list: comma-separated addresses, 1 to 256 characters */
    MAIL_KIND_BODY = 2,       /* part list, index 0: body text, up to 10,238 characters, or null */
    MAIL_KIND_ATTACHMENT = 3, /* part list: path of a file to attach, 1 to 1,024 characters */
    MAIL_KIND_ATTACHMENT_TEMP = 4, /* the same; the file is deleted after a successful send */
    MAIL_KIND_PREPARED = 5,        /* part list, index 1: path of a prepared S/MIME content file */
    MAIL_KIND_PREPARED_HEADER = 6  /* part list, index 2 after kind 5: path of a prepared header */
};

/* Kinds of an authentication option. */
enum {
    MAIL_AUTH_POP_BEFORE_SMTP = 1, /* value: MailPopAccount */
    MAIL_AUTH_SMTP = 2             /* value: MailAuthAccount */
};

/* Mechanisms of SMTP AUTH, a bit set. Tried in the order CRAM-MD5, PLAIN, LOGIN. */
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
    char szUser[65];     /* 1 to 64 characters */
    char szPassword[65]; /* 0 to 64 characters */
    char szHost[257];    /* name or dotted address, 1 to 256 characters */
    uint16_t usTimeOut;  /* seconds for one reply line; outside 60 to 3,600: 60 */
} MailPopAccount;

/* Account of SMTP AUTH (MAIL_AUTH_SMTP). */
typedef struct MailAuthAccount {
    uint32_t ulMechanisms; /* MAIL_MECH_ bits; at least one known bit */
    char szUser[65];       /* 1 to 64 characters */
    char szPassword[65];   /* 0 to 64 characters */
} MailAuthAccount;

/* Result codes of OvRm_SendEMail and OvRm_SendEMailPartial_parts. 0 and above: the server has
 * the mail. The detail buffer is empty unless the line says otherwise. */
enum {
    MAIL_SENT = 0,
    MAIL_SENT_UNCONVERTED = 1,     /* sent, but the conversion of subject or body failed */
    MAIL_SENT_UNAUTHENTICATED = 2, /* sent, but the SMTP AUTH asked for did not take place; never
                                    * for a mail that went out in pieces */
    MAIL_E_ARGUMENT = -1,
    MAIL_E_MEMORY = -2,
    MAIL_E_WORK_FILE = -3,  /* a working file failed, or an attachment or prepared file could not
                             * be read; detail: decimal errno */
    MAIL_E_TIMEOUT = -4,    /* no answer within the time-out */
    MAIL_E_RECIPIENT = -5,  /* recipient list not usable */
    MAIL_E_REJECTED = -6,   /* the server refused a command; detail: its reply */
    MAIL_E_SYSTEM = -7,     /* socket or system error in the conversation; detail: decimal errno */
    MAIL_E_ATTACHMENT = -8, /* an attachment cannot be examined */
    MAIL_E_BUSY = -9,       /* another send is running in this process; detail untouched */
    MAIL_E_CONNECT = -10,   /* host name not resolved or connection failed; detail: decimal code */
    MAIL_E_POP_REFUSED = -15, /* POP before SMTP: refused; detail: the reply, where there is one */
    MAIL_E_POP_SYSTEM = -16,  /* POP before SMTP: send or receive failed; detail: decimal errno */
    MAIL_E_POP_TIMEOUT = -17, /* POP before SMTP: no reply line within the time-out */
    MAIL_E_POP_CONNECT = -18, /* POP before SMTP: no connection; detail: decimal code */
    MAIL_E_INTERNAL = -20,    /* any other internal failure */
    /* MAIL or RCPT refused, of the first piece in a split mail; detail: the server's reply */
    MAIL_E_REJECTED_AUTH_FAILED = -25, /* after every mechanism failed */
    MAIL_E_REJECTED_NO_AUTH = -26      /* without a mechanism in common */
};

MAIL_END_DECLS

#endif

/* auth.c - SMTP AUTH, and what to do about each kind of answer.
 *
 * The connection is not encrypted: LOGIN and PLAIN show the password to everyone on the way, so
 * this program allows CRAM-MD5 alone unless told otherwise. The password comes from the
 * environment, not from the command line, where every user of the machine could read it.
 * Usage: MAIL_PASSWORD=... auth SERVER PORT FROM TO USER [MECHANISMS] */
#include <mail_api.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kDone = 0, kGiveUp = 1, kUsage = 2, kTryLater = 75 };

static int fill(char* field, size_t size, const char* text) {
    const size_t length = text != NULL ? strlen(text) : size;
    if (length >= size) return -1;
    memcpy(field, text, length + 1);
    return 0;
}

static int judge(int32_t result, const char* detail) {
    switch (result) {
        case MAIL_SENT:
        case MAIL_SENT_UNCONVERTED:
            puts("sent");
            return kDone;
        case MAIL_SENT_UNAUTHENTICATED:
            puts("sent, but without authentication: check the account before the server insists");
            return kDone;
        case MAIL_E_REJECTED_AUTH_FAILED:
            printf("wrong user or password: %s", detail);
            return kGiveUp;
        case MAIL_E_REJECTED_NO_AUTH:
            printf("the server offers no mechanism that is allowed here: %s", detail);
            return kGiveUp;
        case MAIL_E_REJECTED: /* RFC 5321 4.2.1: 4yz is transient, 5yz is final */
            printf("refused: %s", detail);
            return detail[0] == '4' ? kTryLater : kGiveUp;
        case MAIL_E_TIMEOUT:
        case MAIL_E_SYSTEM: /* after DATA the server may have the mail: a repeat may double it */
            printf("connection lost or too slow (%s)\n", detail);
            return kTryLater;
        default:
            printf("result %d %s\n", (int)result, detail);
            return result == MAIL_E_CONNECT || result == MAIL_E_BUSY ? kTryLater : kGiveUp;
    }
}

int main(int argc, char** argv) {
    const char* password = getenv("MAIL_PASSWORD");
    MailAuthAccount account = {MAIL_MECH_CRAM_MD5, "", ""};
    char detail[256] = "";
    if (argc < 6) return kUsage;
    if (fill(account.szUser, sizeof account.szUser, argv[5]) != 0 ||
        fill(account.szPassword, sizeof account.szPassword, password) != 0)
        return kUsage;
    if (argc > 6) account.ulMechanisms = (uint32_t)strtoul(argv[6], NULL, 10);
    const MailEntry to = {MAIL_KIND_RECIPIENT, 0, argv[4]};
    const MailEntry text = {MAIL_KIND_BODY, 0, "Sent with SMTP AUTH."};
    const MailSplitOption port = {64, (uint32_t)strtoul(argv[2], NULL, 10)};
    const MailEntry auth = {MAIL_AUTH_SMTP, 0, &account};
    const int32_t result =
        OvRm_SendEMail(&to, 1, &text, 1, argv[3], "AUTH", argv[1], 0, &port, NULL, &auth, detail);
    memset(&account, 0, sizeof account);
    return judge(result, detail);
}

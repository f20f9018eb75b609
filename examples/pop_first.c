/* pop_first.c - POP before SMTP: for servers that take mail only from a host that has just logged
 * in to its mailbox. The server may need a moment to let the host in: lWaitMs.
 * Usage: MAIL_PASSWORD=... pop_first SERVER PORT FROM TO USER POP_PORT */
#include <mail_api.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int fill(char* field, size_t size, const char* text) {
    const size_t length = text != NULL ? strlen(text) : size;
    if (length >= size) return -1;
    memcpy(field, text, length + 1);
    return 0;
}

int main(int argc, char** argv) {
    MailPopAccount account = {0};
    char detail[256] = "";
    if (argc < 7) return 2;
    if (fill(account.szHost, sizeof account.szHost, argv[1]) != 0 ||
        fill(account.szUser, sizeof account.szUser, argv[5]) != 0 ||
        fill(account.szPassword, sizeof account.szPassword, getenv("MAIL_PASSWORD")) != 0)
        return 2;
    account.ulPort = (uint32_t)strtoul(argv[6], NULL, 10);
    account.lWaitMs = 200;
    account.usTimeOut = 60;
    const MailEntry to = {MAIL_KIND_RECIPIENT, 0, argv[4]};
    const MailEntry text = {MAIL_KIND_BODY, 0, "Sent after a POP3 login."};
    const MailSplitOption port = {64, (uint32_t)strtoul(argv[2], NULL, 10)};
    const MailEntry auth = {MAIL_AUTH_POP_BEFORE_SMTP, 0, &account};
    const int32_t result = OvRm_SendEMail(&to, 1, &text, 1, argv[3], "POP first", argv[1], 0, &port,
                                          NULL, &auth, detail);
    memset(&account, 0, sizeof account);
    if (result == MAIL_E_POP_REFUSED) fputs("the POP3 server refused the login: ", stdout);
    printf("result %d %s\n", (int)result, detail);
    return result < 0;
}

/* collect_replies.c - one call per recipient, with a table of what came of each.
 *
 * In one call a single refused recipient refuses the mail for all of them, and a list has room for
 * 256 characters. One call each costs a connection each, and tells whom the server does not take.
 * Usage: collect_replies SERVER PORT FROM TO... */
#include <mail_api.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kFirstRecipient = 4 };

static int32_t send_to(char** argv, const char* recipient, char* detail) {
    const MailEntry to = {MAIL_KIND_RECIPIENT, 0, recipient};
    const MailEntry text = {MAIL_KIND_BODY, 0, "Maintenance tonight at 22:00."};
    const MailSplitOption port = {64, (uint32_t)strtoul(argv[2], NULL, 10)};
    return OvRm_SendEMail(&to, 1, &text, 1, argv[3], "Maintenance", argv[1], 0, &port, NULL, NULL,
                          detail);
}

int main(int argc, char** argv) {
    int failures = 0;
    if (argc <= kFirstRecipient) return 2;
    for (int i = kFirstRecipient; i < argc; ++i) {
        char detail[256] = "";
        const int32_t result = send_to(argv, argv[i], detail);
        detail[strcspn(detail, "\r\n")] = '\0';
        printf("%-30s %4d %s\n", argv[i], (int)result, detail);
        failures += result < 0;
        if (result == MAIL_E_CONNECT) break; /* the server is gone for the others too */
    }
    return failures != 0;
}

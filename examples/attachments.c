/* attachments.c - a text with files. The last file of the command line is sent as a temporary one:
 * the library deletes it once the server has the mail, and keeps it when the send fails.
 * Usage: attachments SERVER PORT FROM TO FILE... */
#include <mail_api.h>
#include <stdio.h>
#include <stdlib.h>

enum { kFirstFile = 5, kMaxFiles = 20 };

int main(int argc, char** argv) {
    MailEntry parts[1 + kMaxFiles] = {{MAIL_KIND_BODY, 0, "Reports attached."}};
    uint32_t count = 1;
    char detail[256] = "";
    if (argc <= kFirstFile || argc > kFirstFile + kMaxFiles) return 2;
    for (int i = kFirstFile; i < argc; ++i, ++count) {
        parts[count].kind = i + 1 < argc ? MAIL_KIND_ATTACHMENT : MAIL_KIND_ATTACHMENT_TEMP;
        parts[count].value = argv[i];
    }
    const MailEntry to = {MAIL_KIND_RECIPIENT, 0, argv[4]};
    const MailSplitOption port = {64, (uint32_t)strtoul(argv[2], NULL, 10)};
    const int32_t result = OvRm_SendEMail(&to, 1, parts, count, argv[3], "Reports", argv[1], 0,
                                          &port, NULL, NULL, detail);
    if (result == MAIL_E_ATTACHMENT) fputs("a file is missing\n", stderr);
    printf("result %d %s\n", (int)result, detail);
    return result < 0;
}

/* plain.c - the smallest program: one text to one recipient through port 25 of a server.
 * Usage: plain SERVER FROM TO [PORT] */
#include <mail_api.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    const MailEntry to = {MAIL_KIND_RECIPIENT, 0, argv[3]};
    const MailEntry text = {MAIL_KIND_BODY, 0, "The disk of host alpha is full."};
    const MailSplitOption port = {64, argc > 4 ? (uint32_t)strtoul(argv[4], NULL, 10) : 0};
    char detail[256] = "";
    const int32_t result = OvRm_SendEMail(&to, 1, &text, 1, argv[2], "Disk full", argv[1], 0, &port,
                                          NULL, NULL, detail);
    printf("result %d %s\n", (int)result, detail);
    return result < 0;
}

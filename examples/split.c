/* split.c - a mail larger than 20 KiB goes out as numbered message/partial pieces (RFC 2046 5.2.2),
 * each a mail of its own, which the reader's program puts together; a smaller one goes out whole.
 * Usage: split SERVER PORT FROM TO FILE */
#include <mail_api.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv) {
    if (argc < 6) return 2;
    const MailEntry to = {MAIL_KIND_RECIPIENT, 0, argv[4]};
    const MailEntry parts[] = {{MAIL_KIND_BODY, 0, "The log in pieces."},
                               {MAIL_KIND_ATTACHMENT, 0, argv[5]}};
    const MailSplitOption split = {20, (uint32_t)strtoul(argv[2], NULL, 10)};
    const uint32_t in_pieces = 1;
    char detail[256] = "";
    const int32_t result = OvRm_SendEMail(&to, 1, parts, 2, argv[3], "Log", argv[1], in_pieces,
                                          &split, NULL, NULL, detail);
    printf("result %d %s\n", (int)result, detail);
    return result < 0;
}

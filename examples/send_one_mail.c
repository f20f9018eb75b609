/* send_one_mail.c - sends one mail: Japanese subject and text, one file attached.
 *   send_one_mail SERVER PORT FROM TO SUBJECT TEXT FILE
 * SUBJECT and TEXT are given in UTF-8; the library takes Shift_JIS, so they are converted first.
 * Prints the result code and its detail; the exit status is 0 when the server has the mail. */
#include <iconv.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "mail_api.h"

/* Converts UTF-8 to a NUL-terminated Shift_JIS text of at most size - 1 bytes; 0, or -1. */
static int to_shift_jis(char* utf8, char* out, size_t size) {
    size_t in_left = strlen(utf8);
    size_t out_left = size - 1;
    iconv_t converter = iconv_open("SJIS", "UTF-8");
    if (converter == (iconv_t)-1) return -1;
    size_t rc = iconv(converter, &utf8, &in_left, &out, &out_left);
    iconv_close(converter);
    *out = '\0';
    return rc == (size_t)-1 ? -1 : 0;
}

int main(int argc, char** argv) {
    static char text[MAIL_BODY_MAX + 1];
    char subject[MAIL_SUBJECT_MAX + 1];
    char detail[MAIL_DETAIL_SIZE] = "";

    if (argc != 8) {
        fprintf(stderr, "usage: %s SERVER PORT FROM TO SUBJECT TEXT FILE\n", argv[0]);
        return 2;
    }
    if (to_shift_jis(argv[5], subject, sizeof subject) != 0 ||
        to_shift_jis(argv[6], text, sizeof text) != 0) {
        fprintf(stderr, "%s: subject or text too long, or not Shift_JIS\n", argv[0]);
        return 2;
    }

    const MailEntry recipients[] = {{MAIL_KIND_RECIPIENT, 0, argv[4]}};
    const MailEntry parts[] = {{MAIL_KIND_BODY, 0, text}, {MAIL_KIND_ATTACHMENT, 0, argv[7]}};
    const MailSplitOption split = {MAIL_SPLIT_DEFAULT, (uint32_t)strtoul(argv[2], NULL, 10)};

    int32_t rc = OvRm_SendEMail(recipients, 1, parts, 2, argv[3], subject, argv[1], 0, &split, NULL,
                                NULL, detail);
    printf("result %d%s%s\n", (int)rc, detail[0] != '\0' ? ": " : "", detail);
    return rc >= 0 ? 0 : 1;
}

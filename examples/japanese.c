/* japanese.c - Japanese subject and text from a program whose texts are UTF-8.
 *
 * The library takes Shift_JIS, or EUC-JP when setlocale() of the calling process names an EUC
 * locale; it never takes UTF-8. This program sets no locale and converts with iconv.
 * Usage: japanese SERVER PORT FROM TO */
#include <iconv.h>
#include <mail_api.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Returns 0, or -1 when a character has no Shift_JIS form or the text does not fit. */
static int to_shift_jis(const char* utf8, char* out, size_t size) {
    const iconv_t converter = iconv_open("SJIS", "UTF-8");
    if (converter == (iconv_t)-1) return -1;
    char* in = (char*)utf8;
    size_t in_left = strlen(utf8);
    size_t out_left = size - 1;
    const size_t failed = iconv(converter, &in, &in_left, &out, &out_left);
    iconv_close(converter);
    *out = '\0';
    return failed == (size_t)-1 ? -1 : 0;
}

int main(int argc, char** argv) {
    char subject[MAIL_SUBJECT_MAX + 1];
    char text[MAIL_BODY_MAX + 1];
    char detail[MAIL_DETAIL_SIZE] = "";
    if (argc < 5) return 2;
    if (to_shift_jis("ディスク容量の警告 (alpha)", subject, sizeof subject) != 0 ||
        to_shift_jis("監視対象 alpha のディスク使用率が 95% を超えました。\n確認してください。",
                     text, sizeof text) != 0) {
        fputs("a character cannot be sent\n", stderr);
        return 1;
    }
    const MailEntry to = {MAIL_KIND_RECIPIENT, 0, argv[4]};
    const MailEntry body = {MAIL_KIND_BODY, 0, text};
    const MailSplitOption port = {64, (uint32_t)strtoul(argv[2], NULL, 10)};
    const int32_t result =
        OvRm_SendEMail(&to, 1, &body, 1, argv[3], subject, argv[1], 0, &port, NULL, NULL, detail);
    printf("result %d %s\n", (int)result, detail);
    return result < 0;
}

/* prepared.c - send a message that another program has signed or encrypted.
 *
 * The library puts Date, From, To, Subject and Message-Id in front and sends the prepared file as
 * stored: LF becomes CR LF and nothing else is touched. So the file has to begin with the rest of
 * the header (MIME-Version, Content-Type ...) and an empty line, to have LF line ends, and to have
 * every leading dot doubled (RFC 5321 4.5.2). This program makes such a file from one that is not
 * prepared yet.
 * Usage: prepared SERVER PORT FROM TO SIGNED_MESSAGE PREPARED_FILE */
#include <mail_api.h>
#include <stdio.h>
#include <stdlib.h>

static int prepare(const char* from, const char* to) {
    FILE* in = fopen(from, "r");
    FILE* out = in != NULL ? fopen(to, "w") : NULL;
    int at_line_start = 1;
    int failed = in == NULL || out == NULL;
    for (int c; !failed && (c = getc(in)) != EOF;) {
        if (c == '\r') continue;
        if (c == '.' && at_line_start) putc('.', out);
        at_line_start = c == '\n';
        failed = putc(c, out) == EOF;
    }
    if (in != NULL) fclose(in);
    if (out != NULL && fclose(out) != 0) failed = 1;
    return failed ? -1 : 0;
}

int main(int argc, char** argv) {
    if (argc < 7) return 2;
    if (prepare(argv[5], argv[6]) != 0) {
        perror("prepare");
        return 1;
    }
    const MailEntry to = {MAIL_KIND_RECIPIENT, 0, argv[4]};
    const MailEntry parts[] = {{MAIL_KIND_BODY, 0, NULL}, {MAIL_KIND_PREPARED, 0, argv[6]}};
    const MailSplitOption port = {64, (uint32_t)strtoul(argv[2], NULL, 10)};
    char detail[256] = "";
    const int32_t result =
        OvRm_SendEMail(&to, 1, parts, 2, argv[3], "Signed", argv[1], 0, &port, NULL, NULL, detail);
    printf("result %d %s\n", (int)result, detail);
    return result < 0;
}

/* soak.c - a host process that sends as many mails as it is told to, for soak_test.py:
 *   soak SUBJECT TEXT SUBJECT TEXT      in Shift_JIS, then in EUC-JP
 * A line of standard input orders a mail:  NUMBER KIND RECIPIENT PORT SPLIT-KIB FILE
 * KIND is "plain", "euc" (in an EUC locale) or "thread" (from a thread of its own); a split size of
 * 0 sends it whole, the file "-" is none. Answers with the result and the heap bytes in use. */
#include <locale.h>
#include <malloc.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "mail_api.h"

typedef struct Order {
    unsigned number;
    char kind[16];
    char recipient[64];
    unsigned port;
    int split_kib;
    char file[256];
    const char* subject;
    const char* text;
    int32_t result;
} Order;

static void* run_order(void* argument) {
    Order* order = argument;
    char body[2048];
    char detail[256];
    snprintf(body, sizeof body, "mail %06u\n%s", order->number, order->text);
    const MailEntry to = {MAIL_KIND_RECIPIENT, 0, order->recipient};
    const MailEntry parts[] = {{MAIL_KIND_BODY, 0, body}, {MAIL_KIND_ATTACHMENT, 0, order->file}};
    const uint32_t part_count = strcmp(order->file, "-") == 0 ? 1 : 2;
    const MailSplitOption split = {order->split_kib > 0 ? order->split_kib : 64, order->port};
    order->result = OvRm_SendEMail(&to, 1, parts, part_count, "agent@e.test", order->subject,
                                   "127.0.0.1", order->split_kib > 0, &split, NULL, NULL, detail);
    return NULL;
}

int main(int argc, char** argv) {
    char line[512];
    if (argc != 5) return 2;
    while (fgets(line, sizeof line, stdin) != NULL) {
        Order order = {0};
        if (sscanf(line, "%u %15s %63s %u %d %255s", &order.number, order.kind, order.recipient,
                   &order.port, &order.split_kib, order.file) != 6)
            return 2;
        const int euc = strcmp(order.kind, "euc") == 0;
        order.subject = argv[euc ? 3 : 1];
        order.text = argv[euc ? 4 : 2];
        if (setlocale(LC_ALL, euc ? "ja_JP.eucJP" : "C") == NULL) return 3;
        pthread_t thread;
        if (strcmp(order.kind, "thread") != 0)
            run_order(&order);
        else if (pthread_create(&thread, NULL, run_order, &order) != 0 ||
                 pthread_join(thread, NULL) != 0)
            return 4;
        printf("%d %zu\n", (int)order.result, mallinfo2().uordblks);
        fflush(stdout);
    }
    return 0;
}

/* send_mail.c - one call of the library's entry, spelled on the command line, for the tests that
 * talk to servers:  send_mail KEY VALUE ...
 * Texts are passed on byte for byte. Prints the result code and, on the next line, the detail. Exit
 * status 3: the call has changed the open descriptors, or the thread's signals. */
#include <fcntl.h>
#include <locale.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "mail_api.h"

enum { kMaxParts = 16, kMaxDescriptors = 256, kReport = 200 };

static MailEntry recipients[1] = {{MAIL_KIND_RECIPIENT, 0, NULL}};
static MailEntry parts[kMaxParts] = {{MAIL_KIND_BODY, 0, NULL}};
static uint32_t part_count = 1;
static MailSplitOption split = {64, 0};
static uint32_t partial_flag;
static MailAuthAccount smtp_account;
static MailPopAccount pop_account = {0, 0, "", "", "127.0.0.1", 60};
static MailEntry auth;
static const char* sender = "agent@e2e.test";
static const char* subject = "";
static uint32_t stack_kib;
static const char* closed = "";

static void take(const char* key, char* value) {
    static const struct {
        const char* key;
        uint32_t kind;
    } kParts[] = {{"attach", MAIL_KIND_ATTACHMENT},
                  {"prepared", MAIL_KIND_PREPARED},
                  {"prepared-header", MAIL_KIND_PREPARED_HEADER}};
    for (size_t i = 0; i < sizeof kParts / sizeof kParts[0]; ++i) {
        if (strcmp(key, kParts[i].key) == 0 && part_count < kMaxParts) {
            parts[part_count++] = (MailEntry){kParts[i].kind, 0, value};
            return;
        }
    }
    const uint32_t number = (uint32_t)strtoul(value, NULL, 10);
    if (strcmp(key, "to") == 0) {
        recipients[0].value = value;
    } else if (strcmp(key, "from") == 0) {
        sender = value;
    } else if (strcmp(key, "subject") == 0) {
        subject = value;
    } else if (strcmp(key, "text") == 0) {
        parts[0].value = value;
    } else if (strcmp(key, "port") == 0) {
        split.ulPort = number;
    } else if (strcmp(key, "split-kib") == 0) {
        split.lSplitSize = (int32_t)number;
        partial_flag = 1;
    } else if (strcmp(key, "mechanisms") == 0) {
        smtp_account.ulMechanisms = number;
        auth = (MailEntry){MAIL_AUTH_SMTP, 0, &smtp_account};
    } else if (strcmp(key, "pop-port") == 0) {
        pop_account.ulPort = number;
        auth = (MailEntry){MAIL_AUTH_POP_BEFORE_SMTP, 0, &pop_account};
    } else if (strcmp(key, "user") == 0) {
        snprintf(smtp_account.szUser, sizeof smtp_account.szUser, "%s", value);
        snprintf(pop_account.szUser, sizeof pop_account.szUser, "%s", value);
    } else if (strcmp(key, "password") == 0) {
        snprintf(smtp_account.szPassword, sizeof smtp_account.szPassword, "%s", value);
        snprintf(pop_account.szPassword, sizeof pop_account.szPassword, "%s", value);
    } else if (strcmp(key, "close") == 0) {
        closed = value;
    } else if (strcmp(key, "stack-kib") == 0) {
        stack_kib = number;
    } else if (strcmp(key, "locale") != 0 || setlocale(LC_ALL, value) == NULL) {
        fprintf(stderr, "send_mail: %s %s: not understood\n", key, value);
        exit(2);
    }
}

/* What a call has to leave as it was. */
struct state {
    int descriptors;
    sigset_t mask, pending;
};

static struct state look(void) {
    struct state state;
    memset(&state, 0, sizeof state);
    for (int fd = 0; fd < kMaxDescriptors; ++fd) state.descriptors += fcntl(fd, F_GETFD) != -1;
    pthread_sigmask(SIG_BLOCK, NULL, &state.mask);
    sigpending(&state.pending);
    return state;
}

static void* call(void* unused) {
    char detail[256] = "untouched";
    const struct state before = look();
    const int32_t rc =
        OvRm_SendEMail(recipients, 1, parts, part_count, sender, subject, "127.0.0.1", partial_flag,
                       &split, NULL, auth.value != NULL ? &auth : NULL, detail);
    const struct state after = look();
    dprintf(kReport, "%d\n%s", (int)rc, detail);
    close(kReport);
    if (memcmp(&before, &after, sizeof before) != 0) exit(3);
    return unused;
}

int main(int argc, char** argv) {
    for (int i = 1; i + 1 < argc; i += 2) take(argv[i], argv[i + 1]);
    if (dup2(STDOUT_FILENO, kReport) < 0) return 2;
    for (const char* fd = closed; *fd != '\0'; ++fd) close(*fd - '0');
    if (stack_kib == 0) return call(NULL) != NULL;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, (size_t)stack_kib * 1024);
    pthread_t thread;
    if (pthread_create(&thread, &attributes, call, NULL) != 0) return 2;
    return pthread_join(thread, NULL);
}

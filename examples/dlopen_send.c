/* dlopen_send.c - load the library at run time, for a program that must start without it.
 * Only the header is needed to build this. The library starts no threads and keeps its state per
 * process, so it may be unloaded whenever no call is running.
 * Usage: dlopen_send SERVER PORT FROM TO [LIBRARY] */
#include <dlfcn.h>
#include <mail_api.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv) {
    if (argc < 5) return 2;
    void* library = dlopen(argc > 5 ? argv[5] : "libovrmail.so.1", RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
        fprintf(stderr, "no mail on this machine: %s\n", dlerror());
        return 1;
    }
    __typeof__(&OvRm_SendEMail) send_mail = NULL;
    *(void**)&send_mail = dlsym(library, "OvRm_SendEMail");
    if (send_mail == NULL) return 1;
    const MailEntry to = {MAIL_KIND_RECIPIENT, 0, argv[4]};
    const MailEntry text = {MAIL_KIND_BODY, 0, "Sent by a library loaded on demand."};
    const MailSplitOption port = {64, (uint32_t)strtoul(argv[2], NULL, 10)};
    char detail[256] = "";
    const int32_t result =
        send_mail(&to, 1, &text, 1, argv[3], "Loaded", argv[1], 0, &port, NULL, NULL, detail);
    dlclose(library);
    printf("result %d %s\n", (int)result, detail);
    return result < 0;
}

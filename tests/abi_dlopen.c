/* abi_dlopen LIBRARY - uses the library as a host does that knows it at run time only: no header
 * of ours, no link. Loads, calls, unloads and loads it again. Exit status 0 when all was right. */
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

static int failures;

static void check(int ok, const char* what) {
    if (ok) return;
    fprintf(stderr, "abi_dlopen: %s\n", what);
    ++failures;
}

/* Copies the address: ISO C has no cast from an object to a function pointer. */
static void find(void* library, const char* name, void* function, size_t size) {
    void* const symbol = dlsym(library, name);
    check(symbol != NULL, name);
    memcpy(function, &symbol, size);
}
#define FIND(library, name) find(library, #name, &name, sizeof name)

static void use(void* library) {
    int32_t (*OvRm_SendEMail)(const void*, uint32_t, const void*, uint32_t, const char*,
                              const char*, const char*, uint32_t, const void*, const void*,
                              const void*, char*);
    int32_t (*OvRm_GetStatusDovrin2)(uint32_t*, uint32_t*, void*);
    FIND(library, OvRm_SendEMail);
    FIND(library, OvRm_GetStatusDovrin2);
    const uint32_t* const pop_time_out = dlsym(library, "g_ulPopTimeOut");
    check(pop_time_out != NULL, "g_ulPopTimeOut");
    if (failures != 0) return;

    char detail[256] = "untouched";
    check(OvRm_SendEMail(NULL, 0, NULL, 0, NULL, NULL, NULL, 0, NULL, NULL, NULL, detail) == -1,
          "null arguments give -1");
    check(strcmp(detail, "untouched") == 0, "and leave the detail buffer");
    check(OvRm_GetStatusDovrin2(NULL, NULL, NULL) == -3, "null status gives -3");
    check(*pop_time_out == 60, "g_ulPopTimeOut is 60 at first");
}

int main(int argc, char** argv) {
    for (int round = 0; argc == 2 && round < 2; ++round) {
        void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        if (library == NULL) return fprintf(stderr, "abi_dlopen: %s\n", dlerror()), 1;
        use(library);
        check(dlclose(library) == 0, "dlclose");
    }
    return argc != 2 || failures != 0;
}

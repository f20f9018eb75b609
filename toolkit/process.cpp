// process.cpp - commands through the shell, and shared libraries loaded by name.
//
// A send uses none of them; they serve other parts of the agent. No state.
#include <dlfcn.h>

#include <cstdint>
#include <cstdlib>

#include "file_util.h"

namespace {

constexpr std::int32_t kFailed = -1;
constexpr int kShellNotFound = 127;

}  // namespace

std::int32_t ExecCommand(const char* command) noexcept {
    if (command == nullptr) return kFailed;
    const int status = std::system(command);  // NOLINT(cert-env33-c): the purpose of the call
    // Kept: the raw wait status is compared, not the exit code in it, so a command that the shell
    // does not find (exit code 127) counts as run, like any failing command. Callers rely on this
    // documented result.
    return status < 0 || status == kShellNotFound ? kFailed : 0;
}

void* DLLOpen(const char* file) noexcept { return ::dlopen(file, RTLD_LAZY); }

void* DLLGetProcAddress(void* handle, const char* symbol) noexcept {
    return symbol != nullptr ? ::dlsym(handle, symbol) : nullptr;
}

std::int32_t DLLClose(void* handle) noexcept {
    return handle != nullptr ? ::dlclose(handle) : kFailed;
}

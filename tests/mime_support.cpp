// mime_support.cpp - see mime_support.hpp. The program is linked with --wrap for each of these.
#include "mime_support.hpp"

#include <sys/time.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

using fake::libc;

namespace {
bool fails(fake::Call call) { return ++libc.calls[call] == libc.fail[call]; }
}  // namespace

extern "C" {
std::time_t __real_time(std::time_t* out);
int __real_gettimeofday(timeval* tv, void* zone);
std::FILE* __real_fopen(const char* path, const char* mode);
ssize_t __real_read(int fd, void* data, size_t size);
ssize_t __real_write(int fd, const void* data, size_t size);
off_t __real_lseek(int fd, off_t offset, int whence);
off64_t __real_lseek64(int fd, off64_t offset, int whence);

std::time_t __wrap_time(std::time_t* out) { return libc.now != 0 ? libc.now : __real_time(out); }
int __wrap_gettimeofday(timeval* tv, void* zone) {
    if (libc.now == 0) return __real_gettimeofday(tv, zone);
    return *tv = {libc.now, 0x1234}, 0;
}
long __wrap_gethostid() { return 0x7f0100; }
int __wrap_uname(utsname* name) { return name->nodename[libc.node.copy(name->nodename, 64)] = 0; }
int __wrap_gethostname(char* name, size_t size) { return name[libc.node.copy(name, size - 1)] = 0; }
std::FILE* __wrap_fopen(const char* path, const char* mode) {
    const bool resolver = std::string(path) == "/etc/resolv.conf";
    return __real_fopen(resolver ? libc.resolv_conf.c_str() : path, mode);
}
ssize_t __wrap_read(int fd, void* data, size_t size) {
    if (fails(fake::kRead)) return errno = EIO, -1;
    return __real_read(fd, data, libc.read_max != 0 ? std::min(size, libc.read_max) : size);
}
ssize_t __wrap_write(int fd, const void* data, size_t size) {
    if (fails(fake::kWrite)) return errno = EFBIG, -1;
    return __real_write(fd, data, fails(fake::kShortWrite) ? size - 1 : size);
}
off_t __wrap_lseek(int fd, off_t offset, int whence) {
    if (fails(fake::kSeek)) return errno = ESPIPE, -1;
    return __real_lseek(fd, offset, whence);
}
off64_t __wrap_lseek64(int fd, off64_t offset, int whence) {
    if (fails(fake::kSeek)) return errno = ESPIPE, -1;
    return __real_lseek64(fd, offset, whence);
}
}

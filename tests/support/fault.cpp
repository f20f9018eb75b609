// fault.cpp - see fault.hpp. Every __wrap_NAME stands before the libc function NAME.
#include "support/fault.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <iconv.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "support/scripted_server.hpp"

namespace fault {
namespace {

struct Order {
    std::string function;
    std::string about;
    int error = 0;
    int skip = 0;
};

thread_local bool t_watched = false;
int g_countdown = 0;
Mode g_mode = Mode::kFail;
Order g_order;
std::string g_hit;
long g_blocks = 0;
int g_calls = 0;
int g_descriptors = 0;
long g_slept_ms = 0;
time_t g_clock_offset = 0;

constexpr int kSliceMs = 2;

bool ordered(std::string_view function, std::string_view about) {
    if (g_order.function != function || about.find(g_order.about) == std::string_view::npos) {
        return false;
    }
    if (g_order.skip > 0) return --g_order.skip, false;
    g_hit = function;
    errno = g_order.error;
    return g_order.error != 0;
}

bool counted_down(Mode mode) { return mode == g_mode && g_countdown > 0 && --g_countdown == 0; }

// Whether this call fails, with errno set.
bool fails(const char* function, std::string_view about) {
    if (!t_watched) return false;
    ++g_calls;
    if (!ordered(function, about)) {
        if (counted_down(Mode::kFail)) {
            errno = EIO;
        } else if (counted_down(Mode::kInterrupt)) {
            errno = EINTR;
        } else {
            return false;
        }
    }
    g_hit = function;
    return true;
}

bool heap_fails(const char* function, std::size_t size) {
    if (!t_watched) return false;
    if (g_order.function == function ? !ordered(function, std::to_string(size))
                                     : !counted_down(Mode::kFail)) {
        return false;
    }
    g_hit = function;
    errno = ENOMEM;
    return true;
}

std::size_t halved(const char* function, std::size_t size) {
    if (!t_watched || size < 2 || !counted_down(Mode::kHalf)) return size;
    g_hit = function;
    return size / 2;
}

std::string path_of(int fd) {
    std::array<char, 1024> path{};
    const auto link = "/proc/self/fd/" + std::to_string(fd);
    return t_watched && !g_order.function.empty() &&
                   ::readlink(link.c_str(), path.data(), path.size() - 1) > 0
               ? path.data()
               : "";
}

std::string_view text(const void* bytes, std::size_t size) {
    return {static_cast<const char*>(bytes), size};
}

void* taken(void* block) {
    if (t_watched && block != nullptr) ++g_blocks;
    return block;
}

int opened(int fd) {
    if (t_watched && fd >= 0) ++g_descriptors;
    return fd;
}
template <class Stream>
Stream* opened(Stream* stream) {
    if (t_watched && stream != nullptr) ++g_descriptors;
    return stream;
}
void closed() {
    if (t_watched) --g_descriptors;
}

bool peer_is_silent(int fd) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    return ::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
           ntohs(peer.sin_port) == support::silent_port();
}

void pass_time(long ms) {
    g_slept_ms += ms;
    g_clock_offset += ms / 1000;
}

}  // namespace

Watch::Watch() { t_watched = true; }
Watch::~Watch() { t_watched = false; }

void clear() {
    g_countdown = 0;
    g_order = {};
    g_hit.clear();
    g_blocks = g_slept_ms = 0;
    g_calls = g_descriptors = 0;
}
void fail_nth(int n, Mode mode) {
    clear();
    g_countdown = n;
    g_mode = mode;
}
void fail_on(std::string_view function, std::string_view about, int error, int skip) {
    clear();
    g_order = {std::string(function), std::string(about), error, skip};
}
bool was_hit() { return !g_hit.empty(); }
std::string last_hit() { return g_hit; }
long heap_blocks() { return g_blocks; }
int calls() { return g_calls; }
int descriptors() { return g_descriptors; }
long slept_ms() { return g_slept_ms; }

}  // namespace fault

// WRAP(result, name, parameters, arguments, about): fails with -1.
#define WRAP(result, name, parameters, arguments, about)     \
    result __real_##name parameters;                         \
    result __wrap_##name parameters {                        \
        if (fault::fails(#name, about)) return (result)(-1); \
        return __real_##name arguments;                      \
    }

extern "C" {
WRAP(off_t, lseek, (int fd, off_t at, int from), (fd, at, from),
     fault::path_of(fd) + "@" + std::to_string(at))
WRAP(int, unlink, (const char* path), (path), path)
WRAP(int, rename, (const char* from, const char* to), (from, to), from)
WRAP(int, stat, (const char* path, struct stat* out), (path, out), path)
WRAP(int, stat64, (const char* path, struct stat64* out), (path, out), path)
WRAP(int, fstat, (int fd, struct stat* out), (fd, out), fault::path_of(fd))
WRAP(int, fstat64, (int fd, struct stat64* out), (fd, out), fault::path_of(fd))
WRAP(int, fchmod, (int fd, mode_t mode), (fd, mode), fault::path_of(fd))
WRAP(ssize_t, pread, (int fd, void* out, std::size_t size, off_t at), (fd, out, size, at),
     fault::path_of(fd))
WRAP(ssize_t, pwrite, (int fd, const void* in, std::size_t size, off_t at), (fd, in, size, at),
     fault::path_of(fd))
WRAP(int, ftruncate64, (int fd, off64_t size), (fd, size), fault::path_of(fd))
WRAP(int, fallocate64, (int fd, int mode, off64_t at, off64_t size), (fd, mode, at, size),
     fault::path_of(fd))
WRAP(ssize_t, pread64, (int fd, void* buffer, std::size_t size, off64_t at), (fd, buffer, size, at),
     fault::path_of(fd))
WRAP(int, connect, (int fd, const sockaddr* to, socklen_t size), (fd, to, size), "")
WRAP(int, setsockopt, (int fd, int level, int name, const void* value, socklen_t size),
     (fd, level, name, value, size), "")
WRAP(iconv_t, iconv_open, (const char* to, const char* from), (to, from), to)
WRAP(int, gethostname, (char* name, std::size_t size), (name, size), "")
WRAP(void*, mmap, (void* at, std::size_t size, int protection, int flags, int fd, off_t offset),
     (at, size, protection, flags, fd, offset), fault::path_of(fd))

ssize_t __real_read(int fd, void* buffer, std::size_t size);
ssize_t __wrap_read(int fd, void* buffer, std::size_t size) {
    if (fault::fails("read", fault::path_of(fd))) return -1;
    return __real_read(fd, buffer, fault::halved("read", size));
}
ssize_t __real_write(int fd, const void* buffer, std::size_t size);
ssize_t __wrap_write(int fd, const void* buffer, std::size_t size) {
    if (fault::fails("write", fault::path_of(fd))) return -1;
    return __real_write(fd, buffer, fault::halved("write", size));
}
ssize_t __real_send(int fd, const void* buffer, std::size_t size, int flags);
ssize_t __wrap_send(int fd, const void* buffer, std::size_t size, int flags) {
    if (fault::fails("send", fault::text(buffer, size))) return -1;
    return __real_send(fd, buffer, fault::halved("send", size), flags);
}
ssize_t __real_recv(int fd, void* buffer, std::size_t size, int flags);
ssize_t __wrap_recv(int fd, void* buffer, std::size_t size, int flags) {
    if (fault::fails("recv", "")) return -1;
    return __real_recv(fd, buffer, fault::halved("recv", size), flags);
}

int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol) {
    return fault::fails("socket", "") ? -1 : fault::opened(__real_socket(domain, type, protocol));
}
int __real_open(const char* path, int flags, mode_t mode);
int __wrap_open(const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const auto mode = static_cast<mode_t>((flags & O_CREAT) != 0 ? va_arg(args, int) : 0);
    va_end(args);
    if (fault::fails("open", path)) return -1;
    return fault::opened(__real_open(path, flags, mode));
}
FILE* __real_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode) {
    return fault::fails("fopen", path) ? nullptr : fault::opened(__real_fopen(path, mode));
}
int __real_fclose(FILE* stream);
int __wrap_fclose(FILE* stream) {
    fault::closed();
    return __real_fclose(stream);
}
DIR* __real_opendir(const char* path);
DIR* __wrap_opendir(const char* path) {
    return fault::fails("opendir", path) ? nullptr : fault::opened(__real_opendir(path));
}
int __real_closedir(DIR* stream);
int __wrap_closedir(DIR* stream) {
    fault::closed();
    return __real_closedir(stream);
}
int __real_close(int fd);
int __wrap_close(int fd) {
    const bool fails = fault::fails("close", fault::path_of(fd));
    const int error = errno;
    fault::closed();
    const int result = __real_close(fd);  // Linux has closed, whatever it says
    if (!fails) return result;
    errno = error;
    return -1;
}

void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) {
    return fault::heap_fails("malloc", size) ? nullptr : fault::taken(__real_malloc(size));
}
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
    return fault::heap_fails("calloc", count * size) ? nullptr
                                                     : fault::taken(__real_calloc(count, size));
}
void* __real_realloc(void* block, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size) {
    if (fault::heap_fails("realloc", size)) return nullptr;
    void* const moved = __real_realloc(block, size);
    return block == nullptr ? fault::taken(moved) : moved;
}
void __real_free(void* block);
void __wrap_free(void* block) {
    if (fault::t_watched && block != nullptr) --fault::g_blocks;
    __real_free(block);
}

int __real_gethostbyname_r(const char* name, hostent* entry, char* buffer, std::size_t size,
                           hostent** result, int* error);
int __wrap_gethostbyname_r(const char* name, hostent* entry, char* buffer, std::size_t size,
                           hostent** result, int* error) {
    // No name server is asked: a name under "invalid" is unknown everywhere (RFC 6761).
    if (std::string_view(name).ends_with(".invalid")) {
        *result = nullptr;
        *error = HOST_NOT_FOUND;
        return ENOENT;
    }
    return __real_gethostbyname_r(name, entry, buffer, size, result, error);
}

// Waits in virtual time: once the server has fallen silent, the clock jumps.
int __real_poll(pollfd* fds, nfds_t count, int wait_ms);
int __wrap_poll(pollfd* fds, nfds_t count, int wait_ms) {
    if (fault::fails("poll", "")) return -1;
    if (!fault::t_watched) return __real_poll(fds, count, wait_ms);
    for (int waited = 0; waited < wait_ms && !fault::peer_is_silent(fds->fd);
         waited += fault::kSliceMs) {
        const int ready = __real_poll(fds, count, fault::kSliceMs);
        if (ready != 0) return ready;
    }
    const int ready = __real_poll(fds, count, 0);
    if (ready == 0) fault::g_clock_offset += wait_ms / 1000;
    return ready;
}
int __real_select(int count, fd_set* in, fd_set* out, fd_set* other, timeval* wait);
int __wrap_select(int count, fd_set* in, fd_set* out, fd_set* other, timeval* wait) {
    if (!fault::t_watched) return __real_select(count, in, out, other, wait);
    if (fault::fails("select", "")) return -1;
    fault::pass_time(wait->tv_sec * 1000 + wait->tv_usec / 1000);
    return 0;
}
unsigned __real_sleep(unsigned seconds);
unsigned __wrap_sleep(unsigned seconds) {
    if (!fault::t_watched) return __real_sleep(seconds);
    fault::pass_time(seconds * 1000L);
    return 0;
}
time_t __real_time(time_t* out);
time_t __wrap_time(time_t* out) {
    const time_t now = __real_time(nullptr) + fault::g_clock_offset;
    if (out != nullptr) *out = now;
    return now;
}
}

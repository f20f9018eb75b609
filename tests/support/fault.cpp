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
#include <sys/time.h>
#include <sys/utsname.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <type_traits>
#include <utility>

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
thread_local Faults* t_plan = nullptr;
int g_countdown = 0;
int g_again = 0;  // how often the call that was hit is still to be, made again
Fault g_fault = Mode::kFail;
Order g_order;
std::string g_hit;
std::string g_about;
int g_error = 0;
long g_blocks = 0;
int g_descriptors = 0;
long g_passed_ms = 0;
long g_passed_before_ms = 0;  // until clear()

// What is planned for this call.
std::optional<CallResult> planned(const char* function) {
    if (t_plan == nullptr) return {};
    ++t_plan->calls[function];
    auto& queue = t_plan->next[function];
    if (queue.empty()) return {};
    const CallResult result = queue.front();
    queue.pop_front();
    t_plan->now += result.seconds;
    if (result.result == -1) errno = result.error;
    return result;
}

void hit(std::string_view function, std::string_view about, int error) {
    g_hit = function;
    g_about = about;
    errno = g_error = error;
}

bool ordered(std::string_view function, std::string_view about) {
    if (g_order.function != function || about.find(g_order.about) == std::string_view::npos) {
        return false;
    }
    if (g_order.skip > 0) return --g_order.skip, false;
    hit(function, about, g_order.error);
    return g_order.error != 0;
}

// Whether this call is the n-th, or that one made again.
bool strikes(std::string_view function, std::string_view about) {
    constexpr std::string_view kInterruptible =
        " open read write pread pread64 pwrite pwrite64 fallocate64 ftruncate64 close unlink send "
        "recv "
        "poll select connect ";
    if (g_fault.mode == Mode::kInterrupt &&
        kInterruptible.find(" " + std::string(function) + " ") == kInterruptible.npos)
        return false;
    if (g_countdown > 0) {
        if (--g_countdown != 0) return false;
        g_again = g_fault.times;
    } else if (g_again == 0 || g_hit != function || g_about != about) {
        return false;
    }
    --g_again;
    hit(function, about, g_fault.error);
    return true;
}

// Whether this call fails, with errno set.
bool fails(const char* function, std::string_view about) {
    return t_watched &&
           (ordered(function, about) || (g_fault.mode != Mode::kHalf && strikes(function, about)));
}

bool heap_fails(const char* function, std::size_t size) {
    if (!t_watched) return false;
    const bool fails = g_order.function == function
                           ? ordered(function, std::to_string(size))
                           : g_fault.mode == Mode::kFail && strikes(function, "");
    if (fails) errno = g_error = ENOMEM;
    return fails;
}

std::size_t halved(const char* function, std::string_view about, std::size_t size) {
    const int before = errno;  // a call that does less is none that fails
    if (t_watched && size > 1 && g_fault.mode == Mode::kHalf && strikes(function, about)) size /= 2;
    errno = before;
    return size;
}

// Taken only for a call that may be hit.
std::string path_of(int fd) {
    std::array<char, 1024> path{};
    const auto link = "/proc/self/fd/" + std::to_string(fd);
    return t_watched && (!g_order.function.empty() || g_countdown == 1 || g_again > 0) &&
                   ::readlink(link.c_str(), path.data(), path.size() - 1) > 0
               ? path.data()
               : "";
}

std::string_view text(const void* bytes, std::size_t size) {
    return {static_cast<const char*>(bytes), size};
}

void* taken(void* block) {
    if (t_watched && block != nullptr && block != MAP_FAILED) ++g_blocks;
    return block;
}
void given_back() {
    if (t_watched) --g_blocks;
}

// What a failing call of this type returns.
template <class Value>
Value failure() {
    if constexpr (std::is_same_v<Value, void*>) {
        return MAP_FAILED;  // of iconv_open, too
    } else if constexpr (std::is_pointer_v<Value>) {
        return nullptr;
    } else {
        return -1;
    }
}

// What a call that opens something has given: a descriptor, a stream or a directory.
template <class Handle>
Handle opened(Handle handle) {
    if (t_watched && handle != failure<Handle>()) ++g_descriptors;
    return handle;
}
template <class Value>
Value same(Value value) {
    return value;
}
void closed() {
    if (t_watched) --g_descriptors;
}

// What a call returns instead of being made. One that is made may have less to do.
template <class Result>
std::optional<Result> instead(const char* function, std::string_view about,
                              std::size_t* size = nullptr) {
    if constexpr (std::is_integral_v<Result>) {
        if (const auto plan = planned(function)) {
            if (size == nullptr || plan->result <= 0) return static_cast<Result>(plan->result);
            *size = std::min(*size, static_cast<std::size_t>(plan->result));
        }
    }
    if (fails(function, about)) return failure<Result>();
    if (size != nullptr) *size = halved(function, about, *size);
    return {};
}

const char* path_for(const char* path) {
    const bool other = t_plan != nullptr && !t_plan->resolv_conf.empty() &&
                       std::string_view(path) == "/etc/resolv.conf";
    return other ? t_plan->resolv_conf.c_str() : path;
}

bool has_node() { return t_plan != nullptr && !t_plan->node.empty(); }
void put_node(char* name, std::size_t size) {
    if (has_node()) name[t_plan->node.copy(name, size - 1)] = '\0';
}

void pass_ms(long ms) {
    g_passed_ms += ms;
    if (t_plan != nullptr) t_plan->now += ms / 1000;
}
bool is_virtual() { return t_watched || t_plan != nullptr; }

// While it lives, a server works on this thread.
struct Elsewhere {
    Elsewhere() { t_watched = false, t_plan = nullptr; }
    ~Elsewhere() { t_watched = watched, t_plan = plan, errno = error; }
    Elsewhere(const Elsewhere&) = delete;
    Elsewhere& operator=(const Elsewhere&) = delete;
    const bool watched = t_watched;
    Faults* const plan = t_plan;
    const int error = errno;
};

const char* seen_peer(const sockaddr* peer) {
    if (t_plan != nullptr) std::memcpy(&t_plan->peer, peer, sizeof t_plan->peer);
    return "";
}

}  // namespace

Faults::Faults() { t_plan = this; }
Faults::~Faults() { t_plan = nullptr; }
Watch::Watch() { t_watched = true; }
Watch::~Watch() { t_watched = false; }

void clear() {
    g_countdown = g_again = 0;
    g_order = {};
    g_hit.clear();
    g_about.clear();
    g_passed_before_ms += std::exchange(g_passed_ms, 0);
    g_blocks = 0;
    g_descriptors = 0;
}
void fail_nth(int n, Fault fault) {
    clear();
    g_countdown = n;
    g_fault = fault;
}
void fail_on(std::string_view function, std::string_view about, int error, int skip) {
    clear();
    g_order = {std::string(function), std::string(about), error, skip};
}
bool was_hit() { return !g_hit.empty(); }
std::string last_hit() { return g_hit; }
std::string last_about() { return g_about; }
int last_error() { return g_error; }
long heap_blocks() { return g_blocks; }
int descriptors() { return g_descriptors; }
long passed_ms() { return g_passed_ms; }

}  // namespace fault

// WRAP(result, name, parameters, arguments, about, note): note() sees what the real call gives.
#define WRAP(result, name, parameters, arguments, about, note)                             \
    result __real_##name parameters;                                                       \
    result __wrap_##name parameters {                                                      \
        if (const auto other = fault::instead<result>(#name, about); other) return *other; \
        return fault::note(__real_##name arguments);                                       \
    }
#define WRAP_SIZED(name, parameters, arguments, about)                   \
    ssize_t __real_##name parameters;                                    \
    ssize_t __wrap_##name parameters {                                   \
        const auto other = fault::instead<ssize_t>(#name, about, &size); \
        return other ? *other : __real_##name arguments;                 \
    }
#define WRAP_HEAP(name, parameters, arguments, size)        \
    void* __real_##name parameters;                         \
    void* __wrap_##name parameters {                        \
        if (fault::heap_fails(#name, size)) return nullptr; \
        return fault::taken(__real_##name arguments);       \
    }
#define WRAP_CLOSE(name, parameters, arguments, about, note)                     \
    int __real_##name parameters;                                                \
    int __wrap_##name parameters {                                               \
        const bool fails = fault::fails(#name, about);                           \
        const int error = errno;                                                 \
        fault::note();                                                           \
        const int result = __real_##name arguments; /* done, whatever it says */ \
        if (!fails) return result;                                               \
        errno = error;                                                           \
        return -1;                                                               \
    }

extern "C" {
WRAP(int, open, (const char* path, int flags, mode_t mode), (path, flags, mode), path, opened)
WRAP(int, fcntl, (int fd, int command, long argument), (fd, command, argument), fault::path_of(fd),
     opened)
WRAP(FILE*, fopen, (const char* path, const char* mode), (fault::path_for(path), mode), path,
     opened)
WRAP(DIR*, opendir, (const char* path), (path), path, opened)
WRAP(int, socket, (int domain, int type, int protocol), (domain, type, protocol), "", opened)
WRAP_CLOSE(close, (int fd), (fd), fault::path_of(fd), closed)
WRAP_CLOSE(fclose, (FILE * stream), (stream), "", closed)
WRAP_CLOSE(closedir, (DIR * stream), (stream), "", closed)
WRAP_CLOSE(munmap, (void* at, std::size_t size), (at, size), "", given_back)
WRAP_CLOSE(iconv_close, (iconv_t converter), (converter), "", given_back)
WRAP_SIZED(read, (int fd, void* out, std::size_t size), (fd, out, size), fault::path_of(fd))
WRAP_SIZED(write, (int fd, const void* in, std::size_t size), (fd, in, size), fault::path_of(fd))
WRAP_SIZED(send, (int fd, const void* in, std::size_t size, int flags), (fd, in, size, flags),
           fault::text(in, size))
WRAP_SIZED(recv, (int fd, void* out, std::size_t size, int flags), (fd, out, size, flags), "")
WRAP_SIZED(pread, (int fd, void* out, std::size_t size, off_t at), (fd, out, size, at),
           fault::path_of(fd))
WRAP_SIZED(pwrite, (int fd, const void* in, std::size_t size, off_t at), (fd, in, size, at),
           fault::path_of(fd))
WRAP(off_t, lseek, (int fd, off_t at, int from), (fd, at, from),
     fault::path_of(fd) + "@" + std::to_string(at), same)
WRAP(off64_t, lseek64, (int fd, off64_t at, int from), (fd, at, from),
     fault::path_of(fd) + "@" + std::to_string(at), same)
WRAP(int, unlink, (const char* path), (path), path, same)
WRAP(int, unlinkat, (int fd, const char* name, int flags), (fd, name, flags), name, same)
WRAP(int, rename, (const char* from, const char* to), (from, to), from, same)
WRAP(int, stat, (const char* path, struct stat* out), (path, out), path, same)
WRAP(int, stat64, (const char* path, struct stat64* out), (path, out), path, same)
WRAP(int, fstat64, (int fd, struct stat64* out), (fd, out), fault::path_of(fd), same)
WRAP(int, fstatat64, (int fd, const char* name, struct stat64* out, int flags),
     (fd, name, out, flags), name, same)
WRAP(int, mkdir, (const char* path, mode_t mode), (path, mode), path, same)
WRAP(int, fstatfs64, (int fd, struct statfs64* out), (fd, out), fault::path_of(fd), same)
WRAP(int, fchmod, (int fd, mode_t mode), (fd, mode), fault::path_of(fd), same)
WRAP(int, ftruncate64, (int fd, off64_t size), (fd, size), fault::path_of(fd), same)
WRAP(int, fallocate64, (int fd, int mode, off64_t at, off64_t size), (fd, mode, at, size),
     fault::path_of(fd), same)
WRAP_SIZED(pread64, (int fd, void* out, std::size_t size, off64_t at), (fd, out, size, at),
           fault::path_of(fd))
WRAP_SIZED(pwrite64, (int fd, const void* in, std::size_t size, off64_t at), (fd, in, size, at),
           fault::path_of(fd))
WRAP(void*, mmap, (void* at, std::size_t size, int protection, int flags, int fd, off_t offset),
     (at, size, protection, flags, fd, offset), fault::path_of(fd), taken)
WRAP(int, connect, (int fd, const sockaddr* to, socklen_t size), (fd, to, size),
     fault::seen_peer(to), same)
WRAP(int, setsockopt, (int fd, int level, int name, const void* value, socklen_t size),
     (fd, level, name, value, size), "", same)
WRAP(iconv_t, iconv_open, (const char* to, const char* from), (to, from), to, taken)
WRAP_HEAP(malloc, (std::size_t size), (size), size)
WRAP_HEAP(calloc, (std::size_t count, std::size_t size), (count, size), count* size)

void* __real_realloc(void* block, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size) {
    if (fault::heap_fails("realloc", size)) return nullptr;
    void* const moved = __real_realloc(block, size);
    return block == nullptr ? fault::taken(moved) : moved;
}
void __real_free(void* block);
void __wrap_free(void* block) {
    if (block != nullptr) fault::given_back();
    __real_free(block);
}

int __real_uname(utsname* system);
int __wrap_uname(utsname* system) {
    const int rc = __real_uname(system);
    fault::put_node(system->nodename, sizeof system->nodename);
    return rc;
}
int __real_gethostname(char* name, std::size_t size);
int __wrap_gethostname(char* name, std::size_t size) {
    if (const auto other = fault::instead<int>("gethostname", ""); other) return *other;
    const int rc = __real_gethostname(name, size);
    fault::put_node(name, size);
    return rc;
}
long __real_gethostid();
long __wrap_gethostid() { return fault::has_node() ? 0x7f0100 : __real_gethostid(); }

int __real_gethostbyname_r(const char* name, hostent* entry, char* buffer, std::size_t size,
                           hostent** result, int* error);
int __wrap_gethostbyname_r(const char* name, hostent* entry, char* buffer, std::size_t size,
                           hostent** result, int* error) {
    // No name server is asked: a name under "invalid" is unknown everywhere (RFC 6761).
    auto planned = fault::planned("gethostbyname_r");
    if (!planned && std::string_view(name).ends_with(".invalid"))
        planned = {ENOENT, HOST_NOT_FOUND};
    if (!planned) return __real_gethostbyname_r(name, entry, buffer, size, result, error);
    *result = nullptr;
    *error = planned->error;
    return static_cast<int>(planned->result);
}
int __real_getservbyname_r(const char* name, const char* protocol, servent* entry, char* buffer,
                           std::size_t size, servent** result);
int __wrap_getservbyname_r(const char* name, const char* protocol, servent* entry, char* buffer,
                           std::size_t size, servent** result) {
    if (fault::t_plan != nullptr) fault::t_plan->services.emplace_back(name);
    *result = nullptr;
    const auto other = fault::instead<int>("getservbyname_r", name);
    return other ? *other : __real_getservbyname_r(name, protocol, entry, buffer, size, result);
}

int __real_poll(pollfd* fds, nfds_t count, int wait_ms);
int __wrap_poll(pollfd* fds, nfds_t count, int wait_ms) {
    if (const auto other = fault::instead<int>("poll", ""); other) return *other;
    const bool is_virtual = fault::is_virtual();
    std::optional<int> ready;
    int passed_ms = 0;
    {
        const fault::Elsewhere elsewhere;
        ready = support::wait_for_server(*fds, wait_ms, passed_ms);
    }
    if (!ready) {
        ready = __real_poll(fds, count, is_virtual ? 0 : wait_ms);
        if (ready == 0) passed_ms = wait_ms;
    }
    if (is_virtual) fault::pass_ms(passed_ms);
    return *ready;
}
int __real_select(int count, fd_set* in, fd_set* out, fd_set* other, timeval* wait);
int __wrap_select(int count, fd_set* in, fd_set* out, fd_set* other, timeval* wait) {
    if (!fault::t_watched) return __real_select(count, in, out, other, wait);
    if (fault::fails("select", "")) return -1;
    fault::pass_ms(wait->tv_sec * 1000 + wait->tv_usec / 1000);
    return 0;
}
unsigned __real_sleep(unsigned seconds);
unsigned __wrap_sleep(unsigned seconds) {
    if (!fault::is_virtual()) return __real_sleep(seconds);
    fault::planned("sleep");
    fault::pass_ms(static_cast<long>(seconds) * 1000);
    return 0;
}
int __real_clock_nanosleep(clockid_t clock, int flags, const timespec* end, timespec* rest);
int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* end, timespec* rest) {
    const auto other = fault::instead<int>("clock_nanosleep", "");
    return other ? *other : __real_clock_nanosleep(clock, flags, end, rest);
}
time_t __real_time(time_t* out);
time_t __wrap_time(time_t* out) {
    static const time_t begin = __real_time(nullptr);
    const long passed_ms = fault::g_passed_before_ms + fault::g_passed_ms;
    const time_t now = fault::t_plan != nullptr ? fault::t_plan->now
                       : fault::t_watched       ? begin + passed_ms / 1000
                                                : __real_time(nullptr);
    if (out != nullptr) *out = now;
    return now;
}
// The fraction of a second is part of a Message-Id: with a fixed number of hexadecimal digits every
// run composes a mail of the same length, and cuts it at the same places.
int __real_gettimeofday(timeval* tv, void* zone);
int __wrap_gettimeofday(timeval* tv, void* zone) {
    const int rc = __real_gettimeofday(tv, zone);
    if (fault::t_plan != nullptr) *tv = {fault::t_plan->now, 0x1234};
    tv->tv_usec = tv->tv_usec % 0x10000 + 0x10000;
    return rc;
}
}

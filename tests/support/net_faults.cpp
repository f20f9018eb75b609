// net_faults.cpp - see net_faults.hpp.
#include "support/net_faults.hpp"

#include <netdb.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "mail_log.h"
#include "trace.h"

namespace {

constexpr int kLongestRealWaitMs = 60;  // for a server thread on a busy machine

thread_local support::Faults* g_faults = nullptr;

// What is planned for this call of `name`.
std::optional<support::Outcome> planned(const char* name) {
    if (g_faults == nullptr) return {};
    ++g_faults->calls[name];
    auto& queue = g_faults->next[name];
    if (queue.empty()) return {};
    const support::Outcome outcome = queue.front();
    queue.pop_front();
    g_faults->now += outcome.seconds;
    if (outcome.result == -1) errno = outcome.error;
    return outcome;
}

// The plan's result when it has one that replaces the call, else what the call returns. A plan
// above 0 is a limit of size.
template <class Call>
auto transfer(const char* name, size_t size, Call call) {
    const auto plan = planned(name);
    if (plan && plan->result <= 0) return static_cast<ssize_t>(plan->result);
    return call(plan ? std::min(size, static_cast<size_t>(plan->result)) : size);
}

template <class Call>
int replace(const char* name, Call call) {
    const auto plan = planned(name);
    return plan ? static_cast<int>(plan->result) : call();
}

}  // namespace

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker's --wrap gives.
ssize_t __real_send(int, const void*, size_t, int);
ssize_t __real_recv(int, void*, size_t, int);
int __real_poll(pollfd*, nfds_t, int);
int __real_socket(int, int, int);
int __real_connect(int, const sockaddr*, socklen_t);
int __real_gethostname(char*, size_t);
unsigned __real_sleep(unsigned);
time_t __real_time(time_t*);
int __real_gethostbyname_r(const char*, hostent*, char*, size_t, hostent**, int*);
int __real_getservbyname_r(const char*, const char*, servent*, char*, size_t, servent**);

ssize_t __wrap_send(int fd, const void* data, size_t size, int flags) {
    return transfer("send", size, [&](size_t most) { return __real_send(fd, data, most, flags); });
}

ssize_t __wrap_recv(int fd, void* data, size_t size, int flags) {
    return transfer("recv", size, [&](size_t most) { return __real_recv(fd, data, most, flags); });
}

int __wrap_poll(pollfd* entries, nfds_t count, int wait_ms) {
    return replace("poll", [&] {
        if (g_faults == nullptr) return __real_poll(entries, count, wait_ms);
        const int ready = __real_poll(entries, count, std::min(wait_ms, kLongestRealWaitMs));
        if (ready == 0) g_faults->now += wait_ms / 1000;
        return ready;
    });
}

int __wrap_socket(int domain, int type, int protocol) {
    return replace("socket", [&] { return __real_socket(domain, type, protocol); });
}

int __wrap_connect(int fd, const sockaddr* peer, socklen_t size) {
    if (g_faults != nullptr) std::memcpy(&g_faults->peer, peer, sizeof g_faults->peer);
    return replace("connect", [&] { return __real_connect(fd, peer, size); });
}

int __wrap_gethostname(char* name, size_t size) {
    *name = '\0';
    return replace("gethostname", [&] { return __real_gethostname(name, size); });
}

unsigned __wrap_sleep(unsigned seconds) {
    if (g_faults == nullptr) return __real_sleep(seconds);
    g_faults->now += static_cast<time_t>(seconds);
    const int nth = ++g_faults->calls["sleep"];
    if (g_faults->on_sleep != nullptr) g_faults->on_sleep(nth);
    return 0;
}

time_t __wrap_time(time_t* out) {
    const time_t now = g_faults != nullptr ? g_faults->now : __real_time(nullptr);
    if (out != nullptr) *out = now;
    return now;
}

int __wrap_gethostbyname_r(const char* name, hostent* entry, char* work, size_t size,
                           hostent** found, int* error) {
    const auto plan = planned("gethostbyname_r");
    if (!plan) return __real_gethostbyname_r(name, entry, work, size, found, error);
    *found = nullptr;
    *error = plan->error;
    return static_cast<int>(plan->result);
}

int __wrap_getservbyname_r(const char* name, const char* protocol, servent* entry, char* work,
                           size_t size, servent** found) {
    if (g_faults != nullptr) g_faults->services.emplace_back(name);
    *found = nullptr;
    return replace("getservbyname_r", [&] {
        return __real_getservbyname_r(name, protocol, entry, work, size, found);
    });
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"

namespace support {

Faults::Faults() { g_faults = this; }
Faults::~Faults() { g_faults = nullptr; }

LogCapture::LogCapture() {
    handle_.fd = ::memfd_create("log", MFD_CLOEXEC);
    g_pLogHandle = &handle_;
}

LogCapture::~LogCapture() {
    g_pLogHandle = nullptr;
    ::close(handle_.fd);
}

std::string LogCapture::text() const {
    return read_file("/proc/self/fd/" + std::to_string(handle_.fd));
}

TraceCapture::TraceCapture() { g_trace = Topen(dir_.file("ring").c_str(), 64, 2); }

TraceCapture::~TraceCapture() {
    Tclose(g_trace);
    g_trace = nullptr;
}

int TraceCapture::count(const std::string& bytes) const {
    const std::string ring = read_file(dir_.file("ring"));
    int found = 0;
    for (std::size_t at = 0; (at = ring.find(bytes, at)) != std::string::npos; ++at) ++found;
    return found;
}

}  // namespace support

// calls.cpp - see calls.hpp. Every __wrap_NAME stands before the libc function NAME.
#include "hostile/calls.hpp"

#include <fcntl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace hostile {
namespace {

Conversation* g_talk = nullptr;
Heap g_heap;

void* taken(void* block) {
    if (block == nullptr) return block;
    ++g_heap.blocks;
    g_heap.bytes += static_cast<long>(::malloc_usable_size(block));
    g_heap.peak = std::max(g_heap.peak, g_heap.bytes);
    return block;
}

void* given(void* block) {
    if (block == nullptr) return block;
    --g_heap.blocks;
    g_heap.bytes -= static_cast<long>(::malloc_usable_size(block));
    return block;
}

}  // namespace

Heap& heap() { return g_heap; }

void Conversation::begin() { g_talk = this; }

void Conversation::answer() {
    if (told != nullptr && !rules.unit().empty()) tell(*told, now, '>', rules.unit());
    peer.turn(rules.phase(), now, wire, told);
}

Conversation::~Conversation() { g_talk = nullptr; }

Wire& Conversation::wire_of(int asked, const char* call) {
    if (asked != fd) rules.problem(std::string(call) + " on another descriptor");
    return wire;
}

}  // namespace hostile

using hostile::g_talk;
using hostile::Ms;

extern "C" {

int __wrap_socket(int, int, int) {
    g_talk->fd = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    return g_talk->fd;
}

int __wrap_setsockopt(int, int, int, const void*, socklen_t) { return 0; }

int __wrap_connect(int fd, const sockaddr* to, socklen_t) {
    g_talk->wire_of(fd, "connect") = {};
    const auto port = ntohs(reinterpret_cast<const sockaddr_in*>(to)->sin_port);
    const bool pop = port == hostile::kPopPort;
    g_talk->rules.connecting(pop ? hostile::kPopGreeting : hostile::kGreeting);
    const int error = g_talk->peer.connect_error(pop);
    g_talk->wire.set_reader(g_talk->peer.reader());
    g_talk->rules.connected(error);
    if (error == 0) g_talk->answer();
    errno = error;
    return error == 0 ? 0 : -1;
}

int __wrap_poll(pollfd* entry, nfds_t, int wait_ms) {
    const bool to_write = (entry->events & POLLOUT) != 0;
    auto& wire = g_talk->wire_of(entry->fd, "poll");
    g_talk->rules.at_rest("poll");
    if (const Ms wait = g_talk->rules.wait(to_write); wait_ms != wait)
        g_talk->rules.problem("waits " + std::to_string(wait_ms) + " ms, not " +
                              std::to_string(wait));
    const bool ready = to_write ? wire.wait_writable(g_talk->now, wait_ms)
                                : wire.wait_readable(g_talk->now, wait_ms);
    if (!ready) g_talk->rules.timed_out();
    entry->revents = ready ? entry->events : 0;
    return ready ? 1 : 0;
}

ssize_t __wrap_recv(int fd, void* out, std::size_t size, int flags) {
    g_talk->rules.at_rest("recv");
    const bool peek = (flags & MSG_PEEK) != 0;
    const ssize_t got = g_talk->wire_of(fd, "recv").receive(g_talk->now, out, size, peek);
    if (got < 0 && errno != EAGAIN) g_talk->rules.failed(errno);
    if (got == 0) g_talk->rules.took_nothing();
    if (got > 0 && !peek)
        g_talk->rules.taken({static_cast<const char*>(out), static_cast<std::size_t>(got)});
    return got;
}

ssize_t __wrap_send(int fd, const void* in, std::size_t size, int) {
    const std::string_view text(static_cast<const char*>(in), size);
    g_talk->rules.sending(text);
    const ssize_t took = g_talk->wire_of(fd, "send").send(g_talk->now, size);
    const int error = errno;
    if (took < 0 && error != EAGAIN) g_talk->rules.failed(error);
    if (took > 0 || error == EAGAIN) {
        const auto part = static_cast<std::size_t>(std::max<ssize_t>(took, 0));
        if (g_talk->rules.sent(text, part)) g_talk->answer();
    }
    errno = error;
    return took;
}

unsigned __wrap_sleep(unsigned seconds) {
    g_talk->now += Ms{1000} * seconds;
    g_talk->rules.slept(Ms{1000} * seconds);
    return 0;
}

int __wrap_select(int, fd_set*, fd_set*, fd_set*, timeval* wait) {
    const Ms ms = wait->tv_sec * 1000 + wait->tv_usec / 1000;
    g_talk->now += ms;
    g_talk->rules.slept(ms);
    return 0;
}

time_t __wrap_time(time_t* out) {
    const auto now = static_cast<time_t>(g_talk->now / 1000);
    if (out != nullptr) *out = now;
    return now;
}

// A fraction of the same length in every run: mails are then cut at the same places.
int __wrap_gettimeofday(timeval* now, void*) {
    *now = {static_cast<time_t>(g_talk->now / 1000), 0x12345};
    return 0;
}

void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) { return hostile::taken(__real_malloc(size)); }
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
    return hostile::taken(__real_calloc(count, size));
}
void* __real_realloc(void* block, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size) {
    return hostile::taken(__real_realloc(hostile::given(block), size));
}
void __real_free(void* block);
void __wrap_free(void* block) { __real_free(hostile::given(block)); }
}

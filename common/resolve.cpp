// resolve.cpp - name look-up and the connect loop; see resolve.hpp.
#include "common/resolve.hpp"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "common/retry.hpp"
#include "common/unique_fd.hpp"

namespace ovrmail::common {
namespace {

constexpr std::size_t kWorkSize = 1024;
constexpr int kPauseSeconds = 1;

// One question to the resolver. A host entry that does not fit the work area is a failure like any
// other (ERANGE, NETDB_INTERNAL): nothing is used of it.
Lookup ask_resolver(const char* name) noexcept {
    std::array<char, kWorkSize> work{};
    hostent entry{};
    hostent* found = nullptr;
    int error = 0;
    const int rc = ::gethostbyname_r(name, &entry, work.data(), work.size(), &found, &error);
    const bool usable = rc == 0 && found != nullptr && found->h_addrtype == AF_INET &&
                        found->h_addr_list[0] != nullptr;
    if (!usable) return {INADDR_NONE, error};
    in_addr_t address = INADDR_NONE;
    std::memcpy(&address, found->h_addr_list[0], sizeof address);
    return {address, 0};
}

// One attempt. The socket stays with `fd` only when it is connected.
Connection connect_once(const sockaddr_in& peer) noexcept {
    UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.valid()) return {-1, ConnectStep::kSocket, errno};
    // Without it the end mark behind a short message waits for a delayed acknowledgement.
    const int on = 1;
    ::setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    // What a handler interrupts goes on, and is waited for by the same call.
    const auto* const address = reinterpret_cast<const sockaddr*>(&peer);
    if (retry_eintr(kNoLimit, [&] { return ::connect(fd.get(), address, sizeof peer); }) == 0)
        return {fd.release(), ConnectStep::kDone, 0};
    return {-1, ConnectStep::kConnect, errno};
}

// Lasts its second, whatever handlers run meanwhile. That one has ended sleep() is seen by errno
// alone: what is left of a second counts as 0.
void pause() noexcept {
    timespec end{};
    ::clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += kPauseSeconds;
    errno = 0;
    ::sleep(kPauseSeconds);
    int rc = errno;
    while (rc == EINTR) rc = ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr);
}

}  // namespace

Lookup look_up_ipv4(const char* name, int attempts) noexcept {
    const in_addr_t dotted = ::inet_addr(name);
    if (dotted != INADDR_NONE) return {dotted, 0};
    for (int attempt = 1;; ++attempt) {
        const Lookup answer = ask_resolver(name);
        if (answer.resolver_error != TRY_AGAIN || attempt >= attempts) return answer;
        pause();
    }
}

std::uint16_t service_port(std::span<const char* const> names, std::uint16_t fallback) noexcept {
    for (const char* const name : names) {
        std::array<char, kWorkSize> work{};
        servent entry{};
        servent* found = nullptr;
        const int rc = ::getservbyname_r(name, "tcp", &entry, work.data(), work.size(), &found);
        if (rc == 0 && found != nullptr) return ntohs(static_cast<std::uint16_t>(found->s_port));
    }
    return fallback;
}

Connection connect_ipv4(in_addr_t address, std::uint16_t port, int attempts) noexcept {
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port);
    peer.sin_addr.s_addr = address;
    for (int attempt = 1;; ++attempt) {
        const Connection made = connect_once(peer);
        if (made.fd >= 0 || made.error != ECONNREFUSED || attempt >= attempts) return made;
        pause();
    }
}

}  // namespace ovrmail::common

// connect.cpp - name look-up and the attempts to connect; see connect.hpp.
//
// The first step of an SMTP conversation and of a POP3 session. The system bounds the time of each
// attempt, the client their number. No state.
#include "net/connect.hpp"

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

namespace ovrmail::net {
namespace {

constexpr std::size_t kWorkSize = 1024;
constexpr int kPauseSeconds = 1;

// True when `address` has been found; otherwise `error` is the resolver's error. A host entry that
// does not fit the work area counts as a failure (NETDB_INTERNAL); no part of it is used.
bool ask_resolver(const char* name, in_addr_t& address, int& error) noexcept {
    std::array<char, kWorkSize> work{};
    hostent entry{};
    hostent* found = nullptr;
    const int rc = ::gethostbyname_r(name, &entry, work.data(), work.size(), &found, &error);
    const bool usable = rc == 0 && found != nullptr && found->h_addrtype == AF_INET &&
                        found->h_addr_list[0] != nullptr;
    if (usable) std::memcpy(&address, found->h_addr_list[0], sizeof address);
    return usable && address != INADDR_NONE;
}

// One attempt. `fd` receives the socket only when it is connected.
Report connect_once(const sockaddr_in& peer, int& fd) noexcept {
    common::UniqueFd sock(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!sock.valid()) return failed("socket", -1, errno);
    // Otherwise the end mark behind a short message waits for a delayed acknowledgement.
    const int on = 1;
    ::setsockopt(sock.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    // An interrupted connect() goes on in the kernel; the same call again waits for it.
    const auto* const address = reinterpret_cast<const sockaddr*>(&peer);
    const auto connect = [&] { return ::connect(sock.get(), address, sizeof peer); };
    if (common::retry_eintr(common::kNoLimit, connect) != 0) return failed("connect", -1, errno);
    fd = sock.release();
    return {};
}

// Waits a full second, also when signals arrive. With less than a second left sleep() returns 0:
// only errno shows that a signal has ended it.
void pause() noexcept {
    timespec end{};
    ::clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += kPauseSeconds;
    errno = 0;
    ::sleep(kPauseSeconds);
    int rc = errno;
    while (rc == EINTR) rc = ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr);
}

std::uint16_t service_port(const Service& service) noexcept {
    for (const char* const name : service.names) {
        std::array<char, kWorkSize> work{};
        servent entry{};
        servent* found = nullptr;
        const int rc = ::getservbyname_r(name, "tcp", &entry, work.data(), work.size(), &found);
        if (rc == 0 && found != nullptr) return ntohs(static_cast<std::uint16_t>(found->s_port));
    }
    return service.port;
}

}  // namespace

Report look_up(const char* host, const Service& service, in_addr_t& address) noexcept {
    address = ::inet_addr(host);
    if (address != INADDR_NONE) return {};
    for (int attempt = 1;; ++attempt) {
        int error = 0;
        if (ask_resolver(host, address, error)) return {};
        if (error != TRY_AGAIN || attempt == service.lookup_attempts)
            return failed("gethostbyname_r", 0, error);
        pause();
    }
}

Report connect_to(in_addr_t address, std::uint32_t port, const Service& service, int& fd) noexcept {
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port != 0 ? static_cast<std::uint16_t>(port) : service_port(service));
    peer.sin_addr.s_addr = address;
    for (int attempt = 1;; ++attempt) {
        const Report report = connect_once(peer, fd);
        if (report.done() || report.error != ECONNREFUSED || attempt == service.connect_attempts)
            return report;
        pause();
    }
}

}  // namespace ovrmail::net

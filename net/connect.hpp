// connect.hpp - from a server's name to a connected IPv4 socket.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <span>

#include "net/report.hpp"

namespace ovrmail::net {

// What the client of a protocol connects to, and how often it tries.
struct Service {
    std::span<const char* const> names;  // in the services database, over TCP; the first found
    std::uint16_t port;                  // when the database has none of them
    int lookup_attempts;                 // while the resolver asks to try again, a second apart
    int connect_attempts;                // while the server refuses, a second apart
};

// Dotted address or host name; `address` is in network byte order. Only a temporary failure of the
// resolver (TRY_AGAIN) is tried again. 255.255.255.255 is looked up as a name. The failing call is
// "gethostbyname_r", with result 0 and the resolver's error.
Report look_up(const char* host, const Service& service, in_addr_t& address) noexcept;

// Connects to `port`, of which the low 16 bits count, or for 0 to that of the service. The socket,
// which the caller owns, is close-on-exec and sends small writes at once (TCP_NODELAY). connect()
// blocks as long as the system allows. The failing call is "socket" or "connect".
Report connect_to(in_addr_t address, std::uint32_t port, const Service& service, int& fd) noexcept;

}  // namespace ovrmail::net

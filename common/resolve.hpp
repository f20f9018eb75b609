// resolve.hpp - from a server name to a connected IPv4 socket. Neither logs nor traces: the result
// says which call failed and how, the client that knows the purpose reports it.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <span>

namespace ovrmail::common {

struct Lookup {
    in_addr_t address;   // network byte order; INADDR_NONE: not found
    int resolver_error;  // h_errno of the last attempt, 0 when found
};

// Dotted address or host name. A temporary resolver failure (TRY_AGAIN) is tried again after one
// second, `attempts` times in all; any other failure ends the look-up at once. A name that is all
// ones (255.255.255.255) is looked up as a name.
Lookup look_up_ipv4(const char* name, int attempts) noexcept;

// TCP port of the first of `names` in the services database, else `fallback`. Host byte order.
std::uint16_t service_port(std::span<const char* const> names, std::uint16_t fallback) noexcept;

enum class ConnectStep { kSocket, kConnect, kDone };

struct Connection {
    int fd;             // owned by the caller; -1: failed
    ConnectStep ended;  // where it ended
    int error;          // errno of that step

    [[nodiscard]] const char* call_name() const noexcept {
        return ended == ConnectStep::kSocket ? "socket" : "connect";
    }
};

// A refused connection is tried again with a new socket after one second, `attempts` times in all.
// The socket is close-on-exec and sends small writes at once (TCP_NODELAY). connect() blocks as
// long as the system lets it.
Connection connect_ipv4(in_addr_t address, std::uint16_t port, int attempts) noexcept;

}  // namespace ovrmail::common

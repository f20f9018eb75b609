// ovrm_send_server.cpp - names and ports of servers, as the library will take them.
//
// The library resolves a host to IPv4 alone and takes the port apart from it. A name with a colon
// would only fail after a look-up, with words about name servers.
#include "ovrm_send_server.hpp"

#include <arpa/inet.h>
#include <netdb.h>
#include <strings.h>

#include <algorithm>
#include <array>

namespace ovrm_send {
namespace {

struct Service {
    std::array<const char*, 2> names; /* the first that the services database has counts */
    int port;                         /* where it has none */
};
constexpr Service kSmtp{{"SMTP", "smtp"}, 25};
constexpr Service kPop3{{"pop3", "pop3"}, 110};

int port_of(const Service& service) {
    for (const char* const name : service.names) {
        if (const servent* entry = getservbyname(name, "tcp"))
            return ntohs(static_cast<std::uint16_t>(entry->s_port));
    }
    return service.port;
}

bool is_ipv6(std::string_view host) {
    if (host.starts_with('[')) host.remove_prefix(1);
    const std::string address(host.substr(0, host.find_first_of("]%")));
    in6_addr bytes{};
    return inet_pton(AF_INET6, address.c_str(), &bytes) == 1;
}

}  // namespace

std::string host_problem(std::string_view host) {
    if (is_ipv6(host))
        return "is an IPv6 address; the library speaks IPv4 alone: give a name or a dotted address";
    const auto is_foreign = [](char c) { return c <= ' ' || c > '~' || c == '[' || c == '/'; };
    if (std::any_of(host.begin(), host.end(), is_foreign)) return "is no name of a host";
    const std::size_t colon = host.find(':');
    if (colon == std::string_view::npos) return {};
    return "holds a port: give " + std::string(host.substr(0, colon)) + " and the port " +
           std::string(host.substr(colon + 1)) + " apart (--port)";
}

std::string where(const std::string& host, int port, Protocol protocol) {
    const Service& service = protocol == Protocol::kSmtp ? kSmtp : kPop3;
    return host + ":" + std::to_string(port != 0 ? port : port_of(service));
}

bool is_loopback(const std::string& host) {
    in_addr address{};
    if (inet_pton(AF_INET, host.c_str(), &address) == 1) return ntohl(address.s_addr) >> 24 == 127;
    return strcasecmp(host.c_str(), "localhost") == 0;
}

}  // namespace ovrm_send

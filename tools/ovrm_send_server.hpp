// ovrm_send_server.hpp - what can be told of a server from its name and port.
#pragma once

#include <string>
#include <string_view>

namespace ovrm_send {

enum class Protocol { kSmtp, kPop3 };

// What keeps the library from finding a server under this name; empty when nothing does.
std::string host_problem(std::string_view host);

// "host:port", with the port that the library takes for 0.
std::string where(const std::string& host, int port, Protocol protocol = Protocol::kSmtp);

// Whether what is sent to this host surely stays on this machine. Looks nothing up.
bool is_loopback(const std::string& host);

}  // namespace ovrm_send

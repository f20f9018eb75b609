// connect.hpp - the server's address.
#pragma once

#include <netinet/in.h>

#include <cstdint>

namespace ovrmail::smtp {

// Network byte order; INADDR_NONE when not found: logged, resolver error in `err`.
in_addr_t SMTP_GetServerAddress(const char* server, std::uint32_t* err) noexcept;

}  // namespace ovrmail::smtp

// transport.hpp - lines of a POP3 session (RFC 1939 3): commands out, status lines in.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "log/trace_scope.hpp"
#include "net/lines.hpp"

namespace ovrmail::pop3 {

enum Result : std::int32_t {
    kOk = 0,
    kFailed = -1,           // socket, send or receive failed, or the server closed
    kGreetingRefused = -2,  // of Pop3_Login
    kConnect = -2,          // of Pop3_Connect: connect failed
    kUserRefused = -3,
    kPasswordRefused = -4,
    kStatRefused = -5,
    kQuitRefused = -8,
    kName = -11,     // host name not resolved
    kTimeOut = -17,  // no reply line within the time-out
};

enum Answer : std::int32_t { kPositive = 1, kNegative = 2 };

using Reply = std::array<char, net::kReplySize>;  // a line of up to 1,027 bytes and a NUL

// One session call: what its steps share.
struct Session {
    int sock;
    std::uint32_t* err;
    TraceHandle* trace;
};

// The result of a report that is not done: kTimeOut, or `failure` with the error in `err`. Writes
// its entry in the mail log.
Result judge(const net::Report& report, Result failure, std::uint32_t* err) noexcept;

// Sends a command and logs `shown` for it. kOk, kFailed or kTimeOut.
std::int32_t send_command(const Session& session, std::string_view wire, const char* shown,
                          bool traced) noexcept;

// Reads and logs one status line: an Answer, kFailed or kTimeOut.
std::int32_t read_reply(const Session& session, Reply& reply) noexcept;

}  // namespace ovrmail::pop3

// transport.hpp - calls on the connection that only the library itself uses.
#pragma once

#include <cstdint>
#include <span>

#include "net/lines.hpp"
#include "smtp/result.hpp"

namespace ovrmail::smtp {

// The running budget, as SMTP_SetTimeOut and SMTP_SetStartTime have set it.
net::Budget running_budget() noexcept;

// The limits of a send: see SMTP_send2.
net::SendRules send_rules(net::Follow follow) noexcept;

// The result of a report: kOk, kTimeOut, or `failure`. Writes its entry in the mail log and its
// error to `err`.
Result judge(const net::Report& report, Result failure, std::uint32_t* err) noexcept;

// SMTP_recv for the lines of one reply: what is seen of later lines is remembered in `ahead`, which
// may be null.
std::int32_t receive_line(int sock, std::span<char> line, net::SeenAhead* ahead,
                          std::uint32_t* err) noexcept;

}  // namespace ovrmail::smtp

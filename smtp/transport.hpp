// transport.hpp - what the library itself may do on the connection besides the exported calls.
#pragma once

#include <cstdint>
#include <span>

#include "net/lines.hpp"
#include "smtp/result.hpp"

namespace ovrmail::smtp {

// The running budget, as SMTP_SetTimeOut and SMTP_SetStartTime have set it.
net::Budget running_budget() noexcept;

// How a send is counted: see SMTP_send2.
net::SendRules send_rules(net::Follow follow) noexcept;

// What a report is to this client, with its entry in the mail log and its error in `err`: kOk,
// kTimeOut, or `failure`.
Result judge(const net::Report& report, Result failure, std::uint32_t* err) noexcept;

// SMTP_recv for the lines of one reply: what is seen of later lines is remembered in `ahead`, which
// may be null.
std::int32_t receive_line(int sock, std::span<char> line, net::SeenAhead* ahead,
                          std::uint32_t* err) noexcept;

}  // namespace ovrmail::smtp

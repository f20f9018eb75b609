// initialize.hpp - the EHLO reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "smtp/session_buffers.hpp"

namespace ovrmail::smtp {

enum EhloAnswer : std::int32_t { kEhloAccepted = 0, kEhloRefused = 1 };

// Reads and logs every line of the reply to EHLO; each has the whole budget. A line that is not
// 2xx makes the whole reply a refusal. The last line with "AUTH " behind its code is copied to
// `capability`. Returns an EhloAnswer or the failure of SMTP_recv.
std::int32_t read_ehlo_reply(int sock, std::span<char, kReplySize> capability,
                             std::uint32_t* err) noexcept;

}  // namespace ovrmail::smtp

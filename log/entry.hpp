// entry.hpp - levels, exchanges and the password mask of mail-log entries.
#pragma once

#include <cstdint>

namespace ovrmail::log {

// Levels of MailLogWrite.
enum Level : std::uint32_t { kSent = 1, kReceived = 2, kNote = 3 };

// Exchanges of MailLogTimeOutWrite.
enum Exchange : std::int32_t { kSmtp = 1, kPop = 2 };

// Written in place of every password.
inline constexpr const char* kMasked = "******";

}  // namespace ovrmail::log

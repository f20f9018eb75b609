// entry.hpp - levels, exchanges and the password mask of mail-log entries.
#pragma once

#include <array>
#include <cstdint>

namespace ovrmail::log {

// Levels of MailLogWrite.
enum Level : std::uint32_t { kSent = 1, kReceived = 2, kNote = 3 };

// How the entries of each level are marked.
inline constexpr std::array<const char*, 4> kLabels{nullptr, "S:", "R:", "-:"};

// Exchanges of MailLogTimeOutWrite.
enum Exchange : std::int32_t { kSmtp = 1, kPop = 2 };

// Written in place of every password.
inline constexpr const char* kMasked = "******";

}  // namespace ovrmail::log

// identity.hpp - the names in a message: its boundary, its Message-Id, the id of its pieces.
#pragma once

#include <array>
#include <cstddef>
#include <ctime>
#include <span>

namespace ovrmail::mime {

inline constexpr std::size_t kDateSize = 32;      // "Thu, 01 Jan 1970 00:00:00 +0000" and its NUL
inline constexpr std::size_t kBoundarySize = 40;  // 31 characters for all present times
inline constexpr std::size_t kFieldSize = 256;    // one word of the resolver's configuration
inline constexpr std::size_t kHostSize = 65 + 1 + kFieldSize;  // node name, dot, domain
inline constexpr std::size_t kMessageIdSize = 64 + kHostSize;  // the line with CR LF and NUL

// Boundary "---------------OvWexl1795248204" of a number of seconds. Returns its length.
int make_boundary(std::span<char, kBoundarySize> boundary, std::time_t seconds) noexcept;

// The node name, with the resolver's domain when it has no dot. True when the domain was found.
bool find_host_name(std::span<char, kHostSize> name) noexcept;

}  // namespace ovrmail::mime

// hmac_md5.hpp - the keyed digest of CRAM-MD5 (RFC 2104).
#pragma once

#include <array>
#include <span>

namespace ovrmail::smtp {

using Digest = std::array<unsigned char, 16>;

void hmac_md5(std::span<const char> text, std::span<const char> key, Digest& digest) noexcept;

}  // namespace ovrmail::smtp

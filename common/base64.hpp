// base64.hpp - the one base64 kernel (RFC 4648, standard alphabet, padded, no line breaks).
#pragma once

#include <cstddef>
#include <span>

namespace ovrmail::common {

inline constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::size_t base64_length(std::size_t bytes) noexcept { return (bytes + 2) / 3 * 4; }

// Writes base64_length(src.size()) characters to dst, no NUL. The areas must not overlap.
// Returns the number written.
std::size_t base64_encode(std::span<const unsigned char> src, char* dst) noexcept;

}  // namespace ovrmail::common

// base64.hpp - the one base64 kernel (RFC 4648, standard alphabet, padded, no line breaks), and
// its form in lines for the body of a message (RFC 2045 section 6.8).
#pragma once

#include <cstddef>
#include <span>

namespace ovrmail::common {

inline constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::size_t base64_length(std::size_t bytes) noexcept { return (bytes + 2) / 3 * 4; }

// Writes base64_length(src.size()) characters to dst, which has room for them, no NUL. The areas
// must not overlap. Returns the number written.
std::size_t base64_encode(std::span<const unsigned char> src, std::span<char> dst) noexcept;

inline constexpr std::size_t kBase64LineBytes = 51;
inline constexpr std::size_t kBase64LineSize = base64_length(kBase64LineBytes) + 2;

// Encodes 51 bytes a line, each line with its CR LF; the last line holds what is left. dst has
// room for kBase64LineSize characters per started line. Returns the number written.
std::size_t base64_encode_lines(std::span<const unsigned char> src, std::span<char> dst) noexcept;

}  // namespace ovrmail::common

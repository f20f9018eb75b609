// credentials.hpp - base64 of the credentials, in both directions, and an owner for secrets.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

namespace ovrmail::smtp {

// Characters on the stack that the destructor wipes.
template <std::size_t kSize>
class Secret : public std::array<char, kSize> {
public:
    Secret() noexcept { this->fill('\0'); }
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
    ~Secret() { ::explicit_bzero(this->data(), kSize); }
};

// Encodes `in` and adds a NUL. Returns the length; 0 and an empty text when it does not fit.
std::size_t to_base64(std::span<const char> in, std::span<char> out) noexcept;

// Decodes `text`, without one CR LF at its end, and adds a NUL. A character that is missing or
// outside the alphabet counts as padding: in the third or fourth place of a group it ends the text.
// Returns the number of bytes; -1 and an empty text when they do not fit.
std::int32_t from_base64(std::span<char> out, std::string_view text) noexcept;

}  // namespace ovrmail::smtp

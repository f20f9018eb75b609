// text.hpp - bounded text: the only way the library formats, copies and measures characters.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace ovrmail::common {

// Formats into `dst`, always NUL-terminated when dst is not empty. Returns the length, or -1 when
// the text does not fit; dst then holds its beginning.
__attribute__((format(printf, 2, 3))) int format_into(std::span<char> dst, const char* format,
                                                      ...) noexcept;

// Copies as much of `text` as fits and terminates it. Returns the length copied.
std::size_t copy_into(std::span<char> dst, std::string_view text) noexcept;

// The text behind its first `count` characters, empty when there are none. Unlike substr() it
// never throws, so the library needs nothing of the C++ runtime.
constexpr std::string_view skip(std::string_view text, std::size_t count) noexcept {
    text.remove_prefix(count < text.size() ? count : text.size());
    return text;
}

// The text in a fixed field that may lack its NUL.
std::string_view bounded(std::span<const char> field) noexcept;

}  // namespace ovrmail::common

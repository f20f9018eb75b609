// text.cpp - bounded text; see text.hpp.
//
// All folders format, copy and measure texts with it. A text that does not fit is cut or reported,
// never written behind its buffer. No state.
#include "common/text.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace ovrmail::common {

int format_into(std::span<char> dst, const char* format, ...) noexcept {
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(dst.data(), dst.size(), format, args);
    va_end(args);
    return length >= 0 && static_cast<std::size_t>(length) < dst.size() ? length : -1;
}

std::size_t copy_into(std::span<char> dst, std::string_view text) noexcept {
    if (dst.empty()) return 0;
    const std::size_t length = std::min(text.size(), dst.size() - 1);
    std::memcpy(dst.data(), text.data(), length);
    dst[length] = '\0';
    return length;
}

std::string_view bounded(std::span<const char> field) noexcept {
    return {field.data(), ::strnlen(field.data(), field.size())};
}

}  // namespace ovrmail::common

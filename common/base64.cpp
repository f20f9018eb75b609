// base64.cpp - the base64 kernel; see base64.hpp.
#include "common/base64.hpp"

namespace ovrmail::common {

std::size_t base64_encode(std::span<const unsigned char> src, char* dst) noexcept {
    const char* const alphabet = kBase64Alphabet;
    char* out = dst;
    std::size_t i = 0;
    for (; i + 3 <= src.size(); i += 3) {
        const unsigned group = static_cast<unsigned>(src[i]) << 16 |
                               static_cast<unsigned>(src[i + 1]) << 8 | src[i + 2];
        *out++ = alphabet[group >> 18];
        *out++ = alphabet[group >> 12 & 63];
        *out++ = alphabet[group >> 6 & 63];
        *out++ = alphabet[group & 63];
    }
    if (i < src.size()) {
        const bool two = src.size() - i == 2;
        const unsigned group = static_cast<unsigned>(src[i]) << 16 |
                               (two ? static_cast<unsigned>(src[i + 1]) << 8 : 0);
        *out++ = alphabet[group >> 18];
        *out++ = alphabet[group >> 12 & 63];
        *out++ = two ? alphabet[group >> 6 & 63] : '=';
        *out++ = '=';
    }
    return static_cast<std::size_t>(out - dst);
}

}  // namespace ovrmail::common

// base64.cpp - SMTP_toBase64: the exported encoder (RFC 4648 section 4) over the common kernel.
//
// A send does not call it; it serves other callers of the library. No state.
#include "common/base64.hpp"

#include <cstdint>
#include <cstring>

#include "mime.h"

std::int32_t SMTP_toBase64(char* src, char* dst, std::int32_t length) noexcept {
    if (dst == nullptr) return 0;
    std::size_t written = 0;
    if (src != nullptr && length >= 0) {
        const auto size = static_cast<std::size_t>(length);
        // Kept: three zero bytes are written behind the source. Existing callers provide room for
        // them and may rely on them.
        std::memset(src + size, 0, 3);
        written =
            ovrmail::common::base64_encode({reinterpret_cast<const unsigned char*>(src), size},
                                           {dst, ovrmail::common::base64_length(size)});
    }
    dst[written] = '\0';
    return static_cast<std::int32_t>(written);
}

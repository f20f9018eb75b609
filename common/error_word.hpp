// error_word.hpp - the caller's error word, which may be absent.
#pragma once

#include <cstdint>

namespace ovrmail::common {

inline void set_error(std::uint32_t* err, std::uint32_t value) noexcept {
    if (err != nullptr) *err = value;
}

inline void set_error(std::uint32_t* err, int value) noexcept {
    set_error(err, static_cast<std::uint32_t>(value));
}

}  // namespace ovrmail::common

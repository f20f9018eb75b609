// result.hpp - results of composition.
#pragma once

#include <cstdint>

namespace ovrmail::mime {

enum Result : std::int32_t {
    kOk = 0,
    kOpenFailed = -31,   // a file to be read cannot be opened
    kReadFailed = -32,   // reading failed, or a seek while streaming or cutting
    kWriteFailed = -33,  // a write failed or fell short, or a seek failed while composing
};

}  // namespace ovrmail::mime

// fuzz.hpp - what the fuzz targets share. A target judges one input; see CMakeLists.txt.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

inline void demand(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "==ERROR: does not hold: %s\n", what);
    std::abort();
}

inline std::string_view text(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

}  // namespace fuzz

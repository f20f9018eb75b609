// micro.hpp - test data shared by the micro-benchmarks.
#pragma once

#include <cstddef>
#include <string>

namespace bench {

// Bytes that look random, the same in every run.
inline std::string noise(std::size_t size) {
    std::string bytes(size, '\0');
    unsigned state = 1;
    for (char& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

// A name for a file in the private directories, which lie in memory.
inline std::string memory_path(const char* name) { return std::string("/var/opt/") + name; }

}  // namespace bench

// fuzz.hpp - what the fuzz targets share. A target judges one input; see CMakeLists.txt.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

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

// A file in memory with a path.
class MemoryFile {
public:
    MemoryFile() : fd_(::memfd_create("fuzz", MFD_CLOEXEC)) {}
    explicit MemoryFile(std::string_view bytes) : MemoryFile() {
        demand(::pwrite(fd_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
               "memory for the input");
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { ::close(fd_); }
    [[nodiscard]] int fd() const { return fd_; }
    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }
    [[nodiscard]] std::string bytes() const {
        std::string all(static_cast<std::size_t>(::lseek(fd_, 0, SEEK_END)), '\0');
        demand(::pread(fd_, all.data(), all.size(), 0) == static_cast<ssize_t>(all.size()), "read");
        return all;
    }

private:
    int fd_;
};

}  // namespace fuzz

// support.cpp - see support.hpp.
#include "support/support.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace support {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "ovrmail-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void write_file(const std::string& path, std::string_view bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

int open_descriptors() {
    const std::filesystem::directory_iterator fds("/proc/self/fd");
    return static_cast<int>(std::distance(begin(fds), end(fds))) - 1;  // less the iterator's own
}

}  // namespace support

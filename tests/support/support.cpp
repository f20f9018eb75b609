// support.cpp - see support.hpp.
#include "support/support.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "mail_log.h"
#include "trace.h"

namespace support {

TempDir::TempDir() {
    // Private directories are in memory (private_dirs.sh).
    const bool is_private = std::getenv("OVRMAIL_PRIVATE_DIRS") != nullptr;
    const std::filesystem::path parent =
        is_private ? "/var/opt" : std::filesystem::temp_directory_path();
    std::string pattern = (parent / "ovrmail-XXXXXX").string();
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
    std::ostringstream all;
    all << std::ifstream(path, std::ios::binary).rdbuf();
    return all.str();
}

std::string times(std::size_t n, std::string_view text) {
    std::string all;
    while (n-- > 0) all += text;
    return all;
}

std::string word(std::int64_t value) {
    const auto low = static_cast<std::uint32_t>(value);
    return {reinterpret_cast<const char*>(&low), sizeof low};
}

LogCapture::LogCapture() {
    handle_.fd = ::memfd_create("log", MFD_CLOEXEC);
    g_pLogHandle = &handle_;
}

LogCapture::~LogCapture() {
    g_pLogHandle = nullptr;
    ::close(handle_.fd);
}

std::string LogCapture::text() const {
    return read_file("/proc/self/fd/" + std::to_string(handle_.fd));
}

TraceCapture::TraceCapture() { g_trace = Topen(dir_.file("ring").c_str(), 64, 2); }

TraceCapture::~TraceCapture() {
    Tclose(g_trace);
    g_trace = nullptr;
}

int TraceCapture::count(const std::string& bytes) const {
    const std::string ring = read_file(dir_.file("ring"));
    int found = 0;
    for (std::size_t at = 0; (at = ring.find(bytes, at)) != std::string::npos; ++at) ++found;
    return found;
}

}  // namespace support

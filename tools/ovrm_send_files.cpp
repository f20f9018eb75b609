// ovrm_send_files.cpp - reading files, and the temporary directory; see ovrm_send_files.hpp.
//
// Everything that holds the mail in the clear and is not the library's lies in that one directory,
// so that also a signal can take it away.
#include "ovrm_send_files.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace ovrm_send {
namespace {

int read_to_end(int fd, std::string& out) {
    std::array<char, 65536> block;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    for (;;) {
        const ssize_t got = read(fd, block.data(), block.size());
        if (got == 0) return 0;
        if (got > 0) {
            out.append(block.data(), static_cast<std::size_t>(got));
        } else if (errno != EINTR) {
            return errno;
        }
    }
}

}  // namespace

void claim_standard_files() {
    int fd = open("/dev/null", O_WRONLY);
    while (fd >= 0 && fd <= STDERR_FILENO) fd = open("/dev/null", O_WRONLY);
    if (fd >= 0) close(fd);
}

int read_file(const std::string& path, std::string& out) {
    out.clear();
    if (path == "-") return read_to_end(STDIN_FILENO, out);
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return errno;
    const int error = read_to_end(fd, out);
    close(fd);
    return error;
}

TemporaryDirectory::TemporaryDirectory() {
    std::error_code error;
    std::string pattern =
        std::filesystem::temp_directory_path(error).string() + "/ovrm-send-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) return;
    path_ = pattern;
    setenv("TMPDIR", path_.c_str(), 1);
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code error;
    if (!path_.empty()) std::filesystem::remove_all(path_, error);
}

}  // namespace ovrm_send

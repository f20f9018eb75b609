// ovrm_send_log.cpp - follows the mail log of this process while a send writes it.
//
// The library opens the log at the start of a send, and before that may rename a full one, or empty
// it where it cannot be renamed: the file is looked up by its name each time.
#include "ovrm_send_log.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "log/entry.hpp"
#include "ovrm_send_places.hpp"
#include "ovrm_send_show.hpp"
#include "ovrmail_text.hpp"

namespace ovrm_send {
namespace {

// "HH:MM:SS -: TEXT": the subject, in the code of the library.
bool is_note(std::string_view line) {
    constexpr std::size_t kLabelAt = 9;
    namespace log = ovrmail::log;
    return line.size() > kLabelAt && line.substr(kLabelAt).starts_with(log::kLabels[log::kNote]);
}

}  // namespace

LogReader::LogReader(bool follow) : follow_(follow) {
    struct stat status {};
    if (lstat(mail_log_path().c_str(), &status) != 0) return;
    file_ = status.st_ino;
    at_ = status.st_size;
}

void LogReader::take_lines() {
    std::size_t at = 0;
    for (std::size_t end = 0; (end = partial_.find('\n', at)) != std::string::npos; at = end + 1) {
        std::string line = partial_.substr(at, end - at);
        if (line.ends_with('\r')) line.pop_back();
        if (follow_) print(is_note(line) ? ovrmail::from_library_text(line) : line);
        lines_.push_back(std::move(line));
    }
    partial_.erase(0, at);
}

void LogReader::read() {
    const int fd = open(mail_log_path().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) return;
    struct stat status {};
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        if (status.st_ino != file_ || status.st_size < at_) at_ = 0;
        file_ = status.st_ino;
        std::array<char, 4096> block;  // NOLINT(cppcoreguidelines-pro-type-member-init)
        for (ssize_t got = 0; (got = pread(fd, block.data(), block.size(), at_)) > 0; at_ += got)
            partial_.append(block.data(), static_cast<std::size_t>(got));
    }
    close(fd);
    take_lines();
}

}  // namespace ovrm_send

// ovrm_send_log.hpp - what this process adds to its mail log.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace ovrm_send {

// The lines that one send adds. An earlier process of the same number may have written to the file
// before, and the library may move the file away when the send begins.
class LogReader {
public:
    // From here on lines count. With `follow` each is printed when it is read.
    explicit LogReader(bool follow);

    // Takes what came since the last call. Not for two threads at once.
    void read();

    // As the library wrote them, without line ends. Empty: the mail log is switched off, or cannot
    // be read.
    [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }

private:
    void take_lines();

    const bool follow_;
    ino_t file_ = 0; /* which one was read, and how far */
    off_t at_ = 0;
    std::string partial_;
    std::vector<std::string> lines_;
};

}  // namespace ovrm_send

// ovrm_trace_log.hpp - the lines of a mail log with their full time.
#pragma once

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace ovrm_trace {

struct LogLine {
    std::time_t time;
    std::string text;  // without the time; lines that belong together are joined by LF
};

// Lines in front of the first banner get the date of `modified`.
std::vector<LogLine> read_mail_log(std::string_view file, std::time_t modified);

}  // namespace ovrm_trace

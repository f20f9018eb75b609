// ovrm_trace_log.hpp - the entries of a mail log with their full time.
#pragma once

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace ovrm_trace {

enum class Entry {
    kBegin,     // "[4711] Dovrin E-Mail"
    kSent,      // "S: "
    kReceived,  // "R: "
    kNote,      // "-: ", the subject
    kError,     // "-: ERROR: "
    kEnd,       // "END"
    kOther,     // what stands in front of the first entry
};

struct LogLine {
    std::int64_t time = 0;
    Entry entry = Entry::kOther;
    std::string text;                    // without the time
    std::vector<std::string> continued;  // further lines of the same entry
};

// Entries in front of the first banner get the date of `modified`.
std::vector<LogLine> read_mail_log(std::string_view file, std::time_t modified);

// What stands behind the label of an entry.
std::string_view said(const LogLine& line);

// The process that a kBegin names; 0 for other entries.
int process_of(const LogLine& line);

}  // namespace ovrm_trace

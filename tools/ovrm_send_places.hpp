// ovrm_send_places.hpp - where the library keeps its files, from the library's own names for them.
#pragma once

#include <unistd.h>

#include <string>

#include "common/paths.hpp"

namespace ovrm_send {

namespace paths = ovrmail::common::paths;

inline std::string in_data_directory(std::string format) {
    return format.replace(format.find("%s"), 2, paths::kDataDir);
}
inline std::string work_directory() { return in_data_directory(paths::kWorkDirFormat); }
inline std::string trace_directory() { return in_data_directory(paths::kTraceDirFormat); }
inline std::string log_directory() { return in_data_directory(paths::kLogDirFormat); }

// The mail log of this process.
inline std::string mail_log_path() {
    return log_directory() + "/" + paths::kMailLogPrefix + std::to_string(getpid()) + ".log";
}

}  // namespace ovrm_send

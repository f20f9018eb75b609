// directories.hpp - names of the trace and log directories.
#pragma once

#include <array>

#include "common/paths.hpp"
#include "common/text.hpp"

namespace ovrmail::log {

struct DirectoryName {
    std::array<char, 256> text;
};

inline DirectoryName trace_directory() noexcept {
    DirectoryName name{};
    (void)common::format_into(name.text, common::paths::kTraceDirFormat, common::paths::kDataDir);
    return name;
}

inline DirectoryName log_directory() noexcept {
    DirectoryName name{};
    (void)common::format_into(name.text, common::paths::kLogDirFormat, common::paths::kDataDir);
    return name;
}

}  // namespace ovrmail::log

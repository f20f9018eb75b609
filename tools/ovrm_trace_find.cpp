// ovrm_trace_find.cpp - paths of rings and logs; see ovrm_trace_find.hpp.
//
// Directories and names are those of the library's own headers.
#include "ovrm_trace_find.hpp"

#include <glob.h>
#include <sys/stat.h>

#include <cctype>
#include <charconv>
#include <filesystem>
#include <tuple>

#include "common/paths.hpp"

namespace ovrm_trace {
namespace {

namespace paths = ovrmail::common::paths;

// A directory of the product: `format` is "%s/name".
std::string directory(std::string format) {
    return format.replace(format.find("%s"), 2, paths::kDataDir);
}

}  // namespace

std::string pattern_of_rings() {
    return directory(paths::kTraceDirFormat) + "/" + paths::kSendRingPrefix + "*.trc";
}

std::vector<std::string> matching(const std::string& pattern) {
    std::error_code ignored;
    if (std::filesystem::exists(pattern, ignored)) return {pattern};
    std::vector<std::string> files;
    glob_t found{};
    if (::glob(pattern.c_str(), 0, nullptr, &found) == 0)
        files.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    ::globfree(&found);
    return files;
}

std::string newest(const std::vector<std::string>& files) {
    std::string best;
    std::tuple<std::time_t, long> latest{0, 0};
    for (const std::string& file : files) {
        struct stat status {};
        if (::stat(file.c_str(), &status) != 0) continue;
        const std::tuple<std::time_t, long> changed{status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
        if (!best.empty() && changed < latest) continue;
        best = file;
        latest = changed;
    }
    return best;
}

int process_of_ring(const std::string& ring) {
    const std::string name = std::filesystem::path(ring).filename();
    const char* at = name.c_str();
    while (std::isalpha(static_cast<unsigned char>(*at)) != 0) ++at;
    int process = 0;
    std::from_chars(at, name.c_str() + name.size(), process);
    return process;
}

std::vector<std::string> siblings_of(const std::string& ring) {
    const std::size_t name = ring.rfind('/') + 1;  // 0 when there is none
    const std::size_t end = ring.find('-', name);
    if (end == ring.npos) return {};
    std::vector<std::string> files = matching(ring.substr(0, end) + "-*.trc");
    std::erase(files, ring);
    return files;
}

std::string log_of(int process) {
    return directory(paths::kLogDirFormat) + "/" + paths::kMailLogPrefix + std::to_string(process) +
           ".log";
}

}  // namespace ovrm_trace

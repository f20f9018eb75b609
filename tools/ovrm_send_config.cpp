// ovrm_send_config.cpp - looks at the directories that a send uses and at the name of this host.
//
// A directory that others can write to lets them put files in the library's way; one that they can
// read shows them mails while they are sent, and logs. Working files of a process that has ended
// hold a mail that nobody deletes.
#include "ovrm_send_config.hpp"

#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <filesystem>

#include "ovrm_send_inspect.hpp"
#include "ovrm_send_places.hpp"
#include "ovrm_send_show.hpp"

namespace ovrm_send {
namespace {

struct Place {
    std::string path;
    const char* purpose;
    bool needed; /* without it no mail is sent */
};

void check_mode(const std::string& label, mode_t mode, Report& report) {
    const bool is_sticky = (mode & S_ISVTX) != 0;
    if ((mode & S_IWOTH) != 0) {
        report.bad(label + ": every account can write to it");
    } else if ((mode & S_IWGRP) != 0 && !is_sticky) {
        report.bad(label +
                   ": its group can delete the files of others; mode 3770 keeps them apart");
    } else if ((mode & (S_IROTH | S_IXOTH)) != 0) {
        Report::doubtful(label + ": every account can read what is in it");
    } else {
        Report::good(label);
    }
}

void check_place(const Place& place, Report& report) {
    const std::string label = place.path + " (" + place.purpose + ")";
    struct stat status {};
    if (stat(place.path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        report.bad(label + ": no such directory; " +
                   (place.needed ? "every send ends with -3" : "nothing is written"));
    } else if (access(place.path.c_str(), W_OK | X_OK) != 0) {
        report.bad(label + ": " + std::strerror(errno));
    } else {
        check_mode(label, status.st_mode, report);
    }
}

// "EST4711-123456": the process that made it.
int maker_of(const std::string& name) {
    for (const std::string prefix : {paths::kBodyFilePrefix, paths::kComposedFilePrefix}) {
        int process = 0;
        const char* const end = name.data() + name.size();
        if (!name.starts_with(prefix)) continue;
        const auto [at, error] = std::from_chars(name.data() + prefix.size(), end, process);
        if (error == std::errc{} && at != end && *at == '-') return process;
    }
    return 0;
}

void check_left_over_files(Report& report) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(work_directory(), error)) {
        const int process = maker_of(entry.path().filename().string());
        if (process > 0 && kill(process, 0) != 0 && errno == ESRCH)
            report.bad(entry.path().string() +
                       ": left over by a process that has ended; it may hold a mail: delete it");
    }
}

}  // namespace

void Report::good(const std::string& what) { print("ok       " + what); }
void Report::doubtful(const std::string& what) { print("warning  " + what); }
void Report::bad(const std::string& what) {
    print("problem  " + what);
    is_clean_ = false;
}

int check_config(const Options& options) {
    Report report;
    for (const Place& place :
         {Place{work_directory(), "working files", true}, Place{log_directory(), "mail log", false},
          Place{trace_directory(), "trace rings", false}})
        check_place(place, report);
    check_left_over_files(report);
    check_settings(report);
    for (const std::string& remark : host_name_remarks()) Report::doubtful(remark);
    if (!options.server.empty()) check_server(options, report);
    return report.is_clean() ? EX_OK : EX_CONFIG;
}

}  // namespace ovrm_send

// ovrm_send_config.cpp - looks at the places a send uses, and at every line of the two
// configuration files.
#include "ovrm_send_config.hpp"

#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>

#include "profile.h"
#include "trace.h"

namespace ovrm_send {
namespace {

constexpr const char* kTraceConfig = "/etc/opt/Quorvin/trc_conf";
constexpr const char* kMailOptions = "/etc/opt/Quorvin/rmmail.ini";

struct Place {
    const char* path;
    const char* purpose;
    bool needed; /* without it no mail is sent */
};
constexpr std::array<Place, 3> kPlaces{{{"/var/opt/Quorvin/tmp", "working files", true},
                                        {"/var/opt/Quorvin/log", "mail log", false},
                                        {"/var/opt/Quorvin/tmp2", "trace rings", false}}};

struct Key {
    const char* file;
    std::string_view section;
    std::string_view name;
};
constexpr std::array<Key, 9> kKeys{{{kTraceConfig, "ACERT", "TRACESIZE"},
                                    {kTraceConfig, "ACERT", "TRACELEVEL"},
                                    {kTraceConfig, "ACERT", "TRACENUM"},
                                    {kTraceConfig, "AGETS", "TRACESIZE"},
                                    {kTraceConfig, "AGETS", "TRACELEVEL"},
                                    {kTraceConfig, "AGETS", "TRACENUM"},
                                    {kTraceConfig, "LOG", "LOGSIZE"},
                                    {kTraceConfig, "LOG", "LOGNUM"},
                                    {kMailOptions, "RMMAIL", "CONTENT_DISPOSITION"}}};

class Report {
public:
    static void good(const std::string& what) { std::cout << "ok       " << what << "\n"; }
    void bad(const std::string& what) {
        std::cout << "problem  " << what << "\n";
        clean_ = false;
    }
    [[nodiscard]] bool clean() const { return clean_; }

private:
    bool clean_ = true;
};

void check_places(Report& report) {
    for (const Place& place : kPlaces) {
        const std::string label = std::string(place.path) + " (" + place.purpose + ")";
        if (!std::filesystem::is_directory(place.path)) {
            report.bad(label + ": no such directory; " +
                       (place.needed ? "every send ends with -3" : "nothing is written"));
        } else if (access(place.path, W_OK | X_OK) != 0) {
            report.bad(label + ": " + std::strerror(errno));
        } else {
            Report::good(label);
        }
    }
}

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool is_known(const char* file, std::string_view section, std::string_view name) {
    return std::any_of(kKeys.begin(), kKeys.end(), [&](const Key& key) {
        return std::strcmp(key.file, file) == 0 && key.section == section && key.name == name;
    });
}

void check_line(const char* file, int number, std::string_view line, std::string& section,
                Report& report) {
    const std::string where = std::string(file) + ":" + std::to_string(number) + ": ";
    const std::string_view inside = trimmed(line);
    if (inside.empty() || inside[0] == ';') return;
    if (inside[0] == '[') {
        const std::size_t end = inside.find(']');
        if (end == std::string_view::npos) return report.bad(where + "\"]\" is missing");
        section = inside.substr(1, end - 1);
        return;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos || equals == 0) {
        return report.bad(where + "not a KEY=value line; it is ignored");
    }
    const std::string_view name = line.substr(0, equals);
    if (is_known(file, section, name)) return;
    const bool blanks = is_known(file, section, trimmed(name));
    report.bad(where + (blanks ? "blanks around the key belong to its name; it is not found"
                               : "no such key in section [" + section + "]; it has no effect"));
}

void check_lines(const char* file, Report& report) {
    std::ifstream in(file);
    if (!in) {
        if (errno == ENOENT) return Report::good(std::string(file) + ": none; all defaults");
        return report.bad(std::string(file) + ": " + std::strerror(errno) + "; all defaults");
    }
    std::string line;
    std::string section;
    for (int number = 1; std::getline(in, line); ++number) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        check_line(file, number, line, section, report);
    }
}

void check_traces(Report& report) {
    for (const char* section : {"ACERT", "AGETS"}) {
        std::int32_t size_kb = 5;
        std::int32_t level = std::strcmp(section, "ACERT") == 0 ? 1 : 0;
        std::int32_t count = 5;
        const bool taken = GetTraceInfo(section, 0, &size_kb, &level, &count) == 0;
        const std::string effect = std::string("[") + section + "] size " +
                                   std::to_string(size_kb) + " KiB, level " +
                                   std::to_string(level) + ", " + std::to_string(count) + " files";
        if (taken) {
            Report::good(effect);
        } else {
            report.bad(effect + ": the defaults, because a value is out of range");
        }
    }
}

// The setting as the mail log takes it: out of range means 20, and LOGNUM 0 switches it off.
void check_log_setting(const char* name, std::int32_t low, bool may_be_off, Report& report) {
    MailProfile* profile = Com_OpenPrivateProfile(kTraceConfig, 0);
    if (profile == nullptr) return;
    const std::int32_t value = Com_GetPrivateProfileInt(profile, "LOG", name, 20, nullptr);
    Com_ClosePrivateProfile(profile, nullptr);
    const std::string label = std::string("[LOG] ") + name + " " + std::to_string(value);
    if (may_be_off && value == 0) {
        report.bad(label + ": the mail log is switched off");
    } else if (value < low || value > 100) {
        report.bad(label + ": out of range, 20 is used");
    } else {
        Report::good(label);
    }
}

}  // namespace

int check_config() {
    Report report;
    check_places(report);
    check_lines(kTraceConfig, report);
    check_traces(report);
    check_log_setting("LOGSIZE", 10, false, report);
    check_log_setting("LOGNUM", 5, true, report);
    check_lines(kMailOptions, report);
    return report.clean() ? EX_OK : EX_CONFIG;
}

}  // namespace ovrm_send

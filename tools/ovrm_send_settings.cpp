// ovrm_send_settings.cpp - every line of the two configuration files, as the library will take it.
//
// The library reads a value up to its first character that is no digit, and puts a default in the
// place of one that is out of range: neither is told anywhere else.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <string_view>

#include "ovrm_send_config.hpp"
#include "ovrm_send_places.hpp"
#include "profile.h"
#include "trace.h"

namespace ovrm_send {
namespace {

constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kLargestRing = 4194295; /* KiB: less than 4 GiB in the file */
constexpr const char* kAllDefaults = "the section's three keys have their defaults";

struct Key {
    const char* file;
    std::string_view section;
    std::string_view name;
    std::int32_t low;
    std::int32_t high;
    const char* otherwise; /* what is used for a value out of range */
};
constexpr std::array kKeys{
    Key{paths::kTraceConfig, "ACERT", "TRACESIZE", 1, kLargestRing, kAllDefaults},
    Key{paths::kTraceConfig, "ACERT", "TRACELEVEL", 0, 2, "2 is used for more"},
    Key{paths::kTraceConfig, "ACERT", "TRACENUM", 0, kMost, kAllDefaults},
    Key{paths::kTraceConfig, "AGETS", "TRACESIZE", 1, kLargestRing, kAllDefaults},
    Key{paths::kTraceConfig, "AGETS", "TRACELEVEL", 0, 2, "2 is used for more"},
    Key{paths::kTraceConfig, "AGETS", "TRACENUM", 0, kMost, kAllDefaults},
    Key{paths::kTraceConfig, "LOG", "LOGSIZE", 10, 100, "20 is used"},
    Key{paths::kTraceConfig, "LOG", "LOGNUM", 5, 100, "20 is used"},
    Key{paths::kMailOptions, "RMMAIL", "CONTENT_DISPOSITION", 0, 1, "0 is used"}};

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

const Key* find_key(const char* file, std::string_view section, std::string_view name) {
    const auto* found = std::find_if(kKeys.begin(), kKeys.end(), [&](const Key& key) {
        return std::strcmp(key.file, file) == 0 && key.section == section && key.name == name;
    });
    return found == kKeys.end() ? nullptr : found;
}

// The value as the library reads it.
std::int32_t taken_value(const Key& key, std::int32_t fallback) {
    MailProfile* profile = Com_OpenPrivateProfile(key.file, 0);
    const std::int32_t value =
        Com_GetPrivateProfileInt(profile, std::string(key.section).c_str(),
                                 std::string(key.name).c_str(), fallback, nullptr);
    if (profile != nullptr) Com_ClosePrivateProfile(profile, nullptr);
    return value;
}

void check_value(const std::string& where, const Key& key, std::string_view text, Report& report) {
    const std::string label = where + std::string(key.name) + "=" + std::string(text) + ": ";
    const std::int32_t value = taken_value(key, 0);
    if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos)
        return report.bad(label + "no plain number; " + std::to_string(value) + " is used");
    if (key.name == "LOGNUM" && value == 0)
        return report.bad(label + "the mail log is switched off");
    if (value < key.low || value > key.high)
        report.bad(label + "not from " + std::to_string(key.low) + " to " +
                   std::to_string(key.high) + "; " + key.otherwise);
}

// A file, and how far it has been read.
struct Position {
    const char* file;
    int number = 0;
    std::string section = {};
};

void check_line(Position& at, std::string_view line, Report& report) {
    const std::string where = std::string(at.file) + ":" + std::to_string(at.number) + ": ";
    const std::string_view inside = trimmed(line);
    if (inside.empty() || inside[0] == ';') return;
    if (inside[0] == '[') {
        const std::size_t end = inside.find(']');
        if (end == std::string_view::npos) return report.bad(where + "\"]\" is missing");
        at.section = inside.substr(1, end - 1);
        return;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos || equals == 0)
        return report.bad(where + "not a KEY=value line; it is ignored");
    const std::string_view name = line.substr(0, equals);
    if (const Key* key = find_key(at.file, at.section, name))
        return check_value(where, *key, line.substr(equals + 1), report);
    const bool blanks = find_key(at.file, at.section, trimmed(name)) != nullptr;
    report.bad(where + (blanks ? "blanks around the key belong to its name; it is not found"
                               : "no such key in section [" + at.section + "]; it has no effect"));
}

void check_lines(const char* file, Report& report) {
    std::ifstream in(file);
    if (!in) {
        if (errno == ENOENT) return Report::good(std::string(file) + ": none; all defaults");
        return report.bad(std::string(file) + ": " + std::strerror(errno) + "; all defaults");
    }
    Position at{file};
    for (std::string line; std::getline(in, line);) {
        ++at.number;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        check_line(at, line, report);
    }
}

void show_traces() {
    for (const char* section : {"ACERT", "AGETS"}) {
        std::int32_t size_kb = 5;
        std::int32_t level = std::strcmp(section, "ACERT") == 0 ? 1 : 0;
        std::int32_t count = 5;
        (void)GetTraceInfo(section, 0, &size_kb, &level, &count);
        Report::good(std::string("[") + section + "] size " + std::to_string(size_kb) +
                     " KiB, level " + std::to_string(level) + ", " + std::to_string(count) +
                     " files");
    }
}

// Out of range means 20, and LOGNUM 0 switches the log off.
std::string log_setting(std::string_view name) {
    constexpr std::int32_t kDefault = 20;
    const Key& key = *find_key(paths::kTraceConfig, "LOG", name);
    const std::int32_t value = taken_value(key, kDefault);
    const bool is_taken =
        (value >= key.low && value <= key.high) || (name == "LOGNUM" && value == 0);
    return std::to_string(is_taken ? value : kDefault);
}

void show_log() {
    Report::good("[LOG] size " + log_setting("LOGSIZE") + " KiB, " + log_setting("LOGNUM") +
                 " files");
}

}  // namespace

void check_settings(Report& report) {
    check_lines(paths::kTraceConfig, report);
    check_lines(paths::kMailOptions, report);
    show_traces();
    show_log();
}

}  // namespace ovrm_send

// ovrm_trace_log.cpp - gives the lines of a mail log their date.
//
// Banners carry date and time ("2026/11/21 09:05:00 [4711] Dovrin E-Mail"), entries the time alone
// ("09:05:00 S: QUIT"); what has neither goes on with the entry before it.
#include "ovrm_trace_log.hpp"

#include <algorithm>
#include <charconv>

namespace ovrm_trace {
namespace {

constexpr int kHalfDay = 12 * 3600;
constexpr std::string_view kDateForm = "0000/00/00 ";
constexpr std::string_view kTimeForm = "00:00:00 ";

// Whether `text` begins like `form`, where 0 stands for any digit.
bool begins_like(std::string_view text, std::string_view form) {
    return text.size() >= form.size() &&
           std::equal(form.begin(), form.end(), text.begin(), [](char wanted, char c) {
               return wanted == '0' ? c >= '0' && c <= '9' : c == wanted;
           });
}

int number(std::string_view text, std::size_t at, std::size_t digits) {
    int value = 0;
    std::from_chars(text.data() + at, text.data() + at + digits, value);
    return value;
}

// Takes the date off `line`, when it begins with one.
bool take_date(std::string_view& line, std::tm& date) {
    if (!begins_like(line, kDateForm)) return false;
    date.tm_year = number(line, 0, 4) - 1900;
    date.tm_mon = number(line, 5, 2) - 1;
    date.tm_mday = number(line, 8, 2);
    line.remove_prefix(kDateForm.size());
    return true;
}

std::time_t time_on(std::tm date, std::string_view line) {
    date.tm_hour = number(line, 0, 2);
    date.tm_min = number(line, 3, 2);
    date.tm_sec = number(line, 6, 2);
    date.tm_isdst = -1;
    return std::mktime(&date);
}

std::string_view take_line(std::string_view& file) {
    const std::size_t end = std::min(file.find('\n'), file.size());
    std::string_view line = file.substr(0, end);
    file.remove_prefix(std::min(end + 1, file.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

}  // namespace

std::vector<LogLine> read_mail_log(std::string_view file, std::time_t modified) {
    std::vector<LogLine> lines;
    std::tm date{};
    ::localtime_r(&modified, &date);
    while (!file.empty()) {
        const std::string_view whole = take_line(file);
        std::string_view line = whole;
        const bool dated = take_date(line, date);
        if (!begins_like(line, kTimeForm)) {
            if (!lines.empty() && !whole.empty()) lines.back().text.append("\n").append(whole);
            continue;
        }
        std::time_t time = time_on(date, line);
        if (!dated && !lines.empty() && time < lines.back().time - kHalfDay) {
            ++date.tm_mday;  // past midnight; mktime puts the month right
            time = time_on(date, line);
        }
        lines.push_back({time, std::string(line.substr(kTimeForm.size()))});
    }
    return lines;
}

}  // namespace ovrm_trace

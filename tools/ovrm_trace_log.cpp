// ovrm_trace_log.cpp - takes a mail log apart, and gives its entries their date.
//
// Banners carry date and time ("2026/11/21 09:05:00 [4711] Dovrin E-Mail"), entries the time alone
// and a label ("09:05:00 S: QUIT"). The library ends every entry with CR LF: a line that begins
// otherwise, or behind a lone LF, is part of the text of the entry before it, whatever it looks
// like.
#include "ovrm_trace_log.hpp"

#include <algorithm>
#include <charconv>

namespace ovrm_trace {
namespace {

constexpr int kHalfDay = 12 * 3600;
constexpr std::string_view kDateForm = "0000/00/00 ";
constexpr std::string_view kTimeForm = "00:00:00 ";
constexpr std::string_view kBanner = "] Dovrin E-Mail";
constexpr std::size_t kLabelSize = 3;
constexpr struct {
    std::string_view label;
    Entry entry;
} kLabels[] = {{"S: ", Entry::kSent}, {"R: ", Entry::kReceived}, {"-: ", Entry::kNote}};

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

Entry entry_of(std::string_view text, bool dated) {
    if (dated) {
        if (text == "END") return Entry::kEnd;
        return text.starts_with('[') && text.ends_with(kBanner) ? Entry::kBegin : Entry::kOther;
    }
    if (text.starts_with("-: ERROR: ")) return Entry::kError;
    for (const auto& [label, entry] : kLabels)
        if (text.starts_with(label)) return entry;
    return Entry::kOther;
}

std::time_t time_on(std::tm date, std::string_view line) {
    date.tm_hour = number(line, 0, 2);
    date.tm_min = number(line, 3, 2);
    date.tm_sec = number(line, 6, 2);
    date.tm_isdst = -1;
    return std::mktime(&date);
}

struct RawLine {
    std::string_view text;
    bool ended;  // with CR LF
};

RawLine take_line(std::string_view& file) {
    const std::size_t end = std::min(file.find('\n'), file.size());
    RawLine line{file.substr(0, end), false};
    file.remove_prefix(std::min(end + 1, file.size()));
    line.ended = line.text.ends_with('\r');
    if (line.ended) line.text.remove_suffix(1);
    return line;
}

class Reader {
public:
    explicit Reader(std::time_t modified) { ::localtime_r(&modified, &date_); }

    // `fresh`: the line before it was ended as the library ends one.
    void add(std::string_view line, bool fresh) {
        if (fresh && begin_entry(line)) return;
        if (line.empty()) return;
        if (lines_.empty()) lines_.push_back({std::mktime(&date_), Entry::kOther, "", {}});
        lines_.back().continued.emplace_back(line);
    }

    std::vector<LogLine> take() { return std::move(lines_); }

private:
    bool begin_entry(std::string_view line) {
        std::tm date = date_;
        const bool dated = take_date(line, date);
        if (!begins_like(line, kTimeForm)) return false;
        const std::string_view text = line.substr(kTimeForm.size());
        const Entry entry = entry_of(text, dated);
        if (entry == Entry::kOther) return false;
        date_ = date;
        std::time_t time = time_on(date_, line);
        if (!dated && !lines_.empty() && time < lines_.back().time - kHalfDay) {
            ++date_.tm_mday;  // past midnight; mktime puts the month right
            time = time_on(date_, line);
        }
        lines_.push_back({time, entry, std::string(text), {}});
        return true;
    }

    std::tm date_{};
    std::vector<LogLine> lines_;
};

}  // namespace

std::vector<LogLine> read_mail_log(std::string_view file, std::time_t modified) {
    Reader reader(modified);
    for (bool fresh = true; !file.empty();) {
        const RawLine line = take_line(file);
        reader.add(line.text, fresh);
        fresh = line.ended;
    }
    return reader.take();
}

std::string_view said(const LogLine& line) {
    const std::string_view text = line.text;
    return text.substr(std::min(kLabelSize, text.size()));
}

int process_of(const LogLine& line) {
    if (line.entry != Entry::kBegin) return 0;
    int pid = 0;
    std::from_chars(line.text.data() + 1, line.text.data() + line.text.size(), pid);
    return pid;
}

}  // namespace ovrm_trace

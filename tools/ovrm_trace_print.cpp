// ovrm_trace_print.cpp - text for people, one JSON object a line for programs.
//
// A line for people begins with its time, and nothing that comes from a server or a caller can
// begin one: their bytes are escaped, and what goes on with a line is indented and marked.
#include "ovrm_trace_print.hpp"

#include <algorithm>
#include <array>
#include <string_view>

#include "ovrm_trace_points.hpp"
#include "ovrm_trace_text.hpp"
#include "ovrm_trace_words.hpp"

namespace ovrm_trace {
namespace {

constexpr std::size_t kRow = 16;      // bytes of data a line
constexpr std::size_t kTextRow = 72;  // characters of text a line
constexpr std::size_t kPointWidth = 16;
constexpr std::size_t kTimeWidth = sizeof "2026-11-21 08:12:30";  // with a blank

// "2026-11-21T08:12:30+0900"
std::string local_iso(std::int64_t time) {
    const auto seconds = static_cast<std::time_t>(time);
    std::tm parts{};
    ::localtime_r(&seconds, &parts);
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S%z", &parts)};
}

// "2026-11-21 08:12:30 name "
std::string head(std::int64_t time, const std::string& name) {
    std::string text = local_iso(time);
    text.resize(text.size() - (sizeof "+0900" - 1));
    std::replace(text.begin(), text.end(), 'T', ' ');
    return text + " " + name + (name.empty() ? "" : " ");
}

// Appends the point and a blank; what follows begins in one column unless the point is long.
void put_point(std::string& line, const Record& record) {
    const std::size_t column = line.size() + kPointWidth;
    line += escaped(record.point);
    line.resize(std::max(line.size(), column), ' ');
    line += ' ';
}

// Hexadecimal digits and ASCII, rows below one another.
void put_bytes(std::string& line, std::string_view data, std::size_t column) {
    for (std::size_t at = 0; at < data.size(); at += kRow) {
        const std::string_view row = data.substr(at, kRow);
        if (at != 0) line.append(1, '\n').append(column, ' ');
        line += hex(row, "", " ");
        if (at != 0) line.append(3 * (kRow - row.size()), ' ');
        line.append("|").append(ascii(row)).append("|");
    }
}

// Text in quotes; one of several lines stands below, line by line.
void put_text(std::string& line, std::string_view data, std::size_t column) {
    const bool one_line = data.size() <= kTextRow && data.find('\n') >= data.size() - 1;
    line += one_line ? ": " : ":";
    if (one_line) line.append("\"").append(escaped(data)).append("\"");
    while (!one_line && !data.empty()) {
        const std::size_t end = std::min(data.find('\n'), data.size() - 1) + 1;
        const std::string_view row = data.substr(0, std::min(end, kTextRow));
        line.append("\n").append(column, ' ').append("\"").append(escaped(row)).append("\"");
        data.remove_prefix(row.size());
    }
}

std::string raw_text(const Record& record, const std::string& name) {
    std::string line = head(record.time, name);
    const std::size_t column = line.size() + kPointWidth + 1;
    put_point(line, record);
    put_bytes(line, record.data, column);
    if (record.data.empty()) line.resize(line.find_last_not_of(' ') + 1);
    if (const auto value = number(record)) line.append(" ").append(std::to_string(*value));
    return line + "\n";
}

std::string plain_text(const Record& record, const std::string& name) {
    const Meaning* const meaning = meaning_of(record.point);
    if (meaning == nullptr) return raw_text(record, name);
    std::string line = head(record.time, name);
    const std::size_t column = line.size() + kPointWidth + 1;
    put_point(line, record);
    line += record_words(*meaning, record);
    const Data data = data_of(*meaning, record.nth);
    if (!fits(*meaning, record)) {
        line.append("; not its data:\n").append(column, ' ');
        put_bytes(line, record.data, column);
    } else if (data == Data::kText || data == Data::kSent || data == Data::kReceived) {
        put_text(line, record.data, column);
    }
    return line + "\n";
}

std::string json_head(const char* source, const std::string& file, std::int64_t time) {
    return std::string(R"({"source":")") + source + R"(","file":)" + quoted(file) + R"(,"time":)" +
           std::to_string(time) + R"(,"local":)" + quoted(local_iso(time));
}

std::string json(const Record& record, const std::string& file, Form form) {
    std::string line = json_head("ring", file, record.time) + R"(,"point":)" + quoted(record.point);
    if (!record.data.empty()) {
        line +=
            R"(,"data":)" + quoted(hex(record.data)) + R"(,"ascii":)" + quoted(ascii(record.data));
    }
    if (const auto value = number(record)) line += R"(,"number":)" + std::to_string(*value);
    const Meaning* const meaning = is_raw(form) ? nullptr : meaning_of(record.point);
    if (meaning != nullptr) {
        line += R"(,"meaning":)" + quoted(record_words(*meaning, record)) + R"(,"function":)" +
                quoted(meaning->function) + R"(,"code":)" + quoted(meaning->file);
    }
    return line + "}\n";
}

std::string words_of(const LogLine& line) {
    return line.entry == Entry::kNote ? decoded(line.text) : escaped(line.text);
}

std::string json(const LogLine& line, const std::string& file) {
    std::string text =
        json_head("log", file, line.time) + R"(,"text":)" +
        (line.entry == Entry::kNote ? quoted_text(words_of(line)) : quoted(line.text));
    for (std::size_t i = 0; i < line.continued.size(); ++i)
        text += (i == 0 ? R"(,"continued":[)" : ",") + quoted(line.continued[i]);
    return text + (line.continued.empty() ? "}\n" : "]}\n");
}

}  // namespace

std::string shown(const Record& record, const Origin& origin, Form form) {
    if (is_json(form)) return json(record, origin.file, form);
    return is_raw(form) ? raw_text(record, origin.name) : plain_text(record, origin.name);
}

std::string shown(const LogLine& line, const Origin& origin, Form form) {
    if (is_json(form)) return json(line, origin.file);
    std::string text = head(line.time, "log") + words_of(line) + "\n";
    for (const std::string& more : line.continued)
        text.append(kTimeWidth, ' ').append("log | ").append(escaped(more)).append("\n");
    return text;
}

std::string shown(const Verdict& verdict, const Origin& origin, Form form) {
    if (!is_json(form))
        return head(verdict.time, origin.name) + verdict.label + ": " + verdict.text + "\n";
    return json_head("verdict", origin.file, verdict.time) + R"(,"text":)" + quoted(verdict.text) +
           (verdict.result ? R"(,"result":)" + std::to_string(*verdict.result) : "") + "}\n";
}

}  // namespace ovrm_trace

// ovrm_trace_print.cpp - text for people, one JSON object a line for programs.
//
// Rings and logs hold what a server sent: nothing but printable ASCII reaches the terminal.
#include "ovrm_trace_print.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string_view>

namespace ovrm_trace {
namespace {

constexpr std::size_t kRow = 16;  // bytes of data a line
constexpr std::size_t kPointWidth = 16;

bool is_printable(char c) { return c >= ' ' && c <= '~'; }

std::string local(std::time_t time) {
    std::tm parts{};
    ::localtime_r(&time, &parts);
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts)};
}

std::string local_iso(std::time_t time) {
    std::tm parts{};
    ::localtime_r(&time, &parts);
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S%z", &parts)};
}

// Two digits for each byte, each pair between `before` and `after`.
std::string hex(std::string_view bytes, std::string_view before = "", std::string_view after = "") {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += before;
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
        text += after;
    }
    return text;
}

std::string ascii(std::string_view bytes) {
    std::string text(bytes);
    std::replace_if(
        text.begin(), text.end(), [](char c) { return !is_printable(c); }, '.');
    return text;
}

// Line breaks become \n, other bytes \xNN.
std::string escaped(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        if (c == '\n') {
            text += "\\n";
        } else {
            text += is_printable(c) ? std::string(1, c) : hex({&c, 1}, "\\x");
        }
    }
    return text;
}

// Bytes beyond ASCII stand as the characters U+0080 to U+00FF.
std::string quoted(std::string_view bytes) {
    std::string text = "\"";
    for (const char c : bytes) {
        if (c == '"' || c == '\\') text += '\\';
        text += is_printable(c) ? std::string(1, c) : hex({&c, 1}, "\\u00");
    }
    return text + "\"";
}

std::optional<std::int32_t> number(const Record& record) {
    std::int32_t value = 0;
    if (record.data.size() != sizeof value) return std::nullopt;
    std::memcpy(&value, record.data.data(), sizeof value);
    return value;
}

std::string json_head(const char* source, const std::string& file, std::time_t time) {
    return std::string(R"({"source":")") + source + R"(","file":)" + quoted(file) + R"(,"time":)" +
           std::to_string(time) + R"(,"local":)" + quoted(local_iso(time));
}

}  // namespace

std::string as_text(const Record& record, const std::string& name) {
    std::string text =
        local(static_cast<std::time_t>(record.time)) + " " + name + (name.empty() ? "" : " ");
    const std::size_t column = text.size() + kPointWidth + 1;
    text += escaped(record.point);
    if (!record.data.empty()) text.resize(std::max(text.size() + 1, column), ' ');
    for (std::size_t at = 0; at < record.data.size(); at += kRow) {
        const std::string_view row = std::string_view(record.data).substr(at, kRow);
        if (at != 0) text.append(1, '\n').append(column, ' ');
        text += hex(row, "", " ");
        if (at != 0) text.append(3 * (kRow - row.size()), ' ');
        text.append("|").append(ascii(row)).append("|");
    }
    if (const auto value = number(record)) text.append(" ").append(std::to_string(*value));
    return text + "\n";
}

std::string as_text(std::time_t time, const std::string& log_text) {
    return local(time) + " log " + escaped(log_text) + "\n";
}

std::string as_json(const Record& record, const std::string& file) {
    std::string line = json_head("ring", file, static_cast<std::time_t>(record.time)) +
                       R"(,"point":)" + quoted(record.point);
    if (!record.data.empty()) {
        line +=
            R"(,"data":)" + quoted(hex(record.data)) + R"(,"ascii":)" + quoted(ascii(record.data));
    }
    if (const auto value = number(record)) line += R"(,"number":)" + std::to_string(*value);
    return line + "}\n";
}

std::string as_json(std::time_t time, const std::string& log_text, const std::string& file) {
    return json_head("log", file, time) + R"(,"text":)" + quoted(log_text) + "}\n";
}

}  // namespace ovrm_trace

// support.hpp - what every test may use: temporary directories, whole files, open descriptors, and
// what the library writes to its log and trace.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "log/mail_log_handle.hpp"

namespace support {

// A directory of its own, removed with all it holds at the end.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string file(std::string_view name) const {
        return path_ + "/" + std::string(name);
    }

private:
    std::string path_;
};

void write_file(const std::string& path, std::string_view bytes);
std::string read_file(const std::string& path);
std::string times(std::size_t n, std::string_view text);
std::string word(std::int64_t value);  // the low 32 bits as this machine stores them

// What the library writes to the mail log while this lives.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    [[nodiscard]] std::string text() const;

private:
    MailLogHandle handle_{};
};

// What the library writes to the trace, at the most talkative level, while this lives.
class TraceCapture {
public:
    TraceCapture();
    ~TraceCapture();
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;
    [[nodiscard]] int count(const std::string& bytes) const;

private:
    TempDir dir_;
};

}  // namespace support

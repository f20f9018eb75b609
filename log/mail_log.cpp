// mail_log.cpp - lines of the mail log: what was said to the servers, what they answered, what
// failed. Written by every step of a send that talks to a server or meets a system error.
//
// A line goes out in one write behind what the file holds by then (the file is opened to append),
// so that lines of processes or threads never mix; only one of more than 4 KiB takes several.
// Failures of a write are not reported: a send does not fail for its log. Owns g_pLogHandle.
#include "mail_log.h"

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <span>
#include <string_view>

#include "common/heap.hpp"
#include "common/text.hpp"
#include "common/unique_fd.hpp"
#include "file_util.h"
#include "log/entry.hpp"
#include "log/mail_log_handle.hpp"

MailLogHandle* g_pLogHandle = nullptr;

namespace ovrmail::log {
namespace {

constexpr std::int32_t kWritten = 0;
constexpr std::int32_t kNotWritten = -1;
constexpr std::array<const char*, 3> kExchanges{nullptr, "SMTP", "POP"};

constexpr std::size_t kLineSize = 4096;      // a longer line goes out in several writes
constexpr std::size_t kHeadSize = 2048;      // text in front of the caller's in an error entry
constexpr std::size_t kErrorTextMax = 1024;  // characters of the caller's text in an error entry
constexpr std::string_view kLineEnd = "\r\n";

tm local_now() noexcept {
    const std::time_t now = ::time(nullptr);
    tm local{};
    ::localtime_r(&now, &local);
    return local;
}

void put(const MailLogHandle& log, std::string_view text) noexcept {
    (void)FileWrite(log.fd, text.data(), static_cast<std::uint32_t>(text.size()));
}

// A reply loses its control bytes: what a server sends neither forges entries nor steers the
// terminal of whoever reads them.
void copy_text(std::uint32_t level, std::string_view text, std::span<char> room) noexcept {
    const auto shown = [level](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return level == kReceived && (byte < 0x20 || byte == 0x7F) ? '?' : c;
    };
    std::transform(text.begin(), text.end(), room.begin(), shown);
}

void write_entry(const MailLogHandle& log, std::uint32_t level, std::string_view text) noexcept {
    std::array<char, kLineSize> line;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    const tm now = local_now();
    const int prefix = common::format_into(line, "%02d:%02d:%02d %s ", now.tm_hour, now.tm_min,
                                           now.tm_sec, kLabels[level]);
    if (prefix < 0) return;
    if (text.ends_with(kLineEnd)) text.remove_suffix(kLineEnd.size());
    std::span<char> room = std::span<char>(line).subspan(static_cast<std::size_t>(prefix));
    while (text.size() + kLineEnd.size() > room.size()) {
        copy_text(level, text.substr(0, room.size()), room);
        put(log, {line.data(), line.size()});
        text.remove_prefix(room.size());
        room = line;
    }
    copy_text(level, text, room);
    kLineEnd.copy(room.data() + text.size(), kLineEnd.size());
    put(log, {line.data(), line.size() - room.size() + text.size() + kLineEnd.size()});
}

// Writes `head`, which ends in a blank, and the caller's text behind it.
// Kept: without a text the blank goes; with an empty one it stays.
void write_error(const MailLogHandle& log, std::string_view head, const char* text) noexcept {
    if (text == nullptr) return write_entry(log, kNote, head.substr(0, head.size() - 1));
    std::array<char, kHeadSize + kErrorTextMax> entry;  // NOLINT(*-pro-type-member-init)
    const std::size_t length = ::strnlen(text, kErrorTextMax);
    std::memcpy(entry.data(), head.data(), head.size());
    std::memcpy(entry.data() + head.size(), text, length);
    write_entry(log, kNote, {entry.data(), head.size() + length});
}

}  // namespace

void write_opening_banner(const MailLogHandle& log) noexcept {
    std::array<char, 128> line{};
    const tm now = local_now();
    const int length =
        common::format_into(line, "%04d/%02d/%02d %02d:%02d:%02d [%d] Dovrin E-Mail\r\n",
                            now.tm_year + 1900, now.tm_mon + 1, now.tm_mday, now.tm_hour,
                            now.tm_min, now.tm_sec, static_cast<int>(::getpid()));
    if (length > 0) put(log, {line.data(), static_cast<std::size_t>(length)});
}

}  // namespace ovrmail::log

using namespace ovrmail;

std::int32_t MailLogWrite(MailLogHandle* log, std::uint32_t level, const char* text) noexcept {
    if (level == 0 || level >= log::kLabels.size() || text == nullptr || log == nullptr)
        return log::kNotWritten;
    log::write_entry(*log, level, text);
    return log::kWritten;
}

std::int32_t MailLogSysErrWrite(MailLogHandle* log, const char* function, std::int32_t code,
                                long detail, const char* text) noexcept {
    if (log == nullptr || function == nullptr) return log::kNotWritten;
    std::array<char, log::kHeadSize> head{};
    (void)common::format_into(head, "ERROR: func=%s code=%d detail=%ld ", function, code, detail);
    log::write_error(*log, common::bounded(head), text);
    return log::kWritten;
}

std::int32_t MailLogTimeOutWrite(MailLogHandle* log, std::int32_t timer, std::int32_t kind,
                                 const char* text) noexcept {
    if (kind != log::kSmtp && kind != log::kPop) return log::kNotWritten;
    if (log == nullptr) return log::kNotWritten;
    std::array<char, 64> head{};
    (void)common::format_into(head, "ERROR: %s TIMEOUT (timer=%d) ",
                              log::kExchanges[static_cast<std::size_t>(kind)], timer);
    log::write_error(*log, common::bounded(head), text);
    return log::kWritten;
}

std::int32_t MailLogClose(MailLogHandle* log) noexcept {
    [[maybe_unused]] const common::HeapPtr<MailLogHandle> owner(log);
    if (log == nullptr) return 0;
    std::array<char, 64> line{};
    const tm now = log::local_now();
    const int length =
        common::format_into(line, "%04d/%02d/%02d %02d:%02d:%02d END\r\n\r\n", now.tm_year + 1900,
                            now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec);
    if (length > 0) log::put(*log, {line.data(), static_cast<std::size_t>(length)});
    (void)FileClose(log->fd);
    return 0;
}

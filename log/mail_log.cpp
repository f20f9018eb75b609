// mail_log.cpp - lines of the mail log: commands, replies and failures. Every step of a send that
// talks to a server or meets a system error writes here.
//
// The log of a send collects its entries and writes them together before every wait for the
// network; a log that a caller has opened writes each at once. A line is never divided between two
// writes unless it is longer than 4 KiB, so that lines of several processes or threads never mix. A
// failing write is not reported: a send does not fail because of its log. Owns g_pLogHandle.
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
#include "log/handles.hpp"
#include "log/mail_log_handle.hpp"

MailLogHandle* g_pLogHandle = nullptr;

namespace ovrmail::log {
namespace {

constexpr std::int32_t kWritten = 0;
constexpr std::int32_t kNotWritten = -1;
constexpr std::array<const char*, 3> kExchanges{nullptr, "SMTP", "POP"};

constexpr std::size_t kHeadSize = 2048;      // text before the caller's text in an error entry
constexpr std::size_t kErrorTextMax = 1024;  // characters of the caller's text in an error entry
constexpr std::string_view kLineEnd = "\r\n";

// The local time, found anew in every second only. With the lock held.
const tm& local_time(MailLogHandle& log) noexcept {
    const std::time_t now = ::time(nullptr);
    if (now != log.second) ::localtime_r(&now, &log.local);
    log.second = now;
    return log.local;
}

void write_pending(MailLogHandle& log) noexcept {
    if (log.used == 0) return;
    (void)FileWrite(log.fd, log.pending.data(), static_cast<std::uint32_t>(log.used));
    log.used = 0;
}

// Makes room for a line, so that it leaves in one write if it can.
void begin_line(MailLogHandle& log, std::size_t length) noexcept {
    if (length > log.pending.size() - log.used) write_pending(log);
}

void end_line(MailLogHandle& log) noexcept {
    if (!log.collects) write_pending(log);
}

bool is_control(char c) noexcept { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

// Appends a part of a line. Control bytes of a reply become "?": a server can neither add entries
// nor send control sequences to the reader's terminal.
void append(MailLogHandle& log, std::string_view text, bool is_reply = false) noexcept {
    while (!text.empty()) {
        if (log.used == log.pending.size()) write_pending(log);
        const std::span<char> room = std::span(log.pending).subspan(log.used);
        const std::size_t size = text.copy(room.data(), room.size());
        if (is_reply) std::ranges::replace_if(room.first(size), is_control, '?');
        log.used += size;
        text.remove_prefix(size);
    }
}

// "08:03:24 S: "
using Prefix = std::array<char, 12>;
Prefix make_prefix(const tm& now, const char* label) noexcept {
    const auto ten = [](int value) { return static_cast<char>('0' + value / 10); };
    const auto one = [](int value) { return static_cast<char>('0' + value % 10); };
    return {ten(now.tm_hour), one(now.tm_hour), ':', ten(now.tm_min), one(now.tm_min), ':',
            ten(now.tm_sec),  one(now.tm_sec),  ' ', label[0],        label[1],        ' '};
}

void write_entry(MailLogHandle& log, std::uint32_t level, std::string_view text) noexcept {
    const common::BriefGuard guard(log.lock);
    if (text.ends_with(kLineEnd)) text.remove_suffix(kLineEnd.size());
    const Prefix prefix = make_prefix(local_time(log), kLabels[level]);
    begin_line(log, prefix.size() + text.size() + kLineEnd.size());
    append(log, {prefix.data(), prefix.size()});
    append(log, text, level == kReceived);
    append(log, kLineEnd);
    end_line(log);
}

// A banner: the local date and time, and what stands behind it.
void write_banner(MailLogHandle& log, std::string_view rest) noexcept {
    const common::BriefGuard guard(log.lock);
    const tm& now = local_time(log);
    std::array<char, 64> date{};
    const int length =
        common::format_into(date, "%04d/%02d/%02d %02d:%02d:%02d ", now.tm_year + 1900,
                            now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec);
    if (length < 0) return;
    begin_line(log, static_cast<std::size_t>(length) + rest.size());
    append(log, {date.data(), static_cast<std::size_t>(length)});
    append(log, rest);
    end_line(log);
}

// Writes `head`, which ends in a blank, and the caller's text behind it.
// Kept: without a text the blank is left out, with an empty text it stays. Programs that parse the
// logs rely on the exact lines.
void write_error(MailLogHandle& log, std::string_view head, const char* text) noexcept {
    if (text == nullptr) return write_entry(log, kNote, head.substr(0, head.size() - 1));
    std::array<char, kHeadSize + kErrorTextMax> entry;  // NOLINT(*-pro-type-member-init)
    const std::size_t length = ::strnlen(text, kErrorTextMax);
    std::memcpy(entry.data(), head.data(), head.size());
    std::memcpy(entry.data() + head.size(), text, length);
    write_entry(log, kNote, {entry.data(), head.size() + length});
}

}  // namespace

void write_opening_banner(MailLogHandle& log) noexcept {
    std::array<char, 64> rest{};
    (void)common::format_into(rest, "[%d] Dovrin E-Mail\r\n", static_cast<int>(::getpid()));
    write_banner(log, common::bounded(rest));
}

void flush_log() noexcept {
    if (g_pLogHandle == nullptr || !g_pLogHandle->collects) return;
    const common::BriefGuard guard(g_pLogHandle->lock);
    write_pending(*g_pLogHandle);
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
    log::write_banner(*log, "END\r\n\r\n");
    log::write_pending(*log);
    (void)FileClose(log->fd);
    return 0;
}

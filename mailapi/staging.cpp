// staging.cpp - writes the body to a working file with CR LF line ends, and decides on splitting.
//
// Runs after the text is prepared and before composition. No state beyond the SendJob. Line ends:
// RFC 5321 section 2.3.8.
#include <sys/stat.h>

#include <cstring>
#include <limits>
#include <string_view>

#include "common/block_io.hpp"
#include "common/paths.hpp"
#include "file_util.h"
#include "mailapi/result_map.hpp"
#include "mailapi/steps.hpp"

namespace ovrmail::mailapi {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::size_t kBodyBlock = 8192;

// A lone LF and CR LF both become CR LF; the text always ends with a line break of its own.
bool write_crlf_lines(int fd, std::string_view text, std::uint32_t* err) noexcept {
    std::array<char, kBodyBlock> block;
    common::BlockWriter out(fd, block);
    for (std::size_t lf = text.find('\n'); lf != std::string_view::npos; lf = text.find('\n')) {
        std::string_view line = text.substr(0, lf);
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (!out.put(line) || !out.put(kLineEnd)) break;
        text.remove_prefix(lf + 1);
    }
    if (out.put(text) && out.put(kLineEnd) && out.flush()) return true;
    *err = static_cast<std::uint32_t>(out.error());
    return false;
}

std::int32_t write_body_file(SendJob& job) noexcept {
    log::TraceScope trace("MEMDATA0000", "MEMDATAFFFF");
    if (!job.body_file.name(job.args.work_dir, common::paths::kBodyFilePrefix, job.pid)) {
        return trace.fail("MEMDATA0010", MAIL_E_WORK_FILE);
    }
    if (!job.body_file.open()) {
        job.file_err = static_cast<std::uint32_t>(GetErrorCode());
        return trace.fail("MEMDATA0020", MAIL_E_WORK_FILE, job.file_err);
    }
    const std::string_view text(job.body != nullptr ? job.body.get() : "");
    if (!write_crlf_lines(job.body_file.fd(), text, &job.file_err)) {
        return trace.fail("MEMDATA0030", MAIL_E_WORK_FILE, job.file_err);
    }
    return trace.leave(0);
}

// The size of a file in base64, without line breaks: (size * 4 + 2) / 3 without overflow.
std::uint64_t encoded_size(off64_t size) noexcept {
    const auto bytes = static_cast<std::uint64_t>(size);
    return bytes / 3 * 4 + (bytes % 3 * 4 + 2) / 3;
}

// The size of the finished message in KiB, headers not counted, or MAIL_E_ATTACHMENT.
std::int64_t estimate_size_kb(SendJob& job) noexcept {
    log::TraceScope trace("GETSIZE0000", "GETSIZEFFFF");
    std::uint64_t total = kLineEnd.size();
    if (job.body != nullptr) total += std::strlen(job.body.get());
    job.has_attachment = false;
    for (const MailEntry& part : job.attachments()) {
        struct stat64 status {};  // 64 bits on every machine, unlike that of FileStat
        if (::stat64(static_cast<const char*>(part.value), &status) != 0) {
            return trace.fail("GETSIZE0010", MAIL_E_ATTACHMENT,
                              static_cast<std::uint32_t>(GetErrorCode()));
        }
        total += encoded_size(status.st_size);
        job.has_attachment = true;
    }
    const std::uint64_t size_kb = (total + kBytesPerKb - 1) / kBytesPerKb;
    constexpr std::uint64_t kTraceMax = std::numeric_limits<std::int32_t>::max();
    trace.leave(static_cast<std::int32_t>(std::min(size_kb, kTraceMax)));
    return static_cast<std::int64_t>(size_kb);
}

}  // namespace

std::int32_t stage_body(SendJob& job) noexcept {
    const std::int32_t rc = write_body_file(job);
    if (rc == 0) return 0;
    detail_number(job.detail(), job.file_err);
    return fail_at("EMAILAPI0080", rc, job.file_err);
}

std::int32_t decide_split(SendJob& job) noexcept {
    const std::int64_t size_kb = estimate_size_kb(job);
    if (size_kb < 0) return fail_at("EMAILAPI0082", MAIL_E_ATTACHMENT);
    job.body.reset();
    // A mail that fits in one piece is sent whole.
    if (size_kb <= job.split.lSplitSize) job.partial = false;
    return 0;
}

}  // namespace ovrmail::mailapi

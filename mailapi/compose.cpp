// compose.cpp - the whole message in one working file: header and text, then each attachment; for
// a split mail the number of its pieces and their common identifier.
//
// Runs before the connection is made, so that the number is known for the header of every piece. No
// state beyond the SendJob.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "common/paths.hpp"
#include "file_util.h"
#include "mailapi/result_map.hpp"
#include "mailapi/steps.hpp"
#include "mime.h"
#include "mime/header.hpp"
#include "mime/result.hpp"

namespace ovrmail::mailapi {
namespace {

std::int32_t append_attachments(SendJob& job) noexcept {
    const auto attachments = job.attachments();
    for (std::size_t i = 0; i < attachments.size(); ++i) {
        const std::uint32_t more_follow = i + 1 < attachments.size() ? 1 : 0;
        const std::int32_t rc =
            SMTP_makeAppendData(job.composed.fd(), static_cast<const char*>(attachments[i].value),
                                job.boundary.data(), more_follow, &job.file_err);
        if (rc < 0) return composition_failed(job, "EMAILAPI0094", rc);
    }
    return 0;
}

std::int32_t write_failed(SendJob& job, const char* point) noexcept {
    job.file_err = static_cast<std::uint32_t>(GetErrorCode());
    return composition_failed(job, point, mime::kWriteFailed);
}

}  // namespace

std::int32_t open_composed(SendJob& job) noexcept {
    if (!job.composed.name(job.args.work_dir, common::paths::kComposedFilePrefix, job.pid)) {
        detail_number(job.detail(), 0);
        return fail_at("EMAILAPI0086", MAIL_E_WORK_FILE);
    }
    if (!job.composed.open()) {
        job.file_err = static_cast<std::uint32_t>(GetErrorCode());
        detail_number(job.detail(), job.file_err);
        return fail_at("EMAILAPI0088", MAIL_E_WORK_FILE, job.file_err);
    }
    return 0;
}

std::int32_t compose_message(SendJob& job) noexcept {
    job.boundary.fill('\0');
    const mime::TopData top{.from = job.args.sender,
                            .to = job.recipients,
                            .subject = job.subject.data(),
                            .boundary = job.has_attachment ? job.boundary.data() : nullptr,
                            .skip_address = job.partial};
    const std::int32_t rc =
        mime::make_top_data(job.composed.fd(), top, job.body_file.fd(), &job.file_err);
    if (rc < 0) return composition_failed(job, "EMAILAPI0090", rc);
    if (!job.body_file.close()) return write_failed(job, "EMAILAPI0092");
    job.body_file.discard();
    return append_attachments(job);
}

std::int32_t finish_composed(SendJob& job) noexcept {
    job.composed_size = ::lseek64(job.composed.fd(), 0, SEEK_CUR);
    const bool whole = job.composed_size >= 0 && job.composed.settle();
    return whole ? 0 : write_failed(job, "EMAILAPI0095");
}

std::int32_t count_pieces(SendJob& job) noexcept {
    if (!job.partial) return 0;  // streaming seeks to the start itself
    if (FileSeek(job.composed.fd(), 0, SEEK_SET) < 0) {
        job.file_err = static_cast<std::uint32_t>(GetErrorCode());
        return composition_failed(job, "EMAILAPI0096", mime::kReadFailed);
    }
    const auto piece = common::make_zeroed<char>(job.piece_size());
    if (piece == nullptr) return fail_at("EMAILAPI0098", MAIL_E_MEMORY);
    for (;;) {
        std::memset(piece.get(), 0, job.piece_size());
        const std::int32_t length =
            SMTP_getSendData(job.composed.fd(), piece.get(), job.split.lSplitSize,
                             job.boundary.data(), &job.file_err);
        if (length < 0) return composition_failed(job, "EMAILAPI009A", length);
        if (length == 0) break;
        ++job.piece_count;
    }
    job.message_id.fill('\0');
    SMTP_makeid(job.message_id.data(), job.args.sender);
    return 0;
}

}  // namespace ovrmail::mailapi

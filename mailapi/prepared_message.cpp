// prepared_message.cpp - a message whose S/MIME content the caller has built as files: the header
// is put in front, the rest is sent as stored.
//
// Replaces staging and composition; the conversation is that of any other mail. The caller's files
// are never deleted. No state beyond the SendJob.
#include "mailapi/result_map.hpp"
#include "mailapi/steps.hpp"
#include "mime.h"

namespace ovrmail::mailapi {
namespace {

constexpr std::size_t kContentIndex = 1;
constexpr std::size_t kHeaderIndex = 2;

const char* path_at(const SendJob& job, std::size_t index) noexcept {
    return static_cast<const char*>(job.parts[index].value);
}

std::int32_t write_headers(SendJob& job) noexcept {
    const int fd = job.composed.fd();
    if (job.parts.size() > kHeaderIndex) {
        return SMTP_makeAppend_TargetFile(fd, path_at(job, kHeaderIndex), &job.file_err);
    }
    return SMTP_makeMIME(fd, job.args.sender, job.recipients, job.subject.data(), &job.file_err);
}

std::int32_t compose_prepared(SendJob& job) noexcept {
    std::int32_t rc = open_composed(job);
    if (rc < 0) return rc;
    rc = write_headers(job);
    if (rc < 0) return composition_failed(job, "EMLSMIME0030", rc);
    rc = SMTP_makeAppend_TargetFile(job.composed.fd(), path_at(job, kContentIndex), &job.file_err);
    if (rc < 0) return composition_failed(job, "EMLSMIME0040", rc);
    return finish_composed(job);
}

}  // namespace

std::int32_t send_prepared(SendJob& job) noexcept {
    log::TraceScope trace("EMLSMIME0000", "EMLSMIMEFFFF");
    // Kept: a failed conversion of the subject is not reported for a prepared message. Existing
    // callers rely on the result 0.
    job.unconverted = false;
    job.partial = false;
    std::int32_t rc = compose_prepared(job);
    if (rc < 0) return trace.fail("EMLSMIME0010", rc);
    rc = converse(job);
    if (rc < 0) return trace.fail("EMLSMIME0050", rc);
    return trace.leave(rc);
}

}  // namespace ovrmail::mailapi

// send_driver.cpp - OvRm_SendEMailPartial_parts: the steps of a send, in order.
//
// The order of the steps is decided only here. No state: a SendJob on the stack owns what the call
// opens, and its members close and delete it on every return.
#include "file_util.h"
#include "mail_api.h"
#include "mailapi/steps.hpp"
#include "mailapi/uncancelled.hpp"
#include "smtp/result.hpp"

namespace ovrmail::mailapi {
namespace {

constexpr Step kOrdinarySteps[] = {stage_body,      decide_split, open_composed, compose_message,
                                   finish_composed, count_pieces, converse};

std::int32_t authenticate(SendJob& job) noexcept {
    if (job.args.auth == nullptr) return 0;
    const MailEntry& auth = *job.args.auth;
    if (const std::int32_t rc = check_auth_option(auth); rc < 0) {
        return fail_at("EMAILAPI1020", rc);
    }
    if (auth.kind == MAIL_AUTH_POP_BEFORE_SMTP) {
        const auto& account = *static_cast<const MailPopAccount*>(auth.value);
        const std::int32_t rc = pop_before_smtp(account, job.detail());
        return rc < 0 ? fail_at("EMAILAPI1030", rc) : 0;
    }
    const std::int32_t rc = check_auth_account(*static_cast<const MailAuthAccount*>(auth.value));
    return rc < 0 ? fail_at("EMAILAPI1040", rc) : 0;
}

std::int32_t prepare(SendJob& job) noexcept {
    std::int32_t rc = check_request(job);
    if (rc < 0) return rc;
    if (read_mail_options() < 0) fail_at("EMAILAPI1010", -1);
    rc = authenticate(job);
    return rc < 0 ? rc : prepare_text(job);
}

std::int32_t send_ordinary(SendJob& job) noexcept {
    for (const Step step : kOrdinarySteps) {
        if (const std::int32_t rc = step(job); rc < 0) return rc;
    }
    for (const MailEntry& part : job.attachments()) {
        if (part.kind == MAIL_KIND_ATTACHMENT_TEMP)
            FileDelete(static_cast<const char*>(part.value));
    }
    return 0;
}

std::int32_t send_mail(SendJob& job) noexcept {
    std::int32_t rc = prepare(job);
    if (rc < 0) return rc;
    if (job.is_prepared()) {
        rc = send_prepared(job);
        if (rc < 0) return fail_at("EMAILAPI2010", rc);
    } else {
        rc = send_ordinary(job);
        if (rc < 0) return rc;
    }
    if (job.auth_status != smtp::kOk) return MAIL_SENT_UNAUTHENTICATED;
    return job.unconverted ? MAIL_SENT_UNCONVERTED : MAIL_SENT;
}

}  // namespace
}  // namespace ovrmail::mailapi

std::int32_t OvRm_SendEMailPartial_parts(std::uint32_t /*unused*/, const MailEntry* recipients,
                                         std::uint32_t recipient_count, const MailEntry* parts,
                                         std::uint32_t part_count, const char* sender,
                                         const char* subject, const char* server,
                                         std::uint32_t partial_flag, const MailSplitOption* split,
                                         const MailTimeout* time_out, const MailEntry* auth,
                                         char* detail, const char* work_dir) noexcept {
    using namespace ovrmail;
    const mailapi::Uncancelled uncancelled;
    log::TraceScope trace("EMAILAPI0000", "EMAILAPIFFFF");
    mailapi::SendJob job({.recipients = recipients,
                          .recipient_count = recipient_count,
                          .parts = parts,
                          .part_count = part_count,
                          .sender = sender,
                          .subject = subject,
                          .server = server,
                          .partial_flag = partial_flag,
                          .split = split,
                          .time_out = time_out,
                          .auth = auth,
                          .detail = detail,
                          .work_dir = work_dir});
    const std::int32_t result = mailapi::send_mail(job);
    return result < 0 ? trace.fail("EMAILAPI00FF", result) : trace.leave(result);
}

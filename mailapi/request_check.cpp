// request_check.cpp - checks every argument, in a fixed order, before any file or connection
// exists.
//
// First step of a send. The first failing check decides the result and has its own trace point.
// Installs the time-outs and writes the subject to the mail log. No state beyond the SendJob.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "common/text.hpp"
#include "log/entry.hpp"
#include "mail_log.h"
#include "mailapi/steps.hpp"
#include "smtp.h"

namespace ovrmail::mailapi {
namespace {

struct TimeOutField {
    std::uint32_t MailTimeout::*seconds;
    const char* point;
};
constexpr TimeOutField kTimeOutFields[] = {
    {&MailTimeout::ulConnectTimeOut, "TIMEOUT0010"},
    {&MailTimeout::ulMailFromTimeOut, "TIMEOUT0020"},
    {&MailTimeout::ulRcptToTimeOut, "TIMEOUT0030"},
    {&MailTimeout::ulDataTimeOut, "TIMEOUT0040"},
    {&MailTimeout::ulSendDataTimeOut, "TIMEOUT0050"},
    {&MailTimeout::ulEndDataTimeOut, "TIMEOUT0060"},
};
constexpr MailTimeout kDefaultTimeOut = MAIL_TIMEOUT_DEFAULTS;

bool has_length(const char* text, std::size_t max) noexcept {
    const std::size_t length = ::strnlen(text, max + 1);
    return length >= 1 && length <= max;
}

// A line break in an address would add commands and headers.
bool has_line_break(const char* text) noexcept { return std::strpbrk(text, "\r\n") != nullptr; }

std::int32_t check_pointers(const SendArguments& args) noexcept {
    const void* const required[] = {args.recipients, args.parts,  args.sender,  args.subject,
                                    args.server,     args.detail, args.work_dir};
    if (std::find(std::begin(required), std::end(required), nullptr) != std::end(required)) {
        return fail_at("EMAILAPI0010", MAIL_E_ARGUMENT);
    }
    args.detail[0] = '\0';
    return 0;
}

std::int32_t check_recipient(SendJob& job) noexcept {
    const SendArguments& args = job.args;
    // Kept: a count above 1 is accepted, but only the first entry is used. Callers rely on this
    // documented behaviour.
    if (static_cast<std::int32_t>(args.recipient_count) <= 0) {
        return fail_at("EMAILAPI0020", MAIL_E_RECIPIENT, args.recipient_count);
    }
    const MailEntry& entry = args.recipients[0];
    if (entry.kind != MAIL_KIND_RECIPIENT || entry.value == nullptr) {
        return fail_at("EMAILAPI0022", MAIL_E_RECIPIENT, entry.kind);
    }
    job.recipients = static_cast<const char*>(entry.value);
    if (!has_length(job.recipients, MAIL_ADDRESS_MAX))
        return fail_at("EMAILAPI0024", MAIL_E_RECIPIENT);
    if (has_line_break(job.recipients)) return fail_at("EMAILAPI0026", MAIL_E_RECIPIENT);
    return 0;
}

std::int32_t check_sender_and_server(const SendArguments& args) noexcept {
    if (!has_length(args.sender, MAIL_ADDRESS_MAX)) return fail_at("EMAILAPI0030", MAIL_E_ARGUMENT);
    if (has_line_break(args.sender)) return fail_at("EMAILAPI0032", MAIL_E_ARGUMENT);
    if (!has_length(args.server, MAIL_ADDRESS_MAX)) return fail_at("EMAILAPI0034", MAIL_E_ARGUMENT);
    return 0;
}

// A prepared message is one content file, with or without a header file, and nothing else.
std::int32_t check_prepared_shape(const SendJob& job) noexcept {
    const std::size_t count = job.parts.size();
    const bool has_header = count == 3 && job.parts[2].kind == MAIL_KIND_PREPARED_HEADER;
    if (count != 2 && !has_header) return fail_at("EMAILAPI0044", MAIL_E_ARGUMENT);
    if (job.args.partial_flag != 0) return fail_at("EMAILAPI0046", MAIL_E_ARGUMENT);
    if (job.body_text() != nullptr) return fail_at("EMAILAPI0048", MAIL_E_ARGUMENT);
    return 0;
}

bool is_allowed_kind(std::span<const MailEntry> parts, std::size_t index) noexcept {
    switch (parts[index].kind) {
        case MAIL_KIND_ATTACHMENT:
        case MAIL_KIND_ATTACHMENT_TEMP:
            return true;
        case MAIL_KIND_PREPARED:
            return index == 1;
        case MAIL_KIND_PREPARED_HEADER:
            return index == 2 && parts[1].kind == MAIL_KIND_PREPARED;
        default:
            return false;
    }
}

std::int32_t check_parts(SendJob& job) noexcept {
    const SendArguments& args = job.args;
    if (static_cast<std::int32_t>(args.part_count) <= 0) {
        return fail_at("EMAILAPI0040", MAIL_E_ARGUMENT, args.part_count);
    }
    job.parts = {args.parts, args.part_count};
    if (job.parts[0].kind != MAIL_KIND_BODY) {
        return fail_at("EMAILAPI0042", MAIL_E_ARGUMENT, job.parts[0].kind);
    }
    if (job.is_prepared()) {
        if (const std::int32_t rc = check_prepared_shape(job); rc != 0) return rc;
    }
    for (std::size_t i = 1; i < job.parts.size(); ++i) {
        const auto* const path = static_cast<const char*>(job.parts[i].value);
        if (!is_allowed_kind(job.parts, i) || path == nullptr || !has_length(path, MAIL_PATH_MAX)) {
            return fail_at("EMAILAPI0050", MAIL_E_ARGUMENT, static_cast<std::uint32_t>(i));
        }
    }
    return 0;
}

std::int32_t check_split(SendJob& job) noexcept {
    const SendArguments& args = job.args;
    if (args.partial_flag > 1) {
        return fail_at("EMAILAPI0060", MAIL_E_ARGUMENT, args.partial_flag);
    }
    job.partial = args.partial_flag == 1;
    if (args.split == nullptr) return 0;
    job.split = *args.split;
    if (job.split.lSplitSize < MAIL_SPLIT_MIN || job.split.lSplitSize > MAIL_SPLIT_MAX) {
        return fail_at("EMAILAPI0062", MAIL_E_ARGUMENT,
                       static_cast<std::uint32_t>(job.split.lSplitSize));
    }
    return 0;
}

std::int32_t install_time_outs(const MailTimeout* given) noexcept {
    const MailTimeout values = given != nullptr ? *given : kDefaultTimeOut;
    for (const TimeOutField& field : kTimeOutFields) {
        const std::uint32_t seconds = values.*field.seconds;
        if (seconds < MAIL_TIMEOUT_MIN || seconds > MAIL_TIMEOUT_MAX) {
            return fail_at(field.point, MAIL_E_ARGUMENT, seconds);
        }
    }
    SMTP_SetTimeOutInfo(&values);
    return 0;
}

std::int32_t check_text(SendJob& job) noexcept {
    const std::string_view subject(job.args.subject, ::strnlen(job.args.subject, kSubjectSize));
    if (subject.size() >= kSubjectSize) return fail_at("EMAILAPI0070", MAIL_E_ARGUMENT);
    // A line break in the subject would add a header, or a line of the log.
    const auto is_break = [](char c) { return c == '\r' || c == '\n'; };
    std::replace_copy_if(subject.begin(), subject.end(), job.subject.begin(), is_break, ' ');
    MailLogWrite(g_pLogHandle, log::kNote, job.subject.data());

    if (job.body_text() == nullptr) return 0;
    job.body_length = ::strnlen(job.body_text(), MAIL_BODY_MAX + 1);
    if (job.body_length > MAIL_BODY_MAX) return fail_at("EMAILAPI0072", MAIL_E_ARGUMENT);
    return 0;
}

}  // namespace

std::int32_t check_request(SendJob& job) noexcept {
    std::int32_t rc = check_pointers(job.args);
    if (rc == 0) rc = check_recipient(job);
    if (rc == 0) rc = check_sender_and_server(job.args);
    if (rc == 0) rc = check_parts(job);
    if (rc == 0) rc = check_split(job);
    if (rc == 0) rc = install_time_outs(job.args.time_out);
    if (rc == 0) rc = check_text(job);
    return rc;
}

}  // namespace ovrmail::mailapi

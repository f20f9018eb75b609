// send_entry.cpp - OvRm_SendEMail: one send at a time, inside a trace ring and a mail log of its
// own.
//
// Owns the busy flag, and for the length of a call g_trace and g_pLogHandle.
#include <array>
#include <atomic>

#include "common/paths.hpp"
#include "common/text.hpp"
#include "log/settings.hpp"
#include "log/trace_scope.hpp"
#include "mail_api.h"
#include "mailapi/call_trace.hpp"
#include "mailapi/steps.hpp"
#include "mailapi/uncancelled.hpp"

namespace ovrmail::mailapi {
namespace {

// Of two threads that enter at the same moment one gets in, and sees all that the send before it
// has left in the state they share.
std::atomic<std::int32_t> g_busy = 0;

// The trace and the mail log of one call, which may stay off, and the end of the busy flag.
class Call {
public:
    Call() noexcept {
        g_trace = nullptr;
        g_pLogHandle = nullptr;
        trace_ = open_call_trace(settings_, "ACERT", common::paths::kSendRing, 1);
        g_trace = trace_.get();
    }
    ~Call() {
        trace_.reset();
        log_.reset();
        g_trace = nullptr;
        g_pLogHandle = nullptr;
        g_busy = 0;
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    void open_log() noexcept {
        log_ = log::open_mail_log(settings_);
        g_pLogHandle = log_.get();
    }

private:
    Uncancelled uncancelled_;
    log::Settings settings_;
    log::TracePtr trace_;
    log::LogPtr log_;
};

}  // namespace
}  // namespace ovrmail::mailapi

std::int32_t OvRm_SendEMail(const MailEntry* recipients, std::uint32_t recipient_count,
                            const MailEntry* parts, std::uint32_t part_count, const char* sender,
                            const char* subject, const char* server, std::uint32_t partial_flag,
                            const MailSplitOption* split, const MailTimeout* time_out,
                            const MailEntry* auth, char* detail) noexcept {
    using namespace ovrmail;
    if (mailapi::g_busy.exchange(1) != 0) return MAIL_E_BUSY;
    mailapi::Call call;
    log::TraceScope trace("SNDEMAIL0000", "ACERTFFFF");
    std::array<char, mailapi::kPathSize> work_dir{};
    common::format_into(work_dir, common::paths::kWorkDirFormat, common::paths::kDataDir);
    call.open_log();
    return trace.leave(mailapi::run({.recipients = recipients,
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
                                     .work_dir = work_dir.data()}));
}

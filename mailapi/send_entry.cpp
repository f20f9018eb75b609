// send_entry.cpp - OvRm_SendEMail: one send at a time, with its own trace ring and mail log.
//
// The entry of a send: opens trace and log, and runs the driver. Owns g_busy, and during a call
// g_trace and g_pLogHandle.
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

// Only one of two threads that enter at the same time goes on; it sees everything that the send
// before it has written to the shared state.
std::atomic<std::int32_t> g_busy = 0;

// The trace and the mail log of one call, either of which may be missing. Its end clears g_busy.
class Call {
public:
    Call() noexcept {
        g_trace = nullptr;
        g_pLogHandle = nullptr;
        trace_ = open_call_trace(settings_, "ACERT", common::paths::kSendRingPrefix, 1);
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
        log_ = log::open_mail_log(settings_, true);
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
    return trace.leave(OvRm_SendEMailPartial_parts(
        0, recipients, recipient_count, parts, part_count, sender, subject, server, partial_flag,
        split, time_out, auth, detail, work_dir.data()));
}

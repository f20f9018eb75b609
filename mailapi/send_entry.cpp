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
#include "mail_log.h"
#include "mailapi/call_trace.hpp"
#include "mailapi/uncancelled.hpp"
#include "mailapi/work_file.hpp"

namespace ovrmail::mailapi {
namespace {

// Of two threads that enter at the same moment one gets in, and sees all that the send before it
// has left in the state they share.
std::atomic<std::int32_t> g_busy = 0;

// The trace and the mail log of one call, which may stay off, and the end of the busy flag.
class Session {
public:
    Session() noexcept {
        g_trace = nullptr;
        g_pLogHandle = nullptr;
    }
    ~Session() {
        Tclose(g_trace);
        MailLogClose(g_pLogHandle);
        g_trace = nullptr;
        g_pLogHandle = nullptr;
        g_busy = 0;
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

private:
    Uncancelled uncancelled_;
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
    const mailapi::Session session;
    const log::Settings settings;
    g_trace = mailapi::open_call_trace(settings, "ACERT", "acert", 1);
    log::TraceScope trace("SNDEMAIL0000", "ACERTFFFF");
    std::array<char, mailapi::kPathSize> work_dir{};
    common::format_into(work_dir, common::paths::kWorkDirFormat, common::paths::kDataDir);
    g_pLogHandle = log::open_mail_log(settings);
    return trace.leave(OvRm_SendEMailPartial_parts(
        0, recipients, recipient_count, parts, part_count, sender, subject, server, partial_flag,
        split, time_out, auth, detail, work_dir.data()));
}

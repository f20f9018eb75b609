// timeout.cpp - time budgets of the SMTP conversation, in whole seconds, and the zone offset.
//
// Every step of a send installs the budget of its phase and starts the clock; each wait in between
// gets the time that is left. Owns g_stMailTimeout (budgets of the phases), g_ulTimeOut (budget of
// the running step) and g_tStartTime (when it began). RFC 5321 4.5.3.2.
#include "smtp/timeout.hpp"

#include <ctime>

#include "log/trace_scope.hpp"
#include "smtp.h"
#include "smtp/result.hpp"

using namespace ovrmail;
using log::TraceFrame;
using log::TraceScope;

MailTimeout g_stMailTimeout = smtp::kDefaultBudgets;
std::uint32_t g_ulTimeOut = 0;
time_t g_tStartTime = 0;

namespace {

constexpr time_t kSecondsPerHour = 3600;

// A clock that was set back neither counts as elapsed time nor lengthens the budget.
time_t elapsed_seconds() noexcept {
    const time_t now = std::time(nullptr);
    if (now < g_tStartTime) g_tStartTime = now;
    return now - g_tStartTime;
}

time_t budget_seconds() noexcept { return static_cast<std::int32_t>(g_ulTimeOut); }

using BrokenDown = std::tm* (*)(const time_t*, std::tm*);

// The time at which the local clock shows what `convert` shows for `now`.
time_t as_local(BrokenDown convert, time_t now) noexcept {
    std::tm parts{};
    convert(&now, &parts);
    return std::mktime(&parts);
}

}  // namespace

void SMTP_SetTimeOutInfo(const MailTimeout* values) noexcept {
    const TraceFrame trace("SETTIME0000", "SETTIMEFFFF");
    if (values != nullptr) g_stMailTimeout = *values;
}

void SMTP_SetTimeOut(std::uint32_t seconds) noexcept {
    const TraceFrame trace("SETIMEO0000", "SETIMEOFFFF");
    g_ulTimeOut = seconds;
}

void SMTP_SetStartTime(void) noexcept {
    const TraceFrame trace("SETSTART0000", "SETSTARTFFFF");
    g_tStartTime = std::time(nullptr);
}

std::int32_t SMTP_CheckOverTimeOut(void) noexcept {
    TraceScope trace("CHKOVER0000", "CHKOVERFFFF");
    if (elapsed_seconds() < budget_seconds()) return trace.leave(smtp::kOk);
    return trace.fail("CHKOVER0010", smtp::kTimeOut);
}

void SMTP_GetSelectTimeOut(struct timeval* tv) noexcept {
    TraceFrame trace("GETSLCT0000", "GETSLCTFFFF");
    time_t left = budget_seconds() - elapsed_seconds();
    if (left < 0) {
        trace.mark("GETSLCT0010", static_cast<std::int32_t>(left));
        left = 0;
    }
    if (tv != nullptr) *tv = {left, 0};
}

// Kept: the hour of summer time is not counted (mktime gets "no summer time" from gmtime_r), and
// half hours are cut off. Readers of the Date field rely on this documented offset.
std::int32_t SMTP_GetTimeDifference(void) noexcept {
    TraceScope trace("GETDIFF0000", "GETDIFFFFFF");
    // Reads the clock once: a second between two readings would cost an hour west of Greenwich.
    const time_t now = std::time(nullptr);
    const time_t utc = as_local(::gmtime_r, now);
    const time_t local = as_local(::localtime_r, now);
    return trace.leave(static_cast<std::int32_t>((local - utc) / kSecondsPerHour));
}

void smtp::start_budget(std::uint32_t seconds) noexcept {
    SMTP_SetTimeOut(seconds);
    SMTP_SetStartTime();
}

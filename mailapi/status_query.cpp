// status_query.cpp - what the installation can send, as a word of flags.
//
// OvRm_GetStatusDovrin traces into a ring of its own ("agets") and may run beside a send;
// OvRm_GetStatusDovrin2 does the work. The start type of the agent's installation record is
// translated bit by bit; where the management product is involved, its record must be readable
// and its version recent enough. Not a step of a send. No state.
#include "common/error_word.hpp"
#include "inst_info.h"
#include "log/trace_scope.hpp"
#include "mail_api.h"
#include "mailapi/call_trace.hpp"

namespace ovrmail::mailapi {
namespace {

constexpr std::int32_t kUnavailable = -2;
constexpr std::int32_t kNullArgument = -3;

constexpr std::uint32_t kFlagPlain = 0x1;
constexpr std::uint32_t kFlagExtended = 0x100;
constexpr std::uint32_t kFlagManager = 0x1000;           // degraded without the product
constexpr std::uint32_t kFlagManagerRequired = 0x10000;  // fails without the product

struct StatusRule {
    std::uint32_t flag;
    std::uint32_t clear;
    std::uint32_t set;
};
constexpr StatusRule kRules[] = {
    {kFlagPlain, 0, 0x101},
    {kFlagExtended, 0, 0x100301},
    {kFlagManager, 0x1, 0x100302},
};
constexpr std::uint32_t kAlwaysSet = 0x10000;
constexpr StatusRule kWithoutManager = {kFlagManager, 0x100202, 0x1};

std::uint32_t apply(const StatusRule& rule, std::uint32_t status) noexcept {
    return (status & ~rule.clear) | rule.set;
}

std::uint32_t make_status(std::uint32_t flags, TraceHandle* handle) noexcept {
    log::TraceScope trace("MKSTAT0000", "MKSTATFFFF", handle);
    trace.note("MKSTAT0010", static_cast<std::int32_t>(flags));
    std::uint32_t status = 0;
    for (const StatusRule& rule : kRules)
        if ((flags & rule.flag) != 0) status = apply(rule, status);
    return static_cast<std::uint32_t>(trace.leave(static_cast<std::int32_t>(status | kAlwaysSet)));
}

// 0, or the result of the call that failed.
std::int32_t check_manager(std::uint32_t* err) noexcept {
    MailInstInfo manager{};
    const std::int32_t rc = Info_GetKorvantaInstInfo(&manager, err);
    return rc < 0 ? rc : Info_CheckKorvantaVersion(&manager);
}

}  // namespace
}  // namespace ovrmail::mailapi

using namespace ovrmail;
using namespace ovrmail::mailapi;

std::int32_t OvRm_GetStatusDovrin(std::uint32_t* status, std::uint32_t* err) noexcept {
    const log::TracePtr handle = open_call_trace(log::Settings(), "AGETS", "agets", 0);
    log::TraceScope trace("STATUS0000", "STATUSFFFF", handle.get());
    return trace.leave(OvRm_GetStatusDovrin2(status, err, handle.get()));
}

std::int32_t OvRm_GetStatusDovrin2(std::uint32_t* status, std::uint32_t* err,
                                   TraceHandle* handle) noexcept {
    log::TraceScope trace("STATUS20000", "STATUS2FFFF", handle);
    if (err == nullptr) return trace.fail("STATUS20010", kNullArgument);
    common::set_error(err, 0);
    if (status == nullptr) return trace.fail("STATUS20020", kNullArgument);

    MailInstInfo agent{};
    std::int32_t rc = Info_GetDovrinInstInfo(&agent, err);
    if (rc < 0) return trace.fail("STATUS20030", kUnavailable, static_cast<std::uint32_t>(rc));
    *status = make_status(agent.ulStartType, handle);

    if ((agent.ulStartType & kFlagManager) != 0) {
        rc = check_manager(err);
        if (rc < 0) {
            *status = apply(kWithoutManager, *status);
            trace.mark("STATUS20040", rc);
            return trace.leave(0);
        }
    }
    if ((agent.ulStartType & kFlagManagerRequired) != 0) {
        rc = check_manager(err);
        if (rc < 0) return trace.fail("STATUS20050", kUnavailable, static_cast<std::uint32_t>(rc));
    }
    return trace.leave(0);
}

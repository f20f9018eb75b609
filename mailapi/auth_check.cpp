// auth_check.cpp - the authentication option of a request and the account of SMTP AUTH.
//
// Called before anything is composed, so that bad input fails before any file or connection exists.
// pop_before_smtp.cpp checks its own record. No state.
#include "common/text.hpp"
#include "log/trace_scope.hpp"
#include "mailapi/steps.hpp"
#include "smtp/auth.hpp"

namespace ovrmail::mailapi {

std::int32_t check_auth_option(const MailEntry& auth) noexcept {
    constexpr std::size_t kTracedBytes = 12;
    log::TraceScope trace("CHKCERT0000", "CHKCERTFFFF");
    if (auth.kind != MAIL_AUTH_POP_BEFORE_SMTP && auth.kind != MAIL_AUTH_SMTP) {
        const auto* const bytes = reinterpret_cast<const char*>(&auth);
        return trace.fail("CHKCERT0010", MAIL_E_ARGUMENT, {bytes, kTracedBytes});
    }
    if (auth.value == nullptr) return trace.fail("CHKCERT0020", MAIL_E_ARGUMENT);
    return trace.leave(0);
}

std::int32_t check_auth_account(const MailAuthAccount& account) noexcept {
    log::TraceScope trace("CAUTH0000", "CAUTHFFFF");
    const std::size_t user = common::bounded(account.szUser).size();
    if (user == 0 || user > MAIL_ACCOUNT_MAX) return trace.fail("CAUTH0010", MAIL_E_ARGUMENT);
    if (common::bounded(account.szPassword).size() > MAIL_ACCOUNT_MAX) {
        return trace.fail("CAUTH0020", MAIL_E_ARGUMENT);
    }
    if ((account.ulMechanisms & smtp::kKnownMechanisms) == 0) {
        return trace.fail("CAUTH0030", MAIL_E_ARGUMENT, account.ulMechanisms);
    }
    return trace.leave(0);
}

}  // namespace ovrmail::mailapi

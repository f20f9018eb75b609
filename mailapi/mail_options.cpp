// mail_options.cpp - the options file, and the checks of the authentication option.
//
// Taken before anything is composed, so that bad input fails before any file or connection
// exists. Writes Content_D_flg, the form of an attachment's Content-Disposition.
#include "common/paths.hpp"
#include "common/text.hpp"
#include "mailapi/steps.hpp"
#include "mime.h"
#include "profile.h"

namespace ovrmail::mailapi {
namespace {

constexpr std::uint32_t kReadOnly = 0;
constexpr std::uint32_t kKnownMechanisms = MAIL_MECH_LOGIN | MAIL_MECH_PLAIN | MAIL_MECH_CRAM_MD5;

}  // namespace

std::int32_t read_mail_options() noexcept {
    log::TraceScope trace("READRMMAIL0000", "READRMMAILFFFF");
    Content_D_flg = 0;
    const char* const path = common::paths::kMailOptions;
    MailProfile* const options = Com_OpenPrivateProfile(path, kReadOnly);
    if (options == nullptr) return trace.fail("READRMMAIL0010", -1);
    Content_D_flg = Com_GetPrivateProfileInt(options, "RMMAIL", "CONTENT_DISPOSITION", 0, path);
    Com_ClosePrivateProfile(options, path);
    return trace.leave(0);
}

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
    if ((account.ulMechanisms & kKnownMechanisms) == 0) {
        return trace.fail("CAUTH0030", MAIL_E_ARGUMENT, account.ulMechanisms);
    }
    return trace.leave(0);
}

}  // namespace ovrmail::mailapi

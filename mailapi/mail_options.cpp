// mail_options.cpp - reads the options file of the site, rmmail.ini.
//
// Called at the start of every send, after the checks. No state of its own: writes Content_D_flg,
// the form of an attachment's Content-Disposition; a missing file means the usual form.
#include "common/paths.hpp"
#include "log/trace_scope.hpp"
#include "mailapi/steps.hpp"
#include "mime.h"
#include "toolkit/profile.hpp"

namespace ovrmail::mailapi {
namespace {

constexpr std::uint32_t kReadOnly = 0;

}  // namespace

std::int32_t read_mail_options() noexcept {
    log::TraceScope trace("READRMMAIL0000", "READRMMAILFFFF");
    Content_D_flg = 0;
    const char* const path = common::paths::kMailOptions;
    const toolkit::ProfilePtr options = toolkit::open_profile(path, kReadOnly, nullptr);
    if (options == nullptr) return trace.fail("READRMMAIL0010", -1);
    Content_D_flg =
        Com_GetPrivateProfileInt(options.get(), "RMMAIL", "CONTENT_DISPOSITION", 0, path);
    return trace.leave(0);
}

}  // namespace ovrmail::mailapi

// auth.cpp - SMTP AUTH after EHLO: which mechanisms both sides allow, and the three dialogues.
//
// Last part of opening the session. After a refusal the next mechanism is tried; a transport
// failure ends the attempt. No state: credentials are held in stack buffers that are wiped. RFC
// 4954, 4616 (PLAIN), 2195 (CRAM-MD5).
#include "smtp/auth.hpp"

#include "common/base64.hpp"
#include "common/error_word.hpp"
#include "common/text.hpp"
#include "log/entry.hpp"
#include "log/trace_scope.hpp"
#include "smtp.h"
#include "smtp/credentials.hpp"
#include "smtp/exchange.hpp"
#include "smtp/result.hpp"
#include "smtp/session_buffers.hpp"
#include "smtp_auth.h"

namespace ovrmail::smtp {
namespace {

using log::TraceScope;

// Sizes of the texts for account fields that are full and therefore have no NUL.
constexpr std::size_t kFieldMax = sizeof(MailAuthAccount::szUser);
constexpr std::size_t kPlainSize = common::base64_length(3 * kFieldMax + 2) + 1;
constexpr std::size_t kCramSize = common::base64_length(kFieldMax + 33) + 1;
constexpr std::size_t kLoginSize = 256;

// The account's fields as NUL-terminated texts.
struct Credentials {
    explicit Credentials(const MailAuthAccount& account) noexcept {
        common::copy_into(user, common::bounded(account.szUser));
        common::copy_into(password, common::bounded(account.szPassword));
    }
    Secret<kFieldMax + 1> user;
    Secret<kFieldMax + 1> password;
};

// One command of a dialogue, with the whole budget; an answer other than `accepted` is a refusal.
std::int32_t step(int sock, const Command& command, char accepted, std::uint32_t* err) noexcept {
    SMTP_SetStartTime();
    const std::int32_t rc = exchange(sock, command, err);
    if (rc != kOk) return rc;
    return replied(accepted) ? kOk : kAuthRefused;
}

}  // namespace

std::uint32_t offered_mechanisms(std::string_view line) noexcept {
    TraceScope trace("GTAINF0000", "GTAINFFFFF");
    std::uint32_t bits = 0;
    for (const Mechanism& mechanism : kMechanisms)
        if (line.find(mechanism.word) != std::string_view::npos) bits |= mechanism.bit;
    trace.note("GTAINF0010", static_cast<std::int32_t>(bits));
    trace.leave();
    return bits;
}

std::int32_t authenticate(int sock, const MailAuthAccount* account, std::uint32_t offered,
                          std::uint32_t* err) noexcept {
    TraceScope trace("INIAH0000", "INIAHFFFF");
    common::set_error(err, 0);
    const std::uint32_t common_mask = account != nullptr ? account->ulMechanisms & offered : 0;
    if (common_mask == 0) return trace.fail("INIAH0010", kNoMechanism);
    for (const Mechanism& mechanism : kMechanisms) {
        if ((common_mask & mechanism.bit) == 0) continue;
        const std::int32_t rc = mechanism.dialogue(sock, *account, err);
        if (rc < 0) return trace.fail("INIAH0020", rc);
        if (rc == kOk) return trace.leave(kOk);
    }
    return trace.fail("INIAH0030", kAuthRefused);
}

std::int32_t auth_cram_md5(int sock, const MailAuthAccount& account, std::uint32_t* err) noexcept {
    TraceScope trace("INCRAM0000", "INCRAMFFFF");
    std::int32_t rc = step(sock, plain("AUTH CRAM-MD5\r\n"), '3', err);
    if (rc != kOk) return trace.fail("INCRAM0010", rc);

    const Credentials mine(account);
    Secret<kCramSize> response;
    if (Auth_GetCertCramString(mine.user.data(), mine.password.data(), reply_detail().data(),
                               response.data()) != 0)
        return trace.fail("INCRAM0020", kAuthRefused);
    Secret<kCramSize + 2> line;
    const int length = common::format_into(line, "%s\r\n", response.data());
    rc =
        step(sock, {{line.data(), static_cast<std::size_t>(length)}, log::kMasked, true}, '2', err);
    return trace.finish("INCRAM0030", rc);
}

std::int32_t auth_plain(int sock, const MailAuthAccount& account, std::uint32_t* err) noexcept {
    TraceScope trace("INPLAN0000", "INPLANFFFF");
    const Credentials mine(account);
    Secret<kPlainSize> response;
    Auth_GetCertPlainString(mine.user.data(), mine.password.data(), response.data());
    Secret<kPlainSize + 16> line;
    const int length = common::format_into(line, "AUTH PLAIN %s\r\n", response.data());
    std::array<char, 32> masked;
    common::format_into(masked, "AUTH PLAIN %s", log::kMasked);
    const std::int32_t rc =
        step(sock, {{line.data(), static_cast<std::size_t>(length)}, masked.data()}, '2', err);
    return trace.finish("INPLAN0010", rc);
}

std::int32_t auth_login(int sock, const MailAuthAccount& account, std::uint32_t* err) noexcept {
    TraceScope trace("INLGIN0000", "INLGINFFFF");
    std::int32_t rc = step(sock, plain("AUTH LOGIN\r\n"), '3', err);
    if (rc != kOk) return trace.fail("INLGIN0010", rc);

    const Credentials mine(account);
    Secret<kLoginSize> user;
    Secret<kLoginSize> password;
    Auth_GetCertLoginString(mine.user.data(), mine.password.data(), user.data(), password.data());
    Secret<kLoginSize + 2> line;
    int length = common::format_into(line, "%s\r\n", user.data());
    rc = step(sock, plain({line.data(), static_cast<std::size_t>(length)}), '3', err);
    if (rc != kOk) return trace.fail("INLGIN0020", rc);
    length = common::format_into(line, "%s\r\n", password.data());
    rc = step(sock, {{line.data(), static_cast<std::size_t>(length)}, log::kMasked}, '2', err);
    return trace.finish("INLGIN0030", rc);
}

}  // namespace ovrmail::smtp

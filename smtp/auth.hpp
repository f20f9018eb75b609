// auth.hpp - SMTP AUTH (RFC 4954) after EHLO: the mechanisms, and the choice between them. A new
// mechanism is a row of the table and a dialogue.
#pragma once

#include <cstdint>
#include <string_view>

#include "mail_types.h"

namespace ovrmail::smtp {

// One dialogue each: kOk, kAuthRefused or a transport failure.
std::int32_t auth_cram_md5(int sock, const MailAuthAccount& account, std::uint32_t* err) noexcept;
std::int32_t auth_plain(int sock, const MailAuthAccount& account, std::uint32_t* err) noexcept;
std::int32_t auth_login(int sock, const MailAuthAccount& account, std::uint32_t* err) noexcept;

struct Mechanism {
    std::uint32_t bit;      // MAIL_MECH_
    std::string_view word;  // in an AUTH line, with its leading blank; case-sensitive
    std::int32_t (*dialogue)(int, const MailAuthAccount&, std::uint32_t*) noexcept;
};

// In the order in which they are tried: CRAM-MD5 never shows the password, PLAIN needs one round
// trip, LOGIN three.
inline constexpr Mechanism kMechanisms[] = {
    {MAIL_MECH_CRAM_MD5, " CRAM-MD5", auth_cram_md5},
    {MAIL_MECH_PLAIN, " PLAIN", auth_plain},
    {MAIL_MECH_LOGIN, " LOGIN", auth_login},
};

inline constexpr std::uint32_t kKnownMechanisms = [] {
    std::uint32_t bits = 0;
    for (const Mechanism& mechanism : kMechanisms) bits |= mechanism.bit;
    return bits;
}();

// The bits of the mechanisms that an AUTH line offers, "250-AUTH LOGIN PLAIN".
std::uint32_t offered_mechanisms(std::string_view line) noexcept;

// Tries the mechanisms that caller and server share until one succeeds. kOk, kNoMechanism (none
// shared, or no record), kAuthRefused or a transport failure.
std::int32_t authenticate(int sock, const MailAuthAccount* account, std::uint32_t offered,
                          std::uint32_t* err) noexcept;

}  // namespace ovrmail::smtp

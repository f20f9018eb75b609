// auth.hpp - SMTP AUTH (RFC 4954) behind EHLO.
#pragma once

#include <cstdint>
#include <string_view>

#include "mail_types.h"

namespace ovrmail::smtp {

// Mechanisms (MAIL_MECH_ bits) that an AUTH line offers: each as a case-sensitive word with its
// leading blank, "250-AUTH LOGIN PLAIN".
void SMTP_getAuthInfo(std::string_view line, std::uint32_t* mask) noexcept;

// Tries the mechanisms that caller and server share, best first, until one succeeds. kOk,
// kNoMechanism (none shared, or no record), kAuthRefused or a transport failure.
std::int32_t SMTP_initAuth(int sock, const MailAuthAccount* account, std::uint32_t offered,
                           std::uint32_t* err) noexcept;

// One exchange each: kOk, kAuthRefused or a transport failure.
std::int32_t SMTP_authCramMd5(int sock, const MailAuthAccount& account,
                              std::uint32_t* err) noexcept;
std::int32_t SMTP_authPlain(int sock, const MailAuthAccount& account, std::uint32_t* err) noexcept;
std::int32_t SMTP_authLogin(int sock, const MailAuthAccount& account, std::uint32_t* err) noexcept;

}  // namespace ovrmail::smtp

// credentials.cpp - the credential texts of SMTP AUTH: PLAIN (RFC 4616), LOGIN, and the CRAM-MD5
// response (RFC 2195), in base64 (RFC 4648 section 4).
//
// Called by the dialogues in auth.cpp. No state: joined and decoded texts are wiped before return.
#include "smtp/credentials.hpp"

#include <algorithm>

#include "common/base64.hpp"
#include "common/text.hpp"
#include "log/trace_scope.hpp"
#include "smtp/hmac_md5.hpp"
#include "smtp_auth.h"

namespace ovrmail::smtp {
namespace {

constexpr std::size_t kWorkSize = 512;       // decoded challenge; user name and digest
constexpr std::size_t kLoginTextSize = 256;  // each base64 text of LOGIN
constexpr std::uint8_t kPad = 64;

constexpr std::array<std::uint8_t, 256> kValues = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(kPad);
    for (std::uint8_t value = 0; value < kPad; ++value)
        values[static_cast<unsigned char>(common::kBase64Alphabet[value])] = value;
    return values;
}();

std::string_view text_or_empty(const char* text) noexcept {
    return text != nullptr ? std::string_view(text) : std::string_view();
}

// The three bytes of a group of up to four characters; returns how many of them count.
std::size_t decode_group(std::string_view group, std::span<char, 3> bytes) noexcept {
    std::array<unsigned, 4> value{kPad, kPad, kPad, kPad};
    for (std::size_t i = 0; i < group.size(); ++i)
        value[i] = kValues[static_cast<unsigned char>(group[i])];
    bytes[0] = static_cast<char>(value[0] << 2 | value[1] >> 4);
    if (value[2] == kPad) return 1;
    bytes[1] = static_cast<char>(value[1] << 4 | value[2] >> 2);
    if (value[3] == kPad) return 2;
    bytes[2] = static_cast<char>(value[2] << 6 | value[3]);
    return 3;
}

// 32 lower-case hexadecimal digits and a NUL.
std::array<char, 33> hex_text(const Digest& digest) noexcept {
    constexpr char kDigits[] = "0123456789abcdef";
    std::array<char, 33> text{};
    for (std::size_t i = 0; i < digest.size(); ++i) {
        text[2 * i] = kDigits[digest[i] >> 4];
        text[2 * i + 1] = kDigits[digest[i] & 15];
    }
    return text;
}

}  // namespace

std::size_t to_base64(std::span<const char> in, std::span<char> out) noexcept {
    if (common::base64_length(in.size()) >= out.size()) {
        if (!out.empty()) out.front() = '\0';
        return 0;
    }
    const std::size_t length =
        common::base64_encode({reinterpret_cast<const unsigned char*>(in.data()), in.size()}, out);
    out[length] = '\0';
    return length;
}

std::int32_t from_base64(std::span<char> out, std::string_view text) noexcept {
    if (text.ends_with("\r\n")) text.remove_suffix(2);
    std::size_t length = 0;
    std::size_t count = 3;
    while (!text.empty() && count == 3) {
        std::array<char, 3> bytes{};
        count = decode_group(text.substr(0, 4), bytes);
        text.remove_prefix(std::min<std::size_t>(text.size(), 4));
        if (length + count >= out.size()) {
            ::explicit_bzero(out.data(), out.size());
            return -1;
        }
        std::copy_n(bytes.begin(), count, out.begin() + static_cast<std::ptrdiff_t>(length));
        length += count;
    }
    out[length] = '\0';
    return static_cast<std::int32_t>(length);
}

}  // namespace ovrmail::smtp

using namespace ovrmail;

std::int32_t Auth_GetCertPlainString(const char* user, const char* password, char* out) noexcept {
    log::TraceScope trace("AHPLA0000", "AHPLAFFFF");
    if (out == nullptr) return trace.fail("AHPLA0010", -1);
    *out = '\0';
    const std::string_view name = smtp::text_or_empty(user);
    const std::string_view key = smtp::text_or_empty(password);
    smtp::Secret<smtp::kWorkSize> joined;
    const std::size_t length = 2 * name.size() + key.size() + 2;
    if (length > joined.size()) return trace.fail("AHPLA0020", -1);
    char* at = std::copy(name.begin(), name.end(), joined.data()) + 1;
    at = std::copy(name.begin(), name.end(), at) + 1;
    std::copy(key.begin(), key.end(), at);
    smtp::to_base64({joined.data(), length}, {out, common::base64_length(length) + 1});
    return trace.leave(0);
}

std::int32_t Auth_GetCertLoginString(const char* user, const char* password, char* out_user,
                                     char* out_password) noexcept {
    log::TraceScope trace("AHLGIN0000", "AHLGINFFFF");
    for (char* const out : {out_user, out_password})
        if (out != nullptr) *out = '\0';
    if (out_user == nullptr || out_password == nullptr) return trace.fail("AHLGIN0010", -1);
    const std::string_view name = smtp::text_or_empty(user);
    const std::string_view key = smtp::text_or_empty(password);
    if (common::base64_length(std::max(name.size(), key.size())) >= smtp::kLoginTextSize)
        return trace.fail("AHLGIN0020", -1);
    smtp::to_base64(name, {out_user, smtp::kLoginTextSize});
    smtp::to_base64(key, {out_password, smtp::kLoginTextSize});
    return trace.leave(0);
}

std::int32_t Auth_GetCertCramString(const char* user, const char* password, const char* challenge,
                                    char* out) noexcept {
    log::TraceScope trace("AHCRAM0000", "AHCRAMFFFF");
    if (out == nullptr) return trace.fail("AHCRAM0010", -1);
    *out = '\0';
    smtp::Secret<smtp::kWorkSize> work;
    if (smtp::from_base64(work, smtp::text_or_empty(challenge)) < 0)
        return trace.fail("AHCRAM0020", -1);
    smtp::Digest digest{};
    smtp::hmac_md5(std::string_view(work.data()), smtp::text_or_empty(password), digest);
    const int length = common::format_into(work, "%s %s", user != nullptr ? user : "",
                                           smtp::hex_text(digest).data());
    if (length < 0) return trace.fail("AHCRAM0030", -1);
    const auto size = static_cast<std::size_t>(length);
    smtp::to_base64({work.data(), size}, {out, common::base64_length(size) + 1});
    return trace.leave(0);
}

// challenge_fuzz.cpp - the challenge of CRAM-MD5: "user LF password LF challenge".
#include <resolv.h>

#include <algorithm>
#include <array>
#include <vector>

#include "fuzz.hpp"
#include "smtp/credentials.hpp"
#include "smtp_auth.h"

namespace {

using fuzz::demand;

constexpr std::size_t kRoom = 512;

bool is_strict_base64(std::string_view text) {
    std::vector<unsigned char> out(text.size() + 1);
    return text.size() % 4 == 0 && std::ranges::none_of(text, ::isspace) &&
           ::b64_pton(std::string(text).c_str(), out.data(), out.size()) >= 0;
}

// What is decoded of a text that others accept is what they decode.
void check_decoding(const std::string& challenge) {
    const std::vector<char> exact(challenge.begin(), challenge.end());
    std::vector<char> out(kRoom, 'u');
    const std::int32_t length = ovrmail::smtp::from_base64(out, {exact.data(), exact.size()});
    demand(length < static_cast<std::int32_t>(kRoom), "fits");
    demand(length >= 0 ? out[static_cast<std::size_t>(length)] == '\0'
                       : std::ranges::count(out, '\0') == kRoom,
           "ends with NUL, or is clear");
    if (!is_strict_base64(challenge) || challenge.empty()) return;
    std::vector<unsigned char> wanted(challenge.size() + 1);
    const int size = ::b64_pton(challenge.c_str(), wanted.data(), wanted.size());
    demand((length >= 0) == (size < static_cast<int>(kRoom)), "refused only for its length");
    demand(length < 0 ||
               (length == size && std::equal(out.begin(), out.begin() + length, wanted.begin(),
                                             [](char a, unsigned char b) {
                                                 return static_cast<unsigned char>(a) == b;
                                             })),
           "decoded as others decode it");
}

// "user blank 32 hexadecimal digits" in base64.
void check_response(const std::string& user, const std::string& response) {
    std::vector<unsigned char> out(response.size() + 1);
    const int size = ::b64_pton(response.c_str(), out.data(), out.size());
    demand(size == static_cast<int>(user.size()) + 33, "length of the response");
    const std::string_view text(reinterpret_cast<const char*>(out.data()),
                                static_cast<std::size_t>(size));
    demand(text.starts_with(user + " "), "the user is named");
    demand(text.find_first_not_of("0123456789abcdef", user.size() + 1) == std::string_view::npos,
           "a digest in hexadecimal");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest = fuzz::text(data, size);
    const auto next = [&rest](char mark) {
        const std::string_view taken = fuzz::take(rest, mark);
        return std::string(taken.substr(0, taken.find('\0')));
    };
    const std::string user = next('\n');
    const std::string password = next('\n');
    const std::string challenge(rest.substr(0, rest.find('\0')));
    check_decoding(challenge);
    std::vector<char> out((user.size() + 33 + 2) / 3 * 4 + 1, 'u');
    const std::int32_t rc =
        Auth_GetCertCramString(user.c_str(), password.c_str(), challenge.c_str(), out.data());
    demand(rc == 0 || rc == -1, "result");
    if (rc == 0) {
        check_response(user, out.data());
    } else {
        demand(out.front() == '\0', "no response");
    }
    return 0;
}

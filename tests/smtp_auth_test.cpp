// SMTP AUTH: which mechanism is chosen, what is sent, and the digests under it.
#include "smtp_auth.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "md5.h"
#include "smtp.h"
#include "smtp/credentials.hpp"
#include "smtp/hmac_md5.hpp"
#include "support/scripted_server.hpp"
#include "support/support.hpp"

namespace {

using namespace support;
using ovrmail::smtp::Digest;

constexpr int kAll = MAIL_MECH_LOGIN | MAIL_MECH_PLAIN | MAIL_MECH_CRAM_MD5;

// The account of the example in RFC 2195, whose challenge and response these are.
constexpr const char* kUser = "tim";
constexpr const char* kPassword = "tanstaaftanstaaf";
constexpr const char* kChallenge =
    "334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+\r\n";
constexpr const char* kResponse = "dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw\r\n";
constexpr const char* kPlain = "AUTH PLAIN dGltAHRpbQB0YW5zdGFhZnRhbnN0YWFm\r\n";
constexpr const char* kLoginPassword = "dGFuc3RhYWZ0YW5zdGFhZg==\r\n";

MailAuthAccount account(std::uint32_t mechanisms, const char* user, const char* password) {
    MailAuthAccount made{};
    made.ulMechanisms = mechanisms;
    std::strncpy(made.szUser, user, sizeof made.szUser);
    std::strncpy(made.szPassword, password, sizeof made.szPassword);
    return made;
}

std::int32_t sign_in(ScriptedServer& server, const MailAuthAccount& mine, std::uint32_t* err) {
    const int sock = SMTP_connect("127.0.0.1", server.port(), err);
    const MailEntry entry{MAIL_AUTH_SMTP, 0, &mine};
    const std::int32_t rc = SMTP_initialize(sock, &entry, err);
    ::close(sock);
    return rc;
}

// A row expects a whole line.
TEST(Auth, Dialogues) {
    constexpr const char* kEvery = "LOGIN PLAIN CRAM-MD5";
    constexpr auto kCram = MAIL_MECH_CRAM_MD5;
    const Row cram{"AUTH CRAM-MD5\r\n", kChallenge}, no_cram{"AUTH CRAM-MD5\r\n", "504 no\r\n"};
    const Row cram_long{"AUTH CRAM-MD5\r\n", "334 " + std::string(683, 'A') + "=\r\n"};
    const Row no_plain{kPlain, "535 no\r\n"}, login{"AUTH LOGIN\r\n", "334 VXNlcm5hbWU6\r\n"};
    const Row user{"dGlt\r\n", "334 UGFzc3dvcmQ6\r\n"};
    const struct {
        std::int32_t result;
        std::uint32_t mask;
        const char* offered;  // behind "250-AUTH "
        Script rows;
    } cases[] = {
        {0, kAll, kEvery, {cram, {kResponse, "235 ok\r\n"}}},
        {0, kAll, kEvery, {no_cram, no_plain, login, user, {kLoginPassword, "235\r\n"}}},
        {3, kAll, "CRAM-MD5", {cram_long}},
        {0, MAIL_MECH_PLAIN, kEvery, {{kPlain, "235 ok\r\n"}}},
        // only the first digit of a reply counts, and another question is no success
        {3, kCram, kEvery, {cram, {kResponse, "334 more\r\n"}}},
        {3, MAIL_MECH_PLAIN, kEvery, {{kPlain, "334 more\r\n"}}},
        {3, MAIL_MECH_LOGIN, kEvery, {login, user, {kLoginPassword, "334 more\r\n"}}},
        {3, MAIL_MECH_LOGIN, kEvery, {login, {"dGlt\r\n", "235 ok\r\n"}}},
        {3, MAIL_MECH_LOGIN, kEvery, {{"AUTH LOGIN\r\n", "235 ok\r\n"}}},
        {3, kCram, kEvery, {{"AUTH CRAM-MD5\r\n", "235 ok\r\n"}}},
        // what the server does not offer, and the caller does not allow, is not tried
        {2, MAIL_MECH_LOGIN, "PLAIN", {}},
        {2, kCram, "LOGIN PLAIN", {}},
        {2, kAll, "\r\n250-AUTH=LOGIN PLAIN", {}},
        {2, kAll, "\r\n250-auth PLAIN", {}},
        {2, MAIL_MECH_PLAIN, "plain LOGINX", {}},
        {2, MAIL_MECH_PLAIN, "PLAIN\r\n250-AUTH LOGIN", {}},  // the last line counts
    };
    for (const auto& [result, mask, offered, rows] : cases) {
        SCOPED_TRACE(std::string(offered) + " " + (rows.empty() ? "" : rows.back().expect));
        Script script = rows;
        script.push_back(
            {"EHLO", "250-hi\r\n250-AUTH " + std::string(offered) + "\r\n250 SIZE\r\n"});
        ScriptedServer server(friendly(script));
        std::uint32_t err = 99;
        EXPECT_EQ(sign_in(server, account(mask, kUser, kPassword), &err), result);
        EXPECT_EQ(err, 0U);
        std::vector<std::string> wanted{server.commands().at(0)};
        for (const Row& row : rows) wanted.push_back(row.expect);
        EXPECT_EQ(server.commands(), wanted);
    }
}

// Fields that are full, without a NUL, and a line that is as long as a reply can be.
TEST(Auth, LongestFields) {
    const std::string longest(70, 'x');
    ScriptedServer server(friendly({{"EHLO", "250 AUTH " + std::string(1013, ' ') + " PLAIN"},
                                    {"AUTH PLAIN ", "235 ok\r\n"}}));
    std::uint32_t err = 99;
    EXPECT_EQ(sign_in(server, account(kAll, longest.c_str(), longest.c_str()), &err), 0);
    EXPECT_EQ(server.commands()[1].size(), 11U + 264 + 2);
}

TEST(Credentials, Texts) {
    char out[512], other[512];
    const std::string much(600, 'x');
    EXPECT_EQ(Auth_GetCertPlainString("u", "p", out), 0);
    EXPECT_STREQ(out, "dQB1AHA=");
    EXPECT_EQ(Auth_GetCertPlainString("u", nullptr, out), 0);
    EXPECT_STREQ(out, "dQB1AA==");
    EXPECT_EQ(Auth_GetCertPlainString(much.c_str(), "p", out), -1);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(Auth_GetCertLoginString("user", "", out, other), 0);
    EXPECT_STREQ(out, "dXNlcg==");
    EXPECT_STREQ(other, "");
    EXPECT_EQ(Auth_GetCertLoginString("u", much.c_str(), out, other), -1);
    EXPECT_EQ(Auth_GetCertLoginString("u", "p", out, nullptr), -1);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(Auth_GetCertCramString(much.c_str(), "p", "", out), -1);
    EXPECT_EQ(Auth_GetCertCramString("u", "p", (std::string(683, 'A') + "=").c_str(), out), -1);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(Auth_GetCertCramString("u", "p", (std::string(682, 'A') + "==").c_str(), out), 0);
    EXPECT_EQ(Auth_GetCertPlainString("u", "p", nullptr), -1);
}

TEST(Credentials, Decoder) {
    const struct {
        const char* text;
        std::string bytes;
    } cases[] = {
        {"Zm8=\r\n", "fo"},          {"Zm9vYg", "foob"}, {"Zm8=Zm9v", "fo"},
        {"Zm9v\r\n\r\n", "foo\x04"}, {"Zm-v", "f"},
    };
    for (const auto& [text, bytes] : cases) {
        std::array<char, 16> out;
        out.fill('#');
        EXPECT_EQ(ovrmail::smtp::from_base64(out, text), static_cast<int>(bytes.size())) << text;
        EXPECT_EQ(std::string(out.data()), bytes) << text;
    }
}

std::string hex(const Digest& digest) {
    std::string text;
    for (const unsigned char byte : digest) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

std::string md5(const std::string& text, std::size_t piece) {
    MailMd5Context context;
    MD5Init(&context);
    for (std::size_t at = 0; at < text.size(); at += piece) {
        const std::size_t size = std::min(piece, text.size() - at);
        MD5Update(&context, reinterpret_cast<const unsigned char*>(text.data() + at),
                  static_cast<std::uint32_t>(size));
    }
    Digest digest;
    MD5Final(digest.data(), &context);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(&context), sizeof context),
              std::string(sizeof context, '\0'));
    return hex(digest);
}

// Vectors of RFC 1321 and RFC 2202; pieces do not matter.
TEST(Md5, Digests) {
    std::string digits, bytes;
    for (int i = 0; i < 8; ++i) digits += "1234567890";
    for (int i = 0; i < 1000; ++i) bytes += static_cast<char>(i * 7);
    EXPECT_EQ(md5("", 1), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5("abc", 3), "900150983cd24fb0d6963f7d28e17f72");
    for (std::size_t piece : {1U, 3U, 63U, 64U, 65U, 127U}) {
        EXPECT_EQ(md5(digits, piece), "57edf4a22be3c955ac49da2e2107b67a");
        for (std::size_t length : {55U, 56U, 63U, 64U, 65U, 119U, 120U, 128U, 1000U})
            EXPECT_EQ(md5(bytes.substr(0, length), piece), md5(bytes.substr(0, length), 1000));
    }
    Digest made;
    ovrmail::smtp::hmac_md5(std::string(50, '\xdd'), std::string(16, '\xaa'), made);
    EXPECT_EQ(hex(made), "56be34521d144c88dbb8c733f0e8b3f6");
    ovrmail::smtp::hmac_md5(std::string("Test Using Larger Than Block-Size Key - Hash Key First"),
                            std::string(80, '\xaa'), made);
    EXPECT_EQ(hex(made), "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd");
}

}  // namespace

// MD5 and HMAC-MD5 against the published suites, and in pieces of every awkward size.
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "md5.h"
#include "smtp/hmac_md5.hpp"

namespace {

using ovrmail::smtp::Digest;

std::string hex(const Digest& digest) {
    std::string text;
    for (const unsigned char byte : digest) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

std::string md5(std::string_view text, std::size_t piece) {
    MailMd5Context context;
    MD5Init(&context);
    for (std::size_t at = 0; at < text.size(); at += piece) {
        const std::string_view part = text.substr(at, piece);
        MD5Update(&context, reinterpret_cast<const unsigned char*>(part.data()),
                  static_cast<std::uint32_t>(part.size()));
    }
    Digest digest;
    MD5Final(digest.data(), &context);
    EXPECT_EQ(std::string_view(reinterpret_cast<char*>(&context), sizeof context),
              std::string(sizeof context, '\0'));
    return hex(digest);
}

TEST(Md5, SuiteOfRfc1321) {
    const struct {
        std::string_view text, digest;
    } cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& [text, digest] : cases) EXPECT_EQ(md5(text, 1000), digest) << text;
}

TEST(Md5, PiecesDoNotMatter) {
    std::string text;
    for (int i = 0; i < 1000; ++i) text += static_cast<char>(i * 7);
    for (std::size_t length : {55U, 56U, 63U, 64U, 65U, 119U, 120U, 128U, 1000U})
        for (std::size_t piece : {1U, 3U, 63U, 64U, 65U, 127U})
            EXPECT_EQ(md5(text.substr(0, length), piece), md5(text.substr(0, length), length))
                << length << " in pieces of " << piece;
}

TEST(HmacMd5, SuiteOfRfc2202) {
    const std::string counted =
        "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f\x10\x11\x12\x13\x14\x15\x16"
        "\x17\x18\x19";
    const struct {
        std::string key, text, digest;
    } cases[] = {
        {std::string(16, '\x0b'), "Hi There", "9294727a3638bb1c13f48ef8158bfc9d"},
        {"Jefe", "what do ya want for nothing?", "750c783e6ab0b503eaa86e310a5db738"},
        {std::string(16, '\xaa'), std::string(50, '\xdd'), "56be34521d144c88dbb8c733f0e8b3f6"},
        {counted, std::string(50, '\xcd'), "697eaf0aca3a3aea3a75164746ffaa79"},
        {std::string(16, '\x0c'), "Test With Truncation", "56461ef2342edc00f9bab995690efd4c"},
        {std::string(80, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First",
         "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd"},
        {std::string(80, '\xaa'),
         "Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data",
         "6f630fad67cda0ee1fb1f562db3aa53e"},
    };
    for (const auto& [key, text, digest] : cases) {
        Digest made;
        ovrmail::smtp::Auth_HmacMd5(text, key, made);
        EXPECT_EQ(hex(made), digest) << text;
    }
}

}  // namespace

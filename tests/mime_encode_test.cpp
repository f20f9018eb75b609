// The encoders: base64, ISO-2022-JP, subjects, and the code set converter. That any text comes back
// out of them is shown by fuzz/text_fuzz.cpp.
#include <gtest/gtest.h>
#include <resolv.h>

#include <array>
#include <random>
#include <string>
#include <vector>

#include "codeset.h"
#include "common/base64.hpp"
#include "mime.h"
#include "support/support.hpp"

namespace {

using std::string;
using support::times;

const string kA = "\x82\xA0";  // one hiragana letter
const string kWordA = "=?ISO-2022-JP?B?GyRCJCIbKEo=?=";

// Runs an encoder in exactly the room that its contract asks for.
string encode(void (*encoder)(const char*, char*), const string& text) {
    const bool subject = encoder == SMTP_makeSubject;
    std::vector<char> out(subject ? 17 * text.size() + 8 : 3 * text.size() + 3, 'x');
    encoder(text.c_str(), out.data());
    return out.data();
}

string pair_of(unsigned code) { return {static_cast<char>(code >> 8), static_cast<char>(code)}; }

// The resolver library's base64 as the independent opinion.
string plain_base64(const string& bytes) {
    std::array<char, 1024> out{};
    b64_ntop(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), out.data(), 1024);
    return out.data();
}

TEST(Base64, AgreesWithTheDefinitionAtEveryLength) {
    std::mt19937 random(1);
    for (std::size_t length = 0; length <= 400; ++length) {
        string bytes(length, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random());
        const std::span src(reinterpret_cast<const unsigned char*>(bytes.data()), length);
        std::vector<char> flat(ovrmail::common::base64_length(length));
        EXPECT_EQ(ovrmail::common::base64_encode(src, flat), flat.size());
        EXPECT_EQ(string(flat.begin(), flat.end()), plain_base64(bytes));
        std::vector<char> lines((length + 50) / 51 * 70);
        lines.resize(ovrmail::common::base64_encode_lines(src, lines));
        string wanted;
        for (std::size_t at = 0; at < length; at += 51)
            wanted += plain_base64(bytes.substr(at, 51)) + "\r\n";
        EXPECT_EQ(string(lines.begin(), lines.end()), wanted);
    }
    string src = "abcdxxxx", dst(9, '#');
    EXPECT_EQ(SMTP_toBase64(src.data(), dst.data(), 4), 8);
    EXPECT_STREQ(dst.data(), "YWJjZA==");
    EXPECT_EQ(src, string("abcd\0\0\0x", 8)) << "zero bytes behind the source";
    EXPECT_EQ(SMTP_toBase64(src.data(), dst.data(), 0), 0);
}

// Eight pairs are converted at once: each pair in each place comes out as iconv has it, and one
// that is none ends the line.
TEST(Iso2022, EveryPair) {
    const int converter = Cnv_open("SJIS", "eucJP");
    int compared = 0;
    for (unsigned code = 0; code <= 0x1FFFF; ++code) {
        const unsigned lead = code >> 8, trail = code & 0xFF;
        const bool is_lead = (lead >= 0x81 && lead <= 0x9F) || (lead >= 0xE0 && lead <= 0xEF);
        const bool is_valid = is_lead && trail >= 0x40 && trail != 0x7F && trail <= 0xFC;
        const unsigned jis = SMTP_sjistojis(code);
        EXPECT_TRUE(is_valid || jis == (is_lead ? lead | trail : 0)) << code;
        if (!is_lead || trail == 0) continue;
        const std::size_t before = code % 8;
        EXPECT_EQ(encode(SMTP_toISO2022, times(before, kA) + pair_of(code) + times(7 - before, kA)),
                  "\x1b$B" + times(before, "$\"") +
                      (is_valid ? pair_of(jis) + times(7 - before, "$\"") + "\x1b(J" : ""))
            << code;
        string euc(3, '\0');
        int size = 0;
        Cnv_sjistoeuc(converter, 2, pair_of(code).data(), 3, euc.data(), &size);
        if (is_valid && size == 2 && (euc[0] & 0x80) != 0) {
            for (char& byte : euc) byte = static_cast<char>(byte & 0x7F);
            EXPECT_EQ(pair_of(jis), euc.substr(0, 2)) << code;
            ++compared;
        }
    }
    EXPECT_GT(compared, 6000);
    Cnv_close(converter);
}

TEST(Iso2022, LinesAndSubjects) {
    const string twelve = "=?ISO-2022-JP?B?GyRC" + times(4, "JCIkIiQi") + "GyhK?=";
    const struct {
        const char* name;
        decltype(&SMTP_toISO2022) encoder;
        string in, wanted;
    } cases[] = {
        {"katakana and vendor bytes are single", SMTP_toISO2022, "\xA0\xB1\xDF\xF0\xFF",
         "\xA0\xB1\xDF\xF0\xFF"},
        {"roman before the line end", SMTP_toISO2022, kA + "\r\n", "\x1b$B$\"\x1b(J\r\n"},
        {"leading dot is doubled", SMTP_toISO2022, "." + kA, "..\x1b$B$\"\x1b(J"},
        {"lead byte alone", SMTP_toISO2022, "ab\x82", "ab"},
        {"lead byte behind a pair", SMTP_toISO2022, kA + "\x82", "\x1b$B$\"\x1b(J"},
        {"invalid trail byte", SMTP_toISO2022, kA + "\x82 b\r\n", "\x1b$B$\""},
        {"the worst case", SMTP_toISO2022, kA + times(9, "a" + kA),
         "\x1b$B$\"\x1b(J" + times(9, "a\x1b$B$\"\x1b(J")},
        {"ascii is unchanged", SMTP_makeSubject, ".a\xB1\xFF", ".a\xB1\xFF"},
        {"leading dot is doubled", SMTP_makeSubject, "." + kA, ".." + kWordA},
        {"a word opens at column 46", SMTP_makeSubject, times(46, "x") + kA,
         times(46, "x") + kWordA},
        {"but not at 47", SMTP_makeSubject, times(47, "x") + kA, times(47, "x") + "\r\n " + kWordA},
        {"single bytes reach column 76", SMTP_makeSubject, kA + times(46, "x"),
         kWordA + times(46, "x")},
        {"and fold behind it", SMTP_makeSubject, kA + times(47, "x"),
         kWordA + times(47, "x") + "\r\n "},
        {"the thirteenth starts another, at the first column", SMTP_makeSubject,
         times(13, kA) + times(46, "x"), twelve + "\r\n " + kWordA + times(46, "x")},
        {"so that folds come as behind a first", SMTP_makeSubject, times(13, kA) + times(47, "x"),
         twelve + "\r\n " + kWordA + times(47, "x") + "\r\n "},
        {"invalid pair ends it", SMTP_makeSubject, kA + "\x82 z", "=?ISO-2022-JP?B?GyRCJCI=?="},
        {"invalid pair alone", SMTP_makeSubject, "x\x82 z", "x=?ISO-2022-JP?B?GyRC?="},
        {"lead byte alone", SMTP_makeSubject, kA + "\x82", kWordA},
    };
    for (const auto& c : cases) EXPECT_EQ(encode(c.encoder, c.in), c.wanted) << c.name;
}

TEST(CodeSet, Handles) {
    for (const char* name : {"eucjp", "UTF-8", "", static_cast<const char*>(nullptr)})
        EXPECT_TRUE(Cnv_open(name, "SJIS") == -1 && Cnv_open("SJIS", name) == -1);
    const int other = Cnv_open("SJIS", "SJIS");
    const int handle = Cnv_open("eucJP", "SJIS");
    EXPECT_NE(handle, other);
    EXPECT_EQ(Cnv_close(handle), 0);
    EXPECT_EQ(Cnv_close(handle), -1) << "closed twice";
    std::array<char, 4> out{};
    int length = 7;
    for (const int none : {-1, 0, handle, 1 << 20})
        EXPECT_EQ(Cnv_euctosjis(none, 1, "a", 4, out.data(), &length), -1);
    EXPECT_EQ(Cnv_euctosjis(other, 1, nullptr, 4, out.data(), &length), -1);
    EXPECT_EQ(length, 7);
    EXPECT_EQ(Cnv_close(other), 0);
}

TEST(CodeSet, Conversions) {
    const int to_sjis = Cnv_open("eucJP", "SJIS");
    const int to_euc = Cnv_open("SJIS", "eucJP");
    const char* const nihongo = "\xC6\xFC\xCB\xDC\xB8\xEC";
    const struct {
        decltype(&Cnv_euctosjis) function;
        int handle;
        string in;
        int room;
        int result;
        string out;
    } cases[] = {
        {Cnv_euctosjis, to_sjis, "a\xA4\xA2", 9, 3, "a\x82\xA0"},
        {Cnv_sjistoeuc, to_euc, "\xB1\xB2", 9, 4, "\x8E\xB1\x8E\xB2"},
        {Cnv_euctosjis, to_sjis, string("ab\0cd", 5), 9, 2, "ab"},
        {Cnv_euctosjis, to_sjis, "", 9, 0, ""},
        {Cnv_euctosjis, to_sjis, "ab\xFFz", 9, -2, "ab"},        // invalid
        {Cnv_euctosjis, to_sjis, "ab\xA4", 9, -2, "ab"},         // incomplete
        {Cnv_euctosjis, to_sjis, "\xFF\x01z", 9, -2, "ff017a"},  // nothing converted
        {Cnv_euctosjis, to_sjis, "\xFF\x01z", 5, -2, "ff017"},   // and cut
        {Cnv_euctosjis, to_sjis, "abcdef", 4, -2, "abcd"},       // no more room
        {Cnv_euctosjis, to_sjis, nihongo, 1, -2, "c"},           // none for a character
        {Cnv_euctosjis, to_sjis, nihongo, 5, -2, "\x93\xFA\x96\x7B"},
        {Cnv_sjistoeuc, to_euc, "\x93\xFA\x96\x7B", 3, -2, "\xC6\xFC"},
        {Cnv_euctosjis, to_sjis, string("\0a\xFF", 3), 9, -2, string("\0a", 2)},
        {Cnv_euctosjis, to_euc, "\xB1\xB2", 64, -2, "\x8E\xB1"},  // wrong direction: it grows
    };
    for (const auto& c : cases) {
        string out(static_cast<std::size_t>(c.room), '#');
        int length = -7;
        EXPECT_EQ(c.function(c.handle, static_cast<int>(c.in.size()), c.in.data(), c.room,
                             out.data(), &length),
                  c.result);
        EXPECT_EQ(length, static_cast<int>(c.out.size()));
        EXPECT_EQ(out, c.out + string(out.size() - c.out.size(), '#'));
    }
    Cnv_close(to_sjis);
    Cnv_close(to_euc);
    std::array<char, 9> code;
    EXPECT_EQ(Cnv_tocode("\x01z\xFF\xA0", code.data()), 4);
    EXPECT_STREQ(code.data(), "017affa0");
}

}  // namespace

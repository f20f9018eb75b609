// Profiles: how lines are read and written back, and numbers.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "profile.h"
#include "support/support.hpp"

namespace {

using support::read_file;
using support::write_file;
using Maybe = const char*;  // null: absent

std::string get(const MailProfile* profile, const char* section, const char* key) {
    std::vector<char> buffer(8192);
    const int length =
        Com_GetPrivateProfileString(profile, section, key, "(none)", buffer.data(), 8192);
    EXPECT_EQ(length, static_cast<int>(std::string(buffer.data()).size()));
    return buffer.data();
}

class Profile : public ::testing::Test {
protected:
    MailProfile* open(std::string_view content, std::uint32_t flags = 0) {
        write_file(path_, content);
        return Com_OpenPrivateProfile(path_.c_str(), flags);
    }
    support::TempDir dir_;
    const std::string path_ = dir_.file("test.ini");
};

// What is written back shows how all of the file was read.
TEST_F(Profile, LinesAndEdits) {
    const std::string n67(67, 'n'), v1020(1020, 'v'), v3000(3000, 'v');
    const struct {
        std::string content;
        const char *section, *key, *value;  // a change
        std::string wanted;
    } cases[] = {
        {"  ;a=1\n\nx=0\n   [S] more\nK=1\n", "Z", "z", "1", "[S]\nK=1\n[Z]\nz=1\n"},
        {"[S]\n  K = v \n\t;K=1\n ;K=1\n [x\n =1\n", "Z", "z", "",
         "[S]\n  K = v \n\t;K=1\n =1\n[Z]\nz=\n"},
        {"[S]\n=5\nA==5\nB\nC=a\rb\nD=a" + std::string(1, '\0') + "b\r\nE=1", "Z", "z", "1",
         "[S]\nA==5\nC=a\nD=a\nE=1\n[Z]\nz=1\n"},
        {"[S\nK=0\n[ S ]\nK=1\n[]\nk=1\n", "", "K", "1", "[ S ]\nK=1\n[]\nk=1\nK=1\n"},
        {"[" + n67 + "]\n" + n67 + "=1\nn" + n67 + "=1\n[n" + n67 + "]\nk=1\n", "Z", "z", "1",
         "[" + n67 + "]\n" + n67 + "=1\n[Z]\nz=1\n"},
        {"[S]\nk==" + v1020 + "vvK=w\n", "Z", "z", "1",  // 1,024 bytes are a line
         "[S]\nk==" + v1020 + "v\nvK=w\n[Z]\nz=1\n"},
        {"[S]\nK=1\nK=2\n[S]\nK=3\n", "S", "K", "0", "[S]\nK=0\nK=2\n[S]\nK=3\n"},
        {"[S]\nK=1\nL=2\n", "S", "L", v3000.c_str(), "[S]\nK=1\nL=" + v3000 + "\n"},
        {"[S]\nK=1\nL=2\n", "S", "K", nullptr, "[S]\nL=2\n"},
        {"[S]\nK=1\nL=2\n", "S", "L", nullptr, "[S]\nK=1\n"},
        {"[S]\nK=1\n[T]\nK=2\n", "S", "K", nullptr, "[T]\nK=2\n"},
        {"[S]\nK=1\n[T]\nK=2\n[S]\n", "S", nullptr, "x", "[T]\nK=2\n"},
        {"[S]\nK=1\n[T]\nK=2\n", "T", nullptr, nullptr, "[S]\nK=1\n"},
        {"; kept\n[S]\nK=1\n", "S", "k", nullptr, "; kept\n[S]\nK=1\n"},
        {"; kept\n[S]\nK=1\n", "s", "K", nullptr, "; kept\n[S]\nK=1\n"},
        {"; kept\n[S]\nK=1\n", "s", nullptr, "1", "; kept\n[S]\nK=1\n"},
    };
    for (const auto& c : cases) {
        MailProfile* const profile = open(c.content, 1);
        EXPECT_EQ(Com_WritePrivateProfileString(profile, c.section, c.key, c.value), 1);
        if (c.key != nullptr) {
            EXPECT_EQ(get(profile, c.section, c.key), c.value != nullptr ? c.value : "(none)");
        }
        EXPECT_EQ(Com_ClosePrivateProfile(profile, path_.c_str()), 0);
        EXPECT_EQ(read_file(path_), c.wanted);
    }
    MailProfile* const profile = open("[S]\nK=1\n[S]\nL=1\n", 0x21);
    EXPECT_EQ(get(profile, "S", "L"), "(none)");
    for (const char* key : {"A", "B"}) Com_WritePrivateProfileString(profile, "T", key, "1");
    EXPECT_EQ(Com_ClosePrivateProfile(profile, path_.c_str()), 0);
    EXPECT_EQ(read_file(path_), "[S]\r\nK=1\r\n[S]\r\nL=1\r\n[T]\r\nA=1\r\nB=1\r\n");
}

TEST_F(Profile, Numbers) {
    struct {
        Maybe value;
        int fallback, decimal, hexadecimal;
    } const cases[] = {
        {nullptr, -1, 0, -1},
        {nullptr, 7, 7, 7},
        {"", -1, -1, -1},
        {"12abc", 3, 12, 0x12abc},
        {"abc", 3, 0, 0xabc},
        {" \t-12", 3, -12, 3},
        {"+5", 3, 5, 3},
        {"+-5", 3, 0, 3},
        {"          12", 3, 1, 3},  // eleven characters count
        {"99999999999", 3, INT_MAX, static_cast<int>(0x99999999)},
        {"0x1F", 3, 0, 31},
        {"1f", 3, 1, 31},
        {"0X1F", 3, 0, 3},
        {"12 ", 3, 12, 3},
        {"0x", 3, 0, 0},
        {"0x0x1", 3, 0, 3},
        {"ffffffff", 3, 0, -1},
    };
    for (const auto& c : cases) {
        MailProfile* const profile =
            open(c.value != nullptr ? "[S]\nk=" + std::string(c.value) + "\n" : "[S]\n");
        const char* const name = c.value != nullptr ? c.value : "(none)";
        EXPECT_EQ(Com_GetPrivateProfileInt(profile, "S", "k", c.fallback, nullptr), c.decimal)
            << name;
        EXPECT_EQ(Com_GetPrivateProfileIntHex(profile, "S", "k", c.fallback, nullptr),
                  c.hexadecimal)
            << name;
        Com_ClosePrivateProfile(profile, nullptr);
    }
}

TEST_F(Profile, NullsAndSmallBuffers) {
    EXPECT_EQ(Com_GetPrivateProfileString(nullptr, "S", "k", "", nullptr, 0), -1);
    EXPECT_EQ(Com_GetPrivateProfileInt(nullptr, "S", "k", 5, nullptr), 0);
    EXPECT_EQ(Com_GetPrivateProfileIntHex(nullptr, "S", "k", 5, nullptr), 5);
    EXPECT_EQ(Com_ClosePrivateProfile(nullptr, "x"), -1);
    MailProfile* const profile = open("[S]\nk=value\n");
    char buffer[4] = "***";
    EXPECT_EQ(Com_GetPrivateProfileString(profile, "S", "k", "", buffer, 0), 0);
    EXPECT_STREQ(buffer, "***");
    EXPECT_EQ(Com_GetPrivateProfileString(profile, "S", "k", "", buffer, 4), 3);
    EXPECT_STREQ(buffer, "val");
    EXPECT_EQ(Com_GetPrivateProfileString(profile, nullptr, "k", "fallback", buffer, 4), 3);
    EXPECT_EQ(Com_WritePrivateProfileString(profile, "S", "k", "x"), 0);  // read only
    EXPECT_EQ(Com_ClosePrivateProfile(profile, path_.c_str()), 0);
    EXPECT_EQ(read_file(path_), "[S]\nk=value\n");
    MailProfile* const empty = Com_OpenPrivateProfile(dir_.path().c_str(), 1);  // a directory
    EXPECT_EQ(Com_WritePrivateProfileString(empty, nullptr, "k", "x"), 0);
    EXPECT_EQ(Com_WritePrivateProfileString(empty, "S", std::string(68, 'k').c_str(), "x"), 0);
    EXPECT_EQ(Com_WritePrivateProfileString(empty, "S", "k", "x"), 1);
    std::uint32_t err = 0;
    EXPECT_EQ(Com_ClosePrivateProfile2(empty, dir_.path().c_str(), &err), -1);
    EXPECT_EQ(err, static_cast<std::uint32_t>(EISDIR));
}

}  // namespace

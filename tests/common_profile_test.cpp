// Profiles: how lines are read and written back, and numbers; and the installation records that
// are kept in them: which key becomes which field.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <vector>

#include "inst_info.h"
#include "profile.h"
#include "support/support.hpp"

namespace {

namespace fs = std::filesystem;
using std::string;
using support::read_file;
using support::write_file;

string get(const MailProfile* profile, const char* section, const char* key) {
    std::vector<char> buffer(8192);
    const int length =
        Com_GetPrivateProfileString(profile, section, key, "(none)", buffer.data(), 8192);
    EXPECT_EQ(length, static_cast<int>(string(buffer.data()).size()));
    return buffer.data();
}

class Profile : public ::testing::Test {
protected:
    MailProfile* open(std::string_view content, std::uint32_t flags = 0) {
        write_file(path_, content);
        return Com_OpenPrivateProfile(path_.c_str(), flags);
    }
    support::TempDir dir_;
    const string path_ = dir_.file("test.ini");
};

// What is written back shows how all of the file was read.
TEST_F(Profile, LinesAndEdits) {
    const string n67(67, 'n'), v1020(1020, 'v'), v3000(3000, 'v');
    const struct {
        string content;
        const char *section, *key, *value;  // a change
        string wanted;
    } cases[] = {
        {"  ;a=1\n\nx=0\n   [S] more\nK=1\n", "Z", "z", "1", "[S]\nK=1\n[Z]\nz=1\n"},
        {"[S]\n  K = v \n\t;K=1\n ;K=1\n [x\n =1\n", "Z", "z", "",
         "[S]\n  K = v \n\t;K=1\n =1\n[Z]\nz=\n"},
        {"[S]\n=5\nA==5\nB\nC=a\rb\nD=a" + string(1, '\0') + "b\r\nE=1", "Z", "z", "1",
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
        EXPECT_EQ(get(profile, c.section, c.key),
                  c.key != nullptr && c.value != nullptr ? c.value : "(none)");
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
        const char* line;  // below "[S]"
        int fallback, decimal, hexadecimal;
    } const cases[] = {
        {"", -1, 0, -1},
        {"", 7, 7, 7},
        {"k=", -1, -1, -1},
        {"k=12abc", 3, 12, 0x12abc},
        {"k=abc", 3, 0, 0xabc},
        {"k= \t-12", 3, -12, 3},
        {"k=+5", 3, 5, 3},
        {"k=+-5", 3, 0, 3},
        {"k=          12", 3, 1, 3},  // eleven characters count
        {"k=99999999999", 3, INT_MAX, static_cast<int>(0x99999999)},
        {"k=0x1F", 3, 0, 31},
        {"k=0X1F", 3, 0, 3},
        {"k=0x", 3, 0, 0},
        {"k=0x0x1", 3, 0, 3},
        {"k=ffffffff", 3, 0, -1},
    };
    for (const auto& c : cases) {
        MailProfile* const p = open(string("[S]\n") + c.line);
        EXPECT_EQ(Com_GetPrivateProfileInt(p, "S", "k", c.fallback, nullptr), c.decimal) << c.line;
        EXPECT_EQ(Com_GetPrivateProfileIntHex(p, "S", "k", c.fallback, nullptr), c.hexadecimal)
            << c.line;
        Com_ClosePrivateProfile(p, nullptr);
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
    EXPECT_EQ(Com_WritePrivateProfileString(empty, "S", string(68, 'k').c_str(), "x"), 0);
    EXPECT_EQ(Com_WritePrivateProfileString(empty, "S", "k", "x"), 1);
    std::uint32_t err = 0;
    EXPECT_EQ(Com_ClosePrivateProfile2(empty, dir_.path().c_str(), &err), -1);
    EXPECT_EQ(err, static_cast<std::uint32_t>(EISDIR));
}

const string kAgent = "/opt/Quorvin/etc/Dovrin.reg";
const string kSettings = "/opt/Quorvin/etc/korvanta.reg";
const string kManager = "/opt/korvanta/etc/korvanta.reg";
const string kVersion =
    "[Tarvello_CurrentVersion]\nDM_MajorVersion=0x5\nDM_MinorVersion=1\nDM_MajorLevel=0x1e\n";

class InstInfo : public ::testing::Test {
protected:
    InstInfo() {
        for (const auto& path : {kAgent, kSettings, kManager}) {
            fs::create_directories(fs::path(path).parent_path());
            fs::remove_all(path);
        }
        std::memset(&info_, 0xff, sizeof info_);
    }
    [[nodiscard]] string all() const {
        string text;
        for (const auto number : {info_.ulMajorVersion, info_.ulMinorVersion, info_.ulLevel,
                                  info_.ulAddon, info_.ulStartType, info_.ulCompanionMajorVersion,
                                  info_.ulCompanionMinorVersion, info_.ulCompanionLevel})
            text += std::to_string(number) + " ";
        for (const char* path :
             {info_.szInstallDir, info_.szConfigDir, info_.szDataDir, info_.szPartnerInstallDir,
              info_.szPartnerConfigDir, info_.szPartnerDataDir})
            text += path + string(" ");
        return text;
    }
    MailInstInfo info_;
    std::uint32_t err_ = 0;
};

TEST_F(InstInfo, RecordsAreRead) {
    const string agent = kVersion + "[korvantaQX]\nDM_Addon=0x00000102\n";
    const string paths =
        "/opt/Quorvin /etc/opt/Quorvin /var/opt/Quorvin "
        "/opt/Brelltam /etc/opt/Brelltam /var/opt/Brelltam ";
    const struct {
        string agent, settings;
        int wanted;
        string all;
    } cases[] = {
        {"", "", -2, "0 0 0 0 0 0 0 0       "},
        {kVersion, "", -2, "5 1 30 0 0 0 0 0       "},                    // what was read stays
        {agent, "DM_Start=ffffffff", -2, "5 1 30 258 0 0 0 0 " + paths},  // all ones: missing
        {agent, "DM_Start=0x1001", 0, "5 1 30 258 4097 0 0 0 " + paths},
        {agent, "DM_Start=1\nQXACS_MajorLevel=c\nQXACS_MinorVersion=b\nQXACS_MajorVersion=0xa", 0,
         "5 1 30 258 1 10 11 12 " + paths},
    };
    for (const auto& c : cases) {
        write_file(kAgent, c.agent);
        write_file(kSettings, "[korvantaQX]\n" + c.settings);
        EXPECT_EQ(Info_GetDovrinInstInfo(&info_, &err_), c.wanted);
        EXPECT_EQ(all(), c.all);
    }
    EXPECT_EQ(Info_GetDovrinInstInfo(nullptr, nullptr), -1);
    EXPECT_EQ(Info_GetKorvantaInstInfo(&info_, &err_), -2) << "no such file";
    write_file(kManager, kVersion);
    info_.ulMinorVersion = 7;
    EXPECT_EQ(Info_GetKorvantaInstInfo(&info_, &err_), 0);
    EXPECT_EQ(all(),
              "5 1 30 258 1 10 11 12 /opt/Taskivo /etc/opt/Taskivo /var/opt/Taskivo "
              "/opt/Mervath /etc/opt/Mervath /var/opt/Mervath ");  // others stay
    EXPECT_EQ(err_, 0U);
}

TEST_F(InstInfo, OldestAcceptedVersion) {
    const std::uint32_t versions[][3] = {{4, 9, 99}, {5, 0, 29},  {5, 0, 30}, {5, 1, 0},
                                         {6, 0, 0},  {5, 0, ~0U}, {~0U, 0, 0}};
    for (const auto& version : versions) {
        info_.ulMajorVersion = version[0];
        info_.ulMinorVersion = version[1];
        info_.ulLevel = version[2];
        EXPECT_EQ(Info_CheckKorvantaVersion(&info_), &version - versions < 2 ? -1 : 0);
    }
}

TEST_F(InstInfo, SettersSpellNumbersAndKeepTheRest) {
    info_ = {};
    info_.ulMajorVersion = 5;
    info_.ulLevel = 0x1e;
    info_.ulAddon = 0x12;
    info_.ulCompanionLevel = 0xABC;
    write_file(kSettings, "; gone\n[korvantaQX]\nQXACS_MajorVersion=9\n[Other]\nk=v\n[Empty]\n");
    const string link = kSettings + ".link";  // written in place: owner and links stay
    fs::remove(link);
    fs::create_hard_link(kSettings, link);
    ::umask(0);
    ASSERT_EQ(Info_SetDovrinInstInfo(&info_, &err_), 0);
    EXPECT_EQ(read_file(kAgent), "[korvantaQX]\nDM_Addon=0x00000012\n");
    EXPECT_EQ(fs::status(kAgent).permissions(), static_cast<fs::perms>(0644));
    EXPECT_EQ(read_file(link),
              "[korvantaQX]\nQXACS_MajorVersion=0\nDM_Start=0x00000000\nQXACS_MinorVersion=0\n"
              "QXACS_MajorLevel=abc\n[Other]\nk=v\n");
    ASSERT_EQ(Info_SetDovrinStartType(&info_, 0x1001, &err_), 0);
    EXPECT_EQ(read_file(link),
              "[korvantaQX]\nQXACS_MajorVersion=5\nDM_Start=0x00001001\nQXACS_MinorVersion=0\n"
              "QXACS_MajorLevel=1e\n[Other]\nk=v\n");
    ASSERT_EQ(Info_SetDovrinInstallType(0xffffffff, nullptr), 0);
    EXPECT_EQ(read_file(kAgent), "[korvantaQX]\nDM_Addon=0xffffffff\n");

    fs::remove(kSettings);
    fs::create_directory(kSettings);
    EXPECT_EQ(Info_SetDovrinStartType(&info_, 2, &err_), -2);
    EXPECT_EQ(err_, static_cast<std::uint32_t>(EISDIR));
    EXPECT_EQ(info_.ulStartType, 2U);  // the record changes all the same
}

}  // namespace

// Installation records: which key becomes which field, and how numbers are spelled.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "inst_info.h"
#include "support/support.hpp"

namespace {

using support::read_file;
using support::write_file;

const std::string kEtc = "/opt/Quorvin/etc";
const std::string kAgent = kEtc + "/Dovrin.reg";
const std::string kSettings = kEtc + "/korvanta.reg";
const std::string kManager = "/opt/korvanta/etc/korvanta.reg";
const std::string kVersion =
    "[Tarvello_CurrentVersion]\nDM_MajorVersion=0x5\nDM_MinorVersion=1\nDM_MajorLevel=0x1e\n";

class InstInfo : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(kEtc);
        std::filesystem::create_directories("/opt/korvanta/etc");
        for (const auto& path : {kAgent, kSettings, kManager}) std::filesystem::remove(path);
        std::memset(&info_, 0xff, sizeof info_);
    }
    MailInstInfo info_;
    std::uint32_t err_ = 0;
};

TEST_F(InstInfo, AgentRecord) {
    EXPECT_EQ(Info_GetDovrinInstInfo(&info_, &err_), -2);  // missing files show as missing keys
    EXPECT_EQ(info_.ulStartType, 0u);
    EXPECT_EQ(Info_GetDovrinInstInfo(nullptr, nullptr), -1);

    write_file(kAgent, kVersion);
    EXPECT_EQ(Info_GetDovrinInstInfo(&info_, &err_), -2);
    EXPECT_EQ(info_.ulLevel, 0x1eu);  // what was read stays
    EXPECT_STREQ(info_.szInstallDir, "");

    write_file(kAgent, kVersion + "[korvantaQX]\nDM_Addon=0x00000102\n");
    write_file(kSettings, "[korvantaQX]\nDM_Start=ffffffff\n");  // all ones count as missing
    EXPECT_EQ(Info_GetDovrinInstInfo(&info_, &err_), -2);

    write_file(kSettings, "[korvantaQX]\nDM_Start=0x1001\n");
    ASSERT_EQ(Info_GetDovrinInstInfo(&info_, &err_), 0);
    const std::uint32_t numbers[] = {info_.ulMajorVersion, info_.ulMinorVersion, info_.ulLevel,
                                     info_.ulAddon, info_.ulStartType};
    const std::uint32_t wanted[] = {5, 1, 0x1e, 0x102, 0x1001};
    EXPECT_TRUE(std::ranges::equal(numbers, wanted));
    EXPECT_EQ(info_.ulCompanionMajorVersion, 0u);  // optional
    const char* const directories[] = {info_.szInstallDir,       info_.szConfigDir,
                                       info_.szDataDir,          info_.szPartnerInstallDir,
                                       info_.szPartnerConfigDir, info_.szPartnerDataDir};
    const char* const paths[] = {"/opt/Quorvin",  "/etc/opt/Quorvin",  "/var/opt/Quorvin",
                                 "/opt/Brelltam", "/etc/opt/Brelltam", "/var/opt/Brelltam"};
    for (std::size_t i = 0; i < std::size(paths); ++i) EXPECT_STREQ(directories[i], paths[i]);

    write_file(kSettings,
               "[korvantaQX]\nDM_Start=1\nQXACS_MajorLevel=c\nQXACS_MinorVersion=b\n"
               "QXACS_MajorVersion=0xa\n");
    ASSERT_EQ(Info_GetDovrinInstInfo(&info_, &err_), 0);
    EXPECT_EQ(info_.ulCompanionMajorVersion, 0xau);
    EXPECT_EQ(info_.ulCompanionMinorVersion, 0xbu);
    EXPECT_EQ(info_.ulCompanionLevel, 0xcu);
    EXPECT_EQ(err_, 0u);
}

TEST_F(InstInfo, ManagerRecordIsNotCleared) {
    EXPECT_EQ(Info_GetKorvantaInstInfo(&info_, &err_), -2);
    write_file(kManager, kVersion);
    info_.ulStartType = 77;
    ASSERT_EQ(Info_GetKorvantaInstInfo(&info_, &err_), 0);
    EXPECT_EQ(info_.ulStartType, 77u);
    EXPECT_EQ(info_.ulLevel, 0x1eu);
    EXPECT_STREQ(info_.szDataDir, "/var/opt/Taskivo");
    EXPECT_STREQ(info_.szPartnerConfigDir, "/etc/opt/Mervath");
}

TEST_F(InstInfo, OldestAcceptedVersion) {
    constexpr std::uint32_t kOnes = 0xffffffff;
    struct {
        std::uint32_t major, minor, level;
        int wanted;
    } const cases[] = {{4, 9, 99, -1}, {5, 0, 29, -1}, {5, 0, 30, 0},    {5, 1, 0, 0},
                       {6, 0, 0, 0},   {0, 0, 0, -1},  {5, 0, kOnes, 0}, {kOnes, 0, 0, 0}};
    for (const auto& c : cases) {
        info_.ulMajorVersion = c.major;
        info_.ulMinorVersion = c.minor;
        info_.ulLevel = c.level;
        EXPECT_EQ(Info_CheckKorvantaVersion(&info_), c.wanted)
            << c.major << '.' << c.minor << ' ' << c.level;
    }
}

TEST_F(InstInfo, SettersSpellNumbersAndKeepTheRest) {
    info_ = {};
    info_.ulMajorVersion = 5;
    info_.ulMinorVersion = 0;
    info_.ulLevel = 0x1e;
    info_.ulAddon = 0x12;
    info_.ulCompanionLevel = 0xABC;
    write_file(kSettings, "; gone\n[korvantaQX]\nQXACS_MajorVersion=9\n[Other]\nk=v\n[Empty]\n");
    const std::string link = kEtc + "/link";  // written in place: owner and links stay
    std::filesystem::remove(link);
    std::filesystem::create_hard_link(kSettings, link);
    ASSERT_EQ(Info_SetDovrinInstInfo(&info_, &err_), 0);
    EXPECT_EQ(read_file(link), read_file(kSettings));
    EXPECT_EQ(read_file(kAgent), "[korvantaQX]\nDM_Addon=0x00000012\n");
    EXPECT_EQ(read_file(kSettings),
              "[korvantaQX]\nQXACS_MajorVersion=0\nDM_Start=0x00000000\nQXACS_MinorVersion=0\n"
              "QXACS_MajorLevel=abc\n[Other]\nk=v\n");
    ASSERT_EQ(Info_SetDovrinStartType(&info_, 0x1001, &err_), 0);
    EXPECT_EQ(read_file(kSettings),
              "[korvantaQX]\nQXACS_MajorVersion=5\nDM_Start=0x00001001\nQXACS_MinorVersion=0\n"
              "QXACS_MajorLevel=1e\n[Other]\nk=v\n");
    ASSERT_EQ(Info_SetDovrinInstallType(0xffffffff, nullptr), 0);
    EXPECT_EQ(read_file(kAgent), "[korvantaQX]\nDM_Addon=0xffffffff\n");

    std::filesystem::remove(kSettings);
    std::filesystem::create_directory(kSettings);
    EXPECT_EQ(Info_SetDovrinStartType(&info_, 2, &err_), -2);
    EXPECT_EQ(err_, static_cast<std::uint32_t>(EISDIR));
    EXPECT_EQ(info_.ulStartType, 2u);  // the record changes all the same
}

}  // namespace

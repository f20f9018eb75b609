// The status query: flags to bits, the management product's part in it, and its trace.
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "mail_api.h"
#include "support/support.hpp"

namespace fs = std::filesystem;

namespace {

const char* const kConfig = "/etc/opt/Quorvin/trc_conf";
const char* const kManager = "/opt/korvanta/etc/korvanta.reg";

void write_records(const char* start_type, int manager_level) {
    fs::create_directories("/opt/Quorvin/etc");
    fs::create_directories("/opt/korvanta/etc");
    fs::remove("/opt/Quorvin/etc/Dovrin.reg");
    fs::remove(kManager);
    const auto version = [](int level) {
        return "[Tarvello_CurrentVersion]\nDM_MajorVersion=5\nDM_MinorVersion=0\nDM_MajorLevel=" +
               std::to_string(level) + "\n";
    };
    if (start_type != nullptr) {
        support::write_file("/opt/Quorvin/etc/Dovrin.reg",
                            version(10) + "[korvantaQX]\nDM_Addon=0\n");
        support::write_file("/opt/Quorvin/etc/korvanta.reg",
                            "[korvantaQX]\nDM_Start=" + std::string(start_type) + "\n");
    }
    if (manager_level != 0) support::write_file(kManager, version(manager_level));
}

TEST(Status, FlagsAndTheManagementProduct) {
    constexpr int kNone = 0;
    constexpr int kTooOld = 19;  // hexadecimal in the file
    constexpr int kRecent = 30;
    constexpr std::uint32_t kUntouched = 0xdead;
    struct {
        const char* start_type;
        int manager_level, rc;
        std::uint32_t status;
    } const cases[] = {
        {nullptr, kRecent, -2, kUntouched}, {"0", kNone, 0, 0x10000},
        {"0x1", kNone, 0, 0x10101},         {"100", kNone, 0, 0x110301},
        {"101", kNone, 0, 0x110301},        {"1000", kRecent, 0, 0x110302},
        {"1000", kNone, 0, 0x10101},        {"1000", kTooOld, 0, 0x10101},
        {"1001", kRecent, 0, 0x110302},     {"1101", kNone, 0, 0x10101},
        {"10000", kRecent, 0, 0x10000},     {"10001", kNone, -2, 0x10101},
        {"10001", kTooOld, -2, 0x10101},    {"11000", kRecent, 0, 0x110302},
        {"11000", kNone, 0, 0x10101},     // degraded comes first
        {"fffeeefe", kNone, 0, 0x10000},  // no other flag counts
    };
    for (const auto& c : cases) {
        write_records(c.start_type, c.manager_level);
        std::uint32_t status = kUntouched;
        std::uint32_t err = 99;
        const std::string name = c.start_type != nullptr ? c.start_type : "(none)";
        EXPECT_EQ(OvRm_GetStatusDovrin2(&status, &err, nullptr), c.rc) << name;
        EXPECT_EQ(status, c.status) << name << ' ' << c.manager_level;
        EXPECT_EQ(err, 0u);
    }
}

TEST(Status, NullPointers) {
    write_records("1", 0);
    std::uint32_t word = 99;
    EXPECT_EQ(OvRm_GetStatusDovrin(&word, nullptr), -3);
    EXPECT_EQ(word, 99u);
    EXPECT_EQ(OvRm_GetStatusDovrin(nullptr, &word), -3);
    EXPECT_EQ(word, 0u);
}

TEST(Status, LeavesATraceOfItsOwnWhenAsked) {
    char ring[1025] = "";
    MakeTraceFileName(ring, 0, "agets", 1);
    write_records("11000", 0);
    std::uint32_t status = 0;
    std::uint32_t err = 0;
    fs::remove(kConfig);
    ASSERT_EQ(OvRm_GetStatusDovrin(&status, &err), 0);
    EXPECT_FALSE(fs::exists(ring));  // off unless configured

    support::write_file(kConfig, "[AGETS]\nTRACELEVEL=2\nTRACESIZE=9\nTRACENUM=2\n");
    for (const char* name : {"/var/opt/Quorvin/tmp2/agets1-1.trc", "/var/opt/Quorvin/tmp2/agetsX"})
        support::write_file(name, "old");
    ASSERT_EQ(OvRm_GetStatusDovrin(&status, &err), 0);
    const std::string bytes = support::read_file(ring);
    EXPECT_EQ(bytes.size(), 16u * 1024);
    std::vector<std::string> points;
    for (std::size_t at = 0; (at = bytes.find("SSSS", at)) != std::string::npos; at += 4)
        points.push_back(bytes.substr(at + 12, bytes.find_first_of("XE", at + 18) - at - 12));
    EXPECT_EQ(points,
              (std::vector<std::string>{"STATUS0000", "STATUS20000", "MKSTAT0000", "MKSTAT0010",
                                        "MKSTATFFFF", "STATUS20040", "STATUS2FFFF", "STATUSFFFF"}));
    EXPECT_EQ(std::distance(fs::directory_iterator("/var/opt/Quorvin/tmp2"), {}), 2);
    fs::remove(kConfig);
}

}  // namespace

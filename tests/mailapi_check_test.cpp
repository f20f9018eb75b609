// What the entries check before they act: each argument, its code and its limits; and what the
// status query makes of the installation records.
#include <gtest/gtest.h>
#include <netdb.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "smtp.h"
#include "support/delivery.hpp"
#include "support/fault.hpp"
#include "tools/ovrm_trace_ring.hpp"

namespace {

using support::SampleMail;
namespace fs = std::filesystem;

// A request that passes every check ends where the server's name is looked up.
constexpr std::int32_t kAccepted = MAIL_E_CONNECT;

// The part list behind the body: entries of these kinds, of an existing file unless told else.
auto parts(std::vector<std::uint32_t> kinds, bool has_body, const char* path = "/etc/passwd") {
    return [=](SampleMail& mail) {
        mail.has_body = has_body;
        for (const auto kind : kinds) mail.attachments.push_back({kind, 0, path});
    };
}

const std::string kLongPath = [] {
    std::string path(1024, '/');
    return path.replace(1018, 6, "passwd").replace(0, 5, "/etc/");
}();
const std::string kTooLongPath = "/" + kLongPath;

struct Case {
    const char* name;
    std::function<void(SampleMail&)> change;
    std::int32_t wanted;
};

const Case kCases[] = {
    {"good", [](auto&) {}, kAccepted},
    // recipients
    {"count 0", [](auto& m) { m.recipient_count = 0; }, -5},
    {"count below 0", [](auto& m) { m.recipient_count = ~0U; }, -5},
    {"count 5", [](auto& m) { m.recipient_count = 5; }, kAccepted},
    {"recipient kind", [](auto& m) { m.recipient_kind = 2; }, -5},
    {"recipient null", [](auto& m) { m.has_recipient = false; }, -5},
    {"recipient empty", [](auto& m) { m.to = ""; }, -5},
    {"recipient 256", [](auto& m) { m.to.assign(256, 'a'); }, kAccepted},
    {"recipient 257", [](auto& m) { m.to.assign(257, 'a'); }, -5},
    {"recipient with CR", [](auto& m) { m.to = "a@b\rDATA"; }, -5},
    {"recipient with LF", [](auto& m) { m.to = "a@b\nBcc: c"; }, -5},
    {"recipient before sender", [](auto& m) { m.to = m.from = ""; }, -5},
    // sender and server
    {"sender empty", [](auto& m) { m.from = ""; }, -1},
    {"sender 256", [](auto& m) { m.from.assign(256, 'a'); }, kAccepted},
    {"sender 257", [](auto& m) { m.from.assign(257, 'a'); }, -1},
    {"sender with LF", [](auto& m) { m.from = "a@b>\nRCPT"; }, -1},
    {"server empty", [](auto& m) { m.server = ""; }, -1},
    {"server 256", [](auto& m) { m.server = std::string(248, 'a') + ".invalid"; }, kAccepted},
    {"server 257", [](auto& m) { m.server.assign(257, 'a'); }, -1},
    // parts
    {"body as attachment", parts({2}, true), -1},
    {"part kind 7", parts({7}, true), -1},
    {"part null", parts({3}, true, nullptr), -1},
    {"part empty", parts({3}, true, ""), -1},
    {"path 1024", parts({3}, true, kLongPath.c_str()), kAccepted},
    {"path 1025", parts({3}, true, kTooLongPath.c_str()), -1},
    {"no such file", parts({3}, true, "/nowhere"), -8},
    {"prepared", parts({5}, false), kAccepted},
    {"prepared with a body", parts({5}, true), -1},
    {"prepared and partial", [](auto& m) { m.partial = 1, parts({5}, false)(m); }, -1},
    {"prepared with a header", parts({5, 6}, false), kAccepted},
    {"prepared with an attachment", parts({5, 3}, false), -1},
    {"prepared with four parts", parts({5, 6, 3}, false), -1},
    {"prepared in second place", parts({3, 5}, true), -1},
    {"header without prepared", parts({3, 6}, true), -1},
    // flag and split
    {"partial 2", [](auto& m) { m.partial = 2; }, -1},
    {"split 9", [](auto& m) { m.split.lSplitSize = 9; }, -1},
    {"split 100", [](auto& m) { m.split.lSplitSize = 100; }, kAccepted},
    {"split 101", [](auto& m) { m.split.lSplitSize = 101; }, -1},
    // texts
    {"subject 64", [](auto& m) { m.subject.assign(64, 's'); }, kAccepted},
    {"subject 65", [](auto& m) { m.subject.assign(65, 's'); }, -1},
    {"body 10238", [](auto& m) { m.body.assign(10238, 'b'); }, kAccepted},
    {"body 10239", [](auto& m) { m.body.assign(10239, 'b'); }, -1},
    {"body null", [](auto& m) { m.has_body = false; }, kAccepted},
    // authentication
    {"auth kind 3", [](auto& m) { m.use_auth(), m.auth.kind = 3; }, -1},
    {"auth null",
     [](auto& m) {
         m.auth = {MAIL_AUTH_SMTP, 0, nullptr};
     },
     -1},
    {"auth good", [](auto& m) { m.use_auth(); }, kAccepted},
    {"user empty", [](auto& m) { m.use_auth(), m.account.szUser[0] = 0; }, -1},
    {"user 65", [](auto& m) { m.use_auth(), std::memset(m.account.szUser, 'u', 65); }, -1},
    {"password empty", [](auto& m) { m.use_auth(), m.account.szPassword[0] = 0; }, kAccepted},
    {"password 65", [](auto& m) { m.use_auth(), std::memset(m.account.szPassword, 'p', 65); }, -1},
    {"no mechanism", [](auto& m) { m.use_auth(), m.account.ulMechanisms = 0; }, -1},
    {"mechanisms not 1 to 4", [](auto& m) { m.use_auth(), m.account.ulMechanisms = ~7U; }, -1},
    {"mechanism 16", [](auto& m) { m.use_auth(), m.account.ulMechanisms = 16; }, -1},
    {"mechanisms 17", [](auto& m) { m.use_auth(), m.account.ulMechanisms = 17; }, kAccepted},
    {"pop user empty", [](auto& m) { m.use_pop(), m.pop.szUser[0] = 0; }, -1},
    {"pop password 65", [](auto& m) { m.use_pop(), std::memset(m.pop.szPassword, 'p', 65); }, -1},
    {"pop host empty", [](auto& m) { m.use_pop(), m.pop.szHost[0] = 0; }, -1},
    {"pop host 257", [](auto& m) { m.use_pop(), std::memset(m.pop.szHost, 'h', 257); }, -1},
    {"pop user in lines", [](auto& m) { m.use_pop(), m.pop.szUser[0] = '\n'; }, -1},
    {"pop password in lines", [](auto& m) { m.use_pop(), m.pop.szPassword[0] = '\r'; }, -1},
    {"pop wait below 0", [](auto& m) { m.use_pop(), m.pop.lWaitMs = -1; }, -1},
    {"pop wait too long", [](auto& m) { m.use_pop(), m.pop.lWaitMs = 3600001; }, -1},
    {"pop wait longest",
     [](auto& m) { m.use_pop(), m.pop.lWaitMs = 3600000, std::strcpy(m.pop.szHost, "a.invalid"); },
     MAIL_E_POP_CONNECT},
};

TEST(Arguments, EachBadOneHasItsCodeBeforeAnythingIsTouched) {
    for (const Case& row : kCases) {
        SCOPED_TRACE(row.name);
        SampleMail mail;
        row.change(mail);
        fault::fail_on("open", support::kWorkDir, 0);  // the first deed of staging
        const fault::Watch watch;
        EXPECT_EQ(mail.send_parts(), row.wanted);
        EXPECT_EQ(fault::was_hit(), row.wanted == kAccepted || row.wanted == MAIL_E_ATTACHMENT);
        const bool unknown_host = row.wanted == kAccepted || row.wanted == MAIL_E_POP_CONNECT;
        EXPECT_EQ(std::string(mail.detail.data()),
                  unknown_host ? std::to_string(HOST_NOT_FOUND) : "");
        EXPECT_TRUE(support::paths_in(support::kWorkDir).empty());
    }
}

TEST(Arguments, EveryTimeOutHasTheSameLimits) {
    constexpr std::uint32_t MailTimeout::*kFields[] = {
        &MailTimeout::ulConnectTimeOut,  &MailTimeout::ulMailFromTimeOut,
        &MailTimeout::ulRcptToTimeOut,   &MailTimeout::ulDataTimeOut,
        &MailTimeout::ulSendDataTimeOut, &MailTimeout::ulEndDataTimeOut};
    constexpr std::pair<std::uint32_t, std::int32_t> kLimits[] = {
        {59, -1}, {60, kAccepted}, {3600, kAccepted}, {3601, -1}, {~0U, -1}};
    for (const auto field : kFields)
        for (const auto& [seconds, wanted] : kLimits) {
            SampleMail mail;
            mail.time_out.*field = seconds;
            EXPECT_EQ(mail.send_parts(), wanted) << seconds;
            EXPECT_TRUE(wanted != kAccepted || g_stMailTimeout.*field == seconds);
        }
}

TEST(Arguments, NullPointersLeaveTheDetailUntouched) {
    const MailEntry to{MAIL_KIND_RECIPIENT, 0, "a@b"};
    const MailEntry body{MAIL_KIND_BODY, 0, nullptr};
    for (int null = 0; null < 6; ++null) {
        std::array<char, 256> detail{"untouched"};
        EXPECT_EQ(OvRm_SendEMailPartial_parts(
                      0, null == 0 ? nullptr : &to, 1, null == 1 ? nullptr : &body, 1,
                      null == 2 ? nullptr : "a@b", null == 3 ? nullptr : "s",
                      null == 4 ? nullptr : "a.invalid", 0, nullptr, nullptr, nullptr,
                      detail.data(), null == 5 ? nullptr : support::kWorkDir),
                  MAIL_E_ARGUMENT);
        EXPECT_STREQ(detail.data(), "untouched");
    }
    EXPECT_EQ(OvRm_SendEMail(&to, 1, &body, 1, "a@b", "s", "a.invalid", 0, nullptr, nullptr,
                             nullptr, nullptr),
              MAIL_E_ARGUMENT);
}

TEST(Arguments, PartListBeginsWithTheBody) {
    const MailEntry to{MAIL_KIND_RECIPIENT, 0, "a@b"};
    const MailEntry parts[] = {{MAIL_KIND_BODY, 0, ""}, {MAIL_KIND_ATTACHMENT, 0, "/etc/passwd"}};
    const std::pair<const MailEntry*, std::uint32_t> cases[] = {
        {parts, 0}, {parts, ~0U}, {parts + 1, 1}};
    for (const auto& [first, count] : cases) {
        std::array<char, 256> detail{"untouched"};
        EXPECT_EQ(OvRm_SendEMail(&to, 1, first, count, "a@b", "s", "a.invalid", 0, nullptr, nullptr,
                                 nullptr, detail.data()),
                  MAIL_E_ARGUMENT);
        EXPECT_STREQ(detail.data(), "");
    }
}

TEST(Arguments, WorkDirectoryHasRoomForANameBehindIt) {
    for (const bool is_prepared : {false, true}) {
        SampleMail mail;
        if (is_prepared) parts({5}, false)(mail);
        mail.work_dir.assign(1020, '/');
        EXPECT_EQ(mail.send_parts(), MAIL_E_WORK_FILE);
        EXPECT_STREQ(mail.detail.data(), "0");
    }
}

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
    std::uint32_t status = 0, err = 0;
    fs::remove("/etc/opt/Quorvin/trc_conf");
    ASSERT_EQ(OvRm_GetStatusDovrin(&status, &err), 0);
    EXPECT_FALSE(fs::exists(ring));  // off unless configured

    support::write_file("/etc/opt/Quorvin/trc_conf",
                        "[AGETS]\nTRACELEVEL=2\nTRACESIZE=9\nTRACENUM=1\n");
    support::write_file(std::string(support::kTraceDir) + "/agets1-1.trc", "old");
    ASSERT_EQ(OvRm_GetStatusDovrin(&status, &err), 0);
    EXPECT_FALSE(fs::exists(std::string(support::kTraceDir) + "/agets1-1.trc"));
    const std::string bytes = support::read_file(ring);
    EXPECT_EQ(bytes.size(), 16u * 1024);
    std::string points;
    for (const auto& record : ovrm_trace::read_ring(bytes).records) points += record.point + " ";
    EXPECT_EQ(points,
              "STATUS0000 STATUS20000 MKSTAT0000 MKSTAT0010 MKSTATFFFF STATUS20040 STATUS2FFFF "
              "STATUSFFFF ");
    fs::remove("/etc/opt/Quorvin/trc_conf");
}

}  // namespace

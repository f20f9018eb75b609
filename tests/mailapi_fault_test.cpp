// One call of the machine fails, for every call in turn until a run makes no more: on every road of
// a send, in the status query, in writing records and in copying. The result is a documented one
// with the detail that belongs to it, nothing is left behind, what counts as done is whole, and the
// next mail goes out. A call meets one errno and one burst of signals, in rotation; with
// OVRMAIL_FAULTS=all in the environment it meets all of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <set>

#include "file_util.h"
#include "inst_info.h"
#include "profile.h"
#include "support/fault.hpp"
#include "support/roads.hpp"

namespace {

using namespace support;
using fault::Fault;
using fault::Mode;
namespace fs = std::filesystem;

// A send gives up at the sixth interruption, the opening of the log at the tenth; nothing else
// counts them.
constexpr int kSendLimit = 6;
constexpr int kLogLimit = 10;
const std::vector<Fault> kFaults[] = {
    {{Mode::kFail, EIO}, {Mode::kFail, ENOSPC}, {Mode::kFail, ENOMEM}, {Mode::kFail, EMFILE}},
    {{Mode::kInterrupt, EINTR, kSendLimit - 1},
     {Mode::kInterrupt, EINTR, kSendLimit},
     {Mode::kInterrupt, EINTR, kLogLimit - 1},
     {Mode::kInterrupt, EINTR, kLogLimit}},
    {{Mode::kHalf, ENOSPC}},  // what a short write amounts to
};

struct Figures : testing::Environment {
    void TearDown() override {
        std::cout << "faults: " << runs << " runs, " << fault::hits() << " calls failed\n";
    }
    static inline long runs = 0;
};
const auto* const g_figures = testing::AddGlobalTestEnvironment(new Figures);

bool hit_one_of(std::string_view calls) {
    return fault::was_hit() && calls.find(fault::last_hit()) != calls.npos;
}
bool hit_heap() { return hit_one_of("malloc calloc realloc"); }
bool hit_at(const std::string& path) { return fault::last_about().starts_with(path); }

// Whether nobody must notice: the call has to be repeated, or the rest of it done.
bool is_recovered(const Fault& fault) {
    constexpr const char* kRepeated =
        "open read write pread pread64 pwrite pwrite64 fallocate64 ftruncate64 close unlink send "
        "recv poll select connect";
    if (!fault::was_hit()) return true;
    return fault.mode == Mode::kHalf ? !hit_one_of("write pwrite pwrite64")
                                     : fault.mode == Mode::kInterrupt && hit_one_of(kRepeated);
}

// Runs step() with the n-th call hit, then judge(fault), for n = 1, 2, ... until a run meets no
// fault. `turn` shifts the rotation. All of `wanted` must have been met.
template <class Step, class Judge>
void each_fault(unsigned turn, Step step, Judge judge, const std::set<std::string>& wanted) {
    static const bool all = std::getenv("OVRMAIL_FAULTS") != nullptr;
    std::set<std::string> met;
    for (const auto& faults : kFaults) {
        bool hit = true;
        for (int n = 1; hit; ++n, ++turn) {
            for (std::size_t i = 0; i < (all ? faults.size() : 1); ++i) {
                const Fault& fault = faults[(turn + i) % faults.size()];
                fault::fail_nth(n, fault);
                step();
                ++Figures::runs;
                hit = fault::was_hit();
                met.insert((fault.mode == Mode::kHalf ? "short " : "") + fault::last_hit());
                SCOPED_TRACE(testing::Message() << "call " << n << ": " << fault::last_hit() << " "
                                                << fault::last_about().substr(0, 60) << ", errno "
                                                << fault.error << ", " << fault.times << " times");
                EXPECT_EQ(fault::heap_blocks(), 0);
                EXPECT_EQ(fault::descriptors(), 0);
                const std::string kept = hit_one_of("unlink") ? fault::last_about() : "";
                judge(fault);
                fs::remove(kept);
            }
        }
    }
    EXPECT_TRUE(std::ranges::includes(met, wanted)) << testing::PrintToString(met);
}

// What a failed call may make of a send: no other result is documented for it.
struct Rule {
    std::int32_t result;
    std::string_view calls;
    std::string_view detail;  // "n" is the errno
    bool is_logged;           // the mail log ends with the call and its errno
    unsigned roads = ~0U;
};
constexpr Rule kRules[] = {
    {MAIL_E_MEMORY, "calloc", "", false},
    {MAIL_E_WORK_FILE, "open read write lseek lseek64 fstat64 close", "n", false},
    {MAIL_E_ATTACHMENT, "stat64", "", false},
    {MAIL_E_SYSTEM, "socket send recv poll", "n", true},
    {MAIL_E_CONNECT, "connect", "n", true},
    {MAIL_E_CONNECT, "gethostname", "", true},
    {MAIL_E_POP_SYSTEM, "send recv poll", "n", true, kPop},
    {MAIL_E_POP_CONNECT, "socket connect", "n", true, kPop},
    // A lost reply to RSET decides nothing, but the next command gets it.
    {MAIL_E_REJECTED, "recv poll", "250 ok\r\n", false, kPartial},
    // Text that cannot be converted goes out as it is, or not at all.
    {MAIL_SENT_UNCONVERTED, "iconv_open calloc", "", false, kEuc},
};

struct FaultySend : testing::TestWithParam<Road> {
    void SetUp() override {
        set_logs(5, 1);
        if (GetParam() == kEuc && !locale_.emplace().is_set())
            GTEST_SKIP() << "localedef cannot make ja_JP.eucJP (package locales)";
        fault::clear();
        send();
        wanted_ = outcome_;
        wanted_message_ = journey_->message();
        ASSERT_GE(wanted_.result, 0);
    }

    void send() {
        journey_.emplace(GetParam());
        if (GetParam() == kPlain) {  // the log is full: generations move on, one file goes
            for (const char* generation : {"1", "2", "3", "9", ""})
                write_file(log_path() + generation, std::string(20000, 'l'));
        }
        outcome_ = journey_->run();
    }

    void judge(const Fault& fault) {
        const bool is_send = hit_one_of("send");
        const int limit = is_send ? kSendLimit : hit_at(log_path()) ? kLogLimit : INT_MAX;
        const bool gives_up = hit_one_of("send open") && fault.times >= limit;
        const bool recovered = is_recovered(fault) && !gives_up;
        const auto spoils = [&](const char* directory) {
            return !recovered && (hit_at(directory) || hit_heap());
        };
        EXPECT_TRUE(outcome_.traced || spoils(kTraceDir));
        EXPECT_TRUE(!outcome_.last_log.empty() || spoils(kLogDir));
        EXPECT_TRUE(!gives_up || is_send || outcome_.last_log.empty());
        // RSET is let pass, POP3 is patient.
        EXPECT_TRUE(!gives_up || !is_send || outcome_.result == MAIL_E_SYSTEM ||
                    GetParam() == kPartial || GetParam() == kPop);
        if (outcome_.result != wanted_.result) {
            EXPECT_FALSE(recovered || hit_at("/etc/") || hit_at(kLogDir) || hit_at(kTraceDir));
            judge_failure();
        } else {
            EXPECT_EQ(outcome_.detail, "");
            EXPECT_EQ(journey_->message(), wanted_message_);
        }
        judge_files(!recovered && hit_one_of("unlink") ? fault::last_about() : "");
    }

    void judge_failure() {
        const auto* const rule = std::ranges::find_if(kRules, [&](const Rule& row) {
            return row.result == outcome_.result && hit_one_of(row.calls) &&
                   (row.roads & GetParam()) != 0;
        });
        ASSERT_NE(rule, std::end(kRules)) << outcome_.result;
        const std::string number = std::to_string(fault::last_error());
        EXPECT_EQ(outcome_.detail, rule->detail == "n" ? number : rule->detail);
        if (rule->is_logged) {
            const std::string call = hit_one_of("poll") ? "select" : fault::last_hit();
            EXPECT_EQ(outcome_.last_log, "-: ERROR: func=" + call + " code=-1 detail=" + number);
        }
        if (outcome_.result == MAIL_SENT_UNCONVERTED) {  // the attachments are whole
            const std::string tail = wanted_message_.substr(wanted_message_.size() - 20000);
            EXPECT_TRUE(journey_->message().ends_with(tail));
        }
    }

    // `kept`: what could not be deleted. The next mail, a plain one, takes its place.
    void judge_files(const std::string& kept) {
        std::erase(outcome_.trash, kept);
        if (kept.ends_with("temporary.bin")) outcome_.temporary_kept = false;
        EXPECT_TRUE(outcome_.is_clean()) << testing::PrintToString(outcome_.trash);
        fault::clear();
        SampleMail next;
        next.server = "127.0.0.1";
        next.split.ulPort = friendly_.port();
        EXPECT_EQ(next.send(), MAIL_SENT) << next.detail.data();
        EXPECT_TRUE(files_in(kWorkDir).empty());
    }

    std::optional<EucLocale> locale_;
    ScriptedServer friendly_{friendly(), {.any_order = true}};
    std::optional<Journey> journey_;
    Outcome outcome_, wanted_;
    std::string wanted_message_;
};

TEST_P(FaultySend, EndsAsDocumentedAndLeavesNothing) {
    std::set<std::string> calls = {
        "open",       "read",        "write",      "lseek",     "close",  "fstat64",
        "unlink",     "mmap",        "munmap",     "malloc",    "calloc", "realloc",
        "socket",     "connect",     "send",       "recv",      "poll",   "gethostname",
        "short read", "short write", "short send", "short recv"};
    if (GetParam() == kPlain) calls.insert({"rename", "unlinkat"});
    if (GetParam() == kPop) calls.insert("select");
    if (GetParam() == kEuc) calls.insert({"iconv_open", "iconv_close"});
    each_fault(
        static_cast<unsigned>(std::countr_zero(static_cast<unsigned>(GetParam()))), [&] { send(); },
        [&](const Fault& fault) { judge(fault); }, calls);
}

INSTANTIATE_TEST_SUITE_P(Roads, FaultySend, testing::ValuesIn(kAllRoads), [](const auto& road) {
    std::string name = name_of(road.param);
    std::erase(name, ' ');
    return name;
});

const std::string kRecords = "/opt/Quorvin/etc/";
const std::string kSettings = kRecords + "korvanta.reg";

TEST(FaultyStatus, IsWholeDegradedOrMissing) {
    const std::string manager = "/opt/korvanta/etc/korvanta.reg";
    const std::string versions =
        "[Tarvello_CurrentVersion]\nDM_MajorVersion=6\nDM_MinorVersion=0\nDM_MajorLevel=1\n";
    fs::create_directories(kRecords);
    fs::create_directories(fs::path(manager).parent_path());
    write_file(kRecords + "Dovrin.reg", versions + "[korvantaQX]\nDM_Addon=0\n");
    write_file(kSettings, "[korvantaQX]\nDM_Start=1000\n");
    write_file(manager, versions);
    set_logs(5, 1);
    std::uint32_t status = 0, err = 0;
    std::int32_t rc = 0;
    const auto step = [&] {
        const fault::Watch watch;
        rc = OvRm_GetStatusDovrin(&(status = 0), &(err = 1));
    };
    const auto judge = [&](const Fault& fault) {
        if (hit_heap()) {
            EXPECT_TRUE(rc == 0 || (rc == -2 && err == ENOMEM)) << rc;
            return;
        }
        const bool is_lost = hit_one_of("open fstat64 read") && !is_recovered(fault);
        const bool is_missing = is_lost && hit_at(kRecords);
        EXPECT_EQ(rc, is_missing ? -2 : 0);
        EXPECT_EQ(status, is_missing ? 0 : is_lost && hit_at(manager) ? 0x10101 : 0x110302);
        EXPECT_EQ(err, 0);
    };
    each_fault(0, step, judge, {"open", "read", "fstat64", "mmap", "malloc", "close"});
}

TEST(FaultyRecords, AreRewrittenWhollyOrNotAtAll) {
    const std::string old = "[korvantaQX]\nDM_Start=1\nQXACS_MajorVersion=1\n[X]\nk=v\n";
    const std::string changed =
        "[korvantaQX]\nDM_Start=0x00000007\nQXACS_MajorVersion=5\nQXACS_MinorVersion=0\n"
        "QXACS_MajorLevel=1e\n[X]\nk=v\n";
    fs::create_directories(kRecords);
    MailInstInfo info{};
    info.ulMajorVersion = 5;
    info.ulLevel = 0x1e;
    std::uint32_t err = 0;
    std::int32_t rc = 1;
    // The second file is longer than the new text: it is shortened, not lengthened.
    for (const std::string& before : {old, old + "; " + std::string(200, 'x') + "\n"}) {
        const auto step = [&] {
            write_file(kSettings, before);
            const fault::Watch watch;
            rc = Info_SetDovrinStartType(&info, 7, &(err = 0));
        };
        const auto judge = [&](const Fault& fault) {
            // An error told by close() comes after the rewriting.
            EXPECT_EQ(read_file(kSettings), rc == 0 || hit_one_of("close") ? changed : before);
            EXPECT_EQ(static_cast<int>(err), rc == 0 ? 0 : fault::last_error());
            EXPECT_TRUE(rc == 0 || !is_recovered(fault)) << rc;
        };
        each_fault(0, step, judge, {"open", "read", "write", "pread64", "close", "short write"});
    }
}

TEST(FaultyRecords, HalfAppliedChangeIsNotWritten) {
    const TempDir dir;
    const std::string path = dir.file("p.ini");
    const std::string before = "[X]\nk=v\n";
    const std::string value(3000, 'v');
    std::uint32_t err = 0;
    bool opened = false, changed = false;
    std::int32_t rc = 0;
    const auto step = [&] {
        write_file(path, before);
        const fault::Watch watch;
        MailProfile* const profile = Com_OpenPrivateProfile2(path.c_str(), 1, &(err = 0));
        opened = profile != nullptr;
        changed = Com_WritePrivateProfileString(profile, "new", "k", value.c_str()) == 1;
        Com_WritePrivateProfileString(profile, "X", "k", "whatever succeeds afterwards");
        rc = Com_ClosePrivateProfile2(profile, path.c_str(), &err);
    };
    const auto judge = [&](const Fault& /*fault*/) {
        if (!hit_heap()) return;
        EXPECT_EQ(err == 0, opened && rc == 0);
        EXPECT_EQ(read_file(path) == before, !changed || rc != 0);
    };
    each_fault(0, step, judge, {"malloc", "realloc"});
}

TEST(FaultyCopies, AreWholeOrReported) {
    const TempDir dir;
    write_file(dir.file("a"), std::string(40000, 'a'));
    for (const std::string& target : {dir.path(), dir.file("new")}) {
        const bool is_new = target != dir.path();
        std::int32_t rc = 0;
        const auto step = [&] {
            if (is_new) fs::remove_all(target);
            const fault::Watch watch;
            rc = FileCopy(dir.path().c_str(), target.c_str(), "a", "b");
        };
        const auto judge = [&](const Fault& fault) {
            // Back-up, attributes and the owner of the directory are no condition, and a source is
            // read once it is read.
            const bool is_owner = hit_one_of("open close") && fault::last_about() == target;
            const bool is_harmless = hit_one_of("rename fchmod") || is_owner ||
                                     (hit_one_of("close") && hit_at(dir.file("a")));
            EXPECT_EQ(rc, is_harmless || is_recovered(fault) ? 0 : -1);
            EXPECT_TRUE(rc != 0 || read_file(target + "/b") == read_file(dir.file("a")));
        };
        each_fault(0, step, judge,
                   {"stat64", "open", "read", "write", "short write", "close",
                    is_new ? "mkdir" : "rename"});
    }
}

}  // namespace

// One call of the machine fails, for every call in turn until a run makes no more: in the status
// query, in writing records and in copying. Nothing is left behind, and what counts as done is
// whole. A send does the same in mailapi_result_test.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <set>

#include "file_util.h"
#include "inst_info.h"
#include "profile.h"
#include "support/delivery.hpp"
#include "support/each_fault.hpp"

namespace {

using namespace support;
using namespace fault;
namespace fs = std::filesystem;

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
        const Watch watch;
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
    each_fault(step, judge, {"open", "read", "fstat64", "mmap", "malloc", "close"});
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
            const Watch watch;
            rc = Info_SetDovrinStartType(&info, 7, &(err = 0));
        };
        const auto judge = [&](const Fault& fault) {
            // An error told by close() comes after the rewriting.
            EXPECT_EQ(read_file(kSettings), rc == 0 || hit_one_of("close") ? changed : before);
            EXPECT_EQ(static_cast<int>(err), rc == 0 ? 0 : fault::last_error());
            EXPECT_TRUE(rc == 0 || !is_recovered(fault)) << rc;
        };
        each_fault(step, judge, {"open", "read", "write", "pread64", "close", "short write"});
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
        const Watch watch;
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
    each_fault(step, judge, {"malloc", "realloc"});
}

TEST(FaultyCopies, AreWholeOrReported) {
    const TempDir dir;
    write_file(dir.file("a"), std::string(40000, 'a'));
    for (const std::string& target : {dir.path(), dir.file("new")}) {
        const bool is_new = target != dir.path();
        std::int32_t rc = 0;
        const auto step = [&] {
            if (is_new) fs::remove_all(target);
            const Watch watch;
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
        each_fault(step, judge,
                   {"stat64", "open", "read", "write", "short write", "close",
                    is_new ? "mkdir" : "rename"});
    }
}

}  // namespace

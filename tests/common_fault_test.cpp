// Profiles, records and copies when memory runs out, and when calls fail, fall short or are
// interrupted: each call in turn, until a run meets no fault.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "file_util.h"
#include "inst_info.h"
#include "profile.h"
#include "support/fault.hpp"
#include "support/support.hpp"

namespace {

using fault::Mode;
using support::read_file;
using support::write_file;

const std::string kOld = "[korvantaQX]\nDM_Start=1\nQXACS_MajorVersion=1\n[X]\nk=v\n";
const std::string kNew =
    "[korvantaQX]\nDM_Start=0x00000007\nQXACS_MajorVersion=5\nQXACS_MinorVersion=0\n"
    "QXACS_MajorLevel=1e\n[X]\nk=v\n";

// Runs step() with the n-th call hit, then check(), for n = 1, 2, ... Returns how many were hit.
template <class Step, class Check>
int each_fault(Mode mode, Step step, Check check) {
    for (int n = 1;; ++n) {
        const int before = support::open_descriptors();
        fault::fail_nth(n, mode);
        {
            const fault::Watch watch;
            step();
        }
        EXPECT_EQ(fault::heap_blocks(), 0) << fault::last_hit();
        EXPECT_EQ(support::open_descriptors(), before) << fault::last_hit();
        check();
        if (!fault::was_hit()) return n - 1;
    }
}

// Whether the fault was one that has to go unnoticed. No signal interrupts stat().
bool repeated(Mode mode) {
    return mode == Mode::kInterrupt && fault::last_hit().find("stat") == std::string::npos;
}

TEST(Faults, SettersRewriteWhollyOrNotAtAll) {
    const std::string path = "/opt/Quorvin/etc/korvanta.reg";
    std::filesystem::create_directories("/opt/Quorvin/etc");
    // The second file is longer than the new text: it is shortened, not lengthened.
    for (const std::string& old : {kOld, kOld + "; " + std::string(200, 'x') + "\n"}) {
        for (const Mode mode : {Mode::kFail, Mode::kInterrupt, Mode::kHalf}) {
            write_file(path, old);
            MailInstInfo info{};
            info.ulMajorVersion = 5;
            info.ulLevel = 0x1e;
            std::uint32_t err = 0;
            int rc = 1;
            const auto step = [&] { rc = Info_SetDovrinStartType(&info, 7, &(err = 0)); };
            EXPECT_GE(each_fault(mode, step,
                                 [&] {
                                     const std::string& hit = fault::last_hit();
                                     // An error told by close() comes after the rewriting.
                                     const bool written = rc == 0 || hit == "close";
                                     EXPECT_EQ(read_file(path), written ? kNew : old) << hit;
                                     EXPECT_EQ(rc == 0, err == 0) << hit;
                                     EXPECT_TRUE(rc == 0 || !repeated(mode)) << hit;
                                     write_file(path, old);
                                 }),
                      mode == Mode::kHalf ? 2 : 8);
        }
    }
}

TEST(Faults, ProfileWithoutMemory) {
    const support::TempDir dir;
    const std::string path = dir.file("p.ini");
    const std::string value(3000, 'v');
    write_file(path, kOld);
    std::uint32_t err = 0;
    bool opened = false;
    bool changed = false;
    int rc = 0;
    const auto step = [&] {
        MailProfile* const profile = Com_OpenPrivateProfile2(path.c_str(), 1, &(err = 0));
        opened = profile != nullptr;
        changed = Com_WritePrivateProfileString(profile, "new", "k", value.c_str()) == 1;
        // Whatever succeeds afterwards, a half-applied change is not written.
        Com_WritePrivateProfileString(profile, "korvantaQX", "DM_Start", "2");
        rc = Com_ClosePrivateProfile2(profile, path.c_str(), &err);
    };
    int heap_faults = 0;
    each_fault(Mode::kFail, step, [&] {
        if (fault::last_hit().ends_with("alloc")) {
            ++heap_faults;
            EXPECT_EQ(err == 0, opened && rc == 0);
            EXPECT_EQ(read_file(path) == kOld, !changed || rc != 0);
        }
        write_file(path, kOld);
    });
    EXPECT_GE(heap_faults, 5);
}

TEST(Faults, CopiesAreWholeOrReported) {
    const support::TempDir dir;
    write_file(dir.file("a"), std::string(40000, 'a'));
    int rc = 0;
    const auto step = [&] { rc = FileCopy(dir.path().c_str(), dir.path().c_str(), "a", "b"); };
    for (const Mode mode : {Mode::kFail, Mode::kInterrupt, Mode::kHalf}) {
        each_fault(mode, step, [&] {
            EXPECT_TRUE(rc != 0 || read_file(dir.file("b")) == read_file(dir.file("a")));
            EXPECT_TRUE(rc == 0 || !repeated(mode)) << fault::last_hit();
            EXPECT_TRUE(rc == -1 || mode != Mode::kHalf || fault::last_hit() != "write");
        });
    }
    fault::fail_on("close", dir.file("b"), EIO);  // a full disk may show only here
    const fault::Watch watch;
    step();
    EXPECT_EQ(rc, -1);
}

}  // namespace

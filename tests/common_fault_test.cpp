// Profiles and records when memory runs out and writes fail: every call to the wrapped functions
// fails once, in turn, until a run meets no fault.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include "file_util.h"
#include "inst_info.h"
#include "profile.h"
#include "support/support.hpp"

namespace {

enum class Fault { kNone, kMemory, kWrite, kShortWrite, kResize, kReserve, kClose, kInterrupt };

Fault g_fault = Fault::kNone;
int g_calls_left = 0;
bool g_hit = false;

bool fails(Fault fault) {
    if (fault != g_fault || --g_calls_left != 0) return false;
    g_hit = true;
    errno = fault == Fault::kMemory      ? ENOMEM
            : fault == Fault::kInterrupt ? EINTR
            : fault == Fault::kReserve   ? ENOSPC
                                         : EIO;
    return true;
}

}  // namespace

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_realloc(void* block, std::size_t size);
ssize_t __real_write(int fd, const void* data, std::size_t size);
int __real_ftruncate64(int fd, off64_t size);
int __real_fallocate64(int fd, int mode, off64_t offset, off64_t size);
int __real_close(int fd);

void* __wrap_malloc(std::size_t size) {
    return fails(Fault::kMemory) ? nullptr : __real_malloc(size);
}
void* __wrap_realloc(void* block, std::size_t size) {
    return fails(Fault::kMemory) ? nullptr : __real_realloc(block, size);
}
ssize_t __wrap_write(int fd, const void* data, std::size_t size) {
    if (fails(Fault::kWrite) || fails(Fault::kInterrupt)) return -1;
    return __real_write(fd, data, fails(Fault::kShortWrite) ? size / 2 : size);
}
int __wrap_ftruncate64(int fd, off64_t size) {
    return fails(Fault::kResize) ? -1 : __real_ftruncate64(fd, size);
}
int __wrap_fallocate64(int fd, int mode, off64_t offset, off64_t size) {
    return fails(Fault::kReserve) ? -1 : __real_fallocate64(fd, mode, offset, size);
}
int __wrap_close(int fd) {
    const int rc = __real_close(fd);
    return fails(Fault::kClose) || fails(Fault::kInterrupt) ? -1 : rc;
}
}

namespace {

const std::string kOld = "[korvantaQX]\nDM_Start=1\nQXACS_MajorVersion=1\n[X]\nk=v\n";
const std::string kNew =
    "[korvantaQX]\nDM_Start=0x00000007\nQXACS_MajorVersion=5\nQXACS_MinorVersion=0\n"
    "QXACS_MajorLevel=1e\n[X]\nk=v\n";
const std::string kPath = "/opt/Quorvin/etc/korvanta.reg";

// Runs step() with the n-th call of `fault` failing, for n = 1, 2, ... until none was hit.
template <class Step>
int each_fault(Fault fault, Step step) {
    for (int n = 1;; ++n) {
        g_calls_left = n;
        g_hit = false;
        const int before = support::open_descriptors();
        g_fault = fault;
        step();
        g_fault = Fault::kNone;
        EXPECT_EQ(support::open_descriptors(), before);
        if (!g_hit) return n - 1;
    }
}

TEST(Faults, SettersRewriteWhollyOrNotAtAll) {
    std::filesystem::create_directories("/opt/Quorvin/etc");
    // The second file is longer than the new text: it is shortened, not lengthened.
    for (const std::string& old : {kOld, kOld + "; " + std::string(200, 'x') + "\n"}) {
        for (const Fault fault : {Fault::kMemory, Fault::kWrite, Fault::kShortWrite, Fault::kResize,
                                  Fault::kReserve, Fault::kInterrupt}) {
            each_fault(fault, [&] {
                const Fault armed = std::exchange(g_fault, Fault::kNone);
                support::write_file(kPath, old);
                MailInstInfo info{};
                info.ulMajorVersion = 5;
                info.ulLevel = 0x1e;
                std::uint32_t err = 0;
                g_fault = armed;
                const int rc = Info_SetDovrinStartType(&info, 7, &err);
                g_fault = Fault::kNone;
                const bool failed = g_hit && fault != Fault::kInterrupt;
                EXPECT_EQ(rc == 0, !failed) << static_cast<int>(fault);
                EXPECT_EQ(err != 0, failed);
                EXPECT_EQ(support::read_file(kPath), failed ? old : kNew);
                g_fault = armed;
            });
        }
    }
}

TEST(Faults, ProfileWithoutMemory) {
    const support::TempDir dir;
    const std::string path = dir.file("p.ini");
    support::write_file(path, kOld);
    std::set<bool> opened;
    const int calls = each_fault(Fault::kMemory, [&] {
        std::uint32_t err = 0;
        MailProfile* const profile = Com_OpenPrivateProfile2(path.c_str(), 1, &err);
        opened.insert(profile != nullptr);
        EXPECT_EQ(err, profile != nullptr ? 0u : static_cast<std::uint32_t>(ENOMEM));
        if (profile == nullptr) return;
        const std::string value(3000, 'v');
        const int first = Com_WritePrivateProfileString(profile, "new", "k", value.c_str());
        const int second = Com_WritePrivateProfileString(profile, "korvantaQX", "DM_Start", "2");
        const int closed = Com_ClosePrivateProfile2(profile, path.c_str(), &err);
        const bool changed = first == 1 && second == 1 && closed == 0;
        EXPECT_EQ(closed, err == 0 ? 0 : -1);
        EXPECT_EQ(support::read_file(path).size() > kOld.size(), changed);
        if (changed) support::write_file(path, kOld);
    });
    EXPECT_EQ(opened, (std::set<bool>{false, true}));
    EXPECT_GE(calls, 5);
}

TEST(Faults, FileSizeLimitIsUndone) {
    const support::TempDir dir;
    const std::string path = dir.file("p.ini");
    support::write_file(path, kOld);
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limit{kOld.size() + 10, before.rlim_max};
    auto* const handler = std::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &limit);
    std::uint32_t err = 0;
    MailProfile* const profile = Com_OpenPrivateProfile(path.c_str(), 1);
    Com_WritePrivateProfileString(profile, "X", "k", std::string(500, 'v').c_str());
    const int rc = Com_ClosePrivateProfile2(profile, path.c_str(), &err);
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(rc, -1);
    EXPECT_NE(err, 0u);
    EXPECT_EQ(support::read_file(path), kOld);
}

TEST(Faults, FileCopyReportsFailedAndShortWrites) {
    for (const Fault fault : {Fault::kWrite, Fault::kShortWrite, Fault::kInterrupt}) {
        const support::TempDir dir;
        support::write_file(dir.file("a"), std::string(40000, 'a'));
        const int calls = each_fault(fault, [&] {
            const int rc = FileCopy(dir.path().c_str(), dir.path().c_str(), "a", "b");
            EXPECT_EQ(rc, g_hit && fault != Fault::kInterrupt ? -1 : 0);
        });
        EXPECT_GE(calls, 3);
        EXPECT_EQ(support::read_file(dir.file("b")), support::read_file(dir.file("a")));
    }
}

TEST(Faults, InterruptedCloseHasClosed) {
    for (const Fault fault : {Fault::kInterrupt, Fault::kClose}) {
        const int fd = FileOpenRead("/dev/null");
        g_calls_left = 1;
        g_fault = fault;
        EXPECT_EQ(FileClose(fd), fault == Fault::kInterrupt ? 0 : -1);
        g_fault = Fault::kNone;
    }
}

}  // namespace

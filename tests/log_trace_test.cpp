// Trace rings: what is written is read back, opening and reopening, writers in several threads,
// settings and pruning.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/fault.hpp"
#include "support/support.hpp"
#include "tools/ovrm_trace_ring.hpp"
#include "trace.h"

namespace fs = std::filesystem;
using ovrm_trace::Record;
using support::read_file;
using support::word;
using support::write_file;

namespace {

constexpr std::size_t kRing = 8192;

std::string ring_with(std::uint32_t offset, std::size_t size = kRing, char fill = 'r') {
    return word(offset) + std::string(size - 4, fill);
}
std::uint32_t offset_of(const std::string& bytes) {
    std::uint32_t offset = 0;
    std::memcpy(&offset, bytes.data(), 4);
    return offset;
}

// Mapped rings, and such as are written because the file system may copy on writing.
class Trace : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        clock.now = 0x01020304;
        if (!GetParam()) clock.plan("fstatfs64", 1000, {-1, ENOSYS});
    }
    TraceHandle* open(std::uint32_t level = 2, std::uint32_t size = 5) const {
        return Topen(path.c_str(), size, level);
    }
    [[nodiscard]] int files() const {
        return static_cast<int>(std::distance(fs::directory_iterator(dir.path()), {}));
    }
    void write(TraceHandle* trace, const std::string& point, const std::string& data) {
        Twrite(trace, 1, point.c_str(), data.data(), static_cast<std::uint32_t>(data.size()));
        written.push_back({static_cast<std::uint32_t>(clock.now), point, data, 0});
    }
    // The records that a ring of `size` bytes still holds whole are the newest ones written.
    void expect_newest_of(std::size_t size) const {
        const auto ring = ovrm_trace::read_ring(read_file(path));
        EXPECT_EQ(ring.problem, "");
        std::size_t room = size - 4, kept = 0;
        for (; kept < written.size(); ++kept) {
            const Record& next = written[written.size() - 1 - kept];
            const std::size_t taken =
                16 + next.point.size() + (next.data.empty() ? 0 : 4 + next.data.size());
            if (taken > room) break;
            room -= taken;
        }
        ASSERT_EQ(ring.records.size(), kept);
        for (std::size_t i = 0; i < kept; ++i) {
            const Record& wanted = written[written.size() - kept + i];
            ASSERT_EQ(ring.records[i].time, wanted.time) << i;
            ASSERT_EQ(ring.records[i].point, wanted.point) << i;
            ASSERT_EQ(ring.records[i].data, wanted.data) << i;
        }
    }

    fault::Faults clock;
    support::TempDir dir;
    std::string path = dir.file("ring.trc");
    std::vector<Record> written;
};

TEST_P(Trace, RandomRecordsAreReadBack) {
    const char* const kPieces[] = {"SSSS", "EEEE", "XXXX", "EEEESSSS", "S", "E"};
    TraceHandle* const trace = open();
    std::mt19937 random(7);
    for (int i = 0; i < 3000; ++i) {
        std::string data;
        for (auto n = random() % 40; n > 0; --n)
            data += random() % 8 == 0 ? kPieces[random() % 6]
                                      : std::string(1, static_cast<char>(random()));
        if (i % 500 == 499) data.assign(5000, 'x');
        write(trace, "P" + std::to_string(random() % 5) + "0000", data);
        written.back().data.resize(std::min(data.size(), kRing / 2));
        if (i % 10 == 9) expect_newest_of(kRing);
        clock.now += random() % 3 == 0;
    }
    EXPECT_EQ(Tclose(trace), 0);
}

TEST_P(Trace, ForgedHeadInDataIsData) {
    TraceHandle* const trace = open();
    write(trace, "FORGE0010", "EEEESSSS" + word(0x04030201) + word(0) + "FAKE0000EEEE");
    write(trace, "FORGE0020", "SSSS" + word(0x01030201) + word(0) + "FAKE0000XXXX");
    write(trace, "FORGEFFFF", "");
    Tclose(trace);
    expect_newest_of(kRing);
}

TEST_P(Trace, SmallerRingInTheSameFile) {
    for (const auto& [size_kb, records] : {std::pair{30U, 2000}, {10U, 1500}}) {
        TraceHandle* const trace = open(1, size_kb);
        for (int i = 0; i < records; ++i) {
            write(trace, "STEP0010", std::string(4, static_cast<char>(i)));
            clock.now += i % 50 == 0;
        }
        Tclose(trace);
        clock.now += 100;
    }
    ASSERT_EQ(fs::file_size(path), 32768U);
    expect_newest_of(16384);
}

TEST_P(Trace, RingEndsAndDamagedHeaders) {
    const struct {
        std::uint32_t offset;
        std::uint32_t after;  // of a record of 20 bytes ("P000"), or the same: nothing written
    } cases[] = {
        {kRing - 21, kRing - 1}, {kRing - 20, 4},          {kRing, 24}, {3, 3}, {0, 0},
        {kRing + 1, kRing + 1},  {0xFFFFFFFF, 0xFFFFFFFF},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.offset);
        write_file(path, ring_with(4));
        TraceHandle* const trace = open();
        const int fd = ::open(path.c_str(), O_RDWR);
        ASSERT_EQ(::pwrite(fd, &c.offset, 4, 0), 4);
        EXPECT_EQ(Twrite(trace, 0, "P000", nullptr, 9), 0);
        Tclose(trace);
        ::close(fd);
        EXPECT_EQ(offset_of(read_file(path)), c.after);
        if (c.after == c.offset) {
            EXPECT_EQ(read_file(path).substr(4), ring_with(4).substr(4));
        }
    }
}

TEST_P(Trace, OpeningKeepsOrResets) {
    const struct {
        const char* name;
        std::string before;
        std::uint32_t size_kb;
        std::size_t length;
        std::uint32_t offset;
        std::size_t kept;  // bytes behind the offset that stay
    } cases[] = {
        {"no records", "", 5, 8192, 4, 0},
        {"too short for a header", "abc", 5, 8192, 4, 0},
        {"a multiple grows", "", 8, 16384, 4, 0},
        {"same size", ring_with(8192), 7, 8192, 8192, 8188},
        {"larger ring", ring_with(77), 64, 72 * 1024, 77, 8188},
        {"half a file", ring_with(77, 1000), 5, 8192, 77, 996},
        {"offset beyond the ring", ring_with(8193), 5, 8192, 4, 8188},
        {"offset in the header", ring_with(3), 5, 8192, 4, 8188},
        {"smaller ring", ring_with(77, 16384), 5, 16384, 4, 16380},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove(path);
        if (!c.before.empty()) write_file(path, c.before);
        ASSERT_EQ(Tclose(open(1, c.size_kb)), 0);
        const std::string after = read_file(path);
        ASSERT_EQ(after.size(), c.length);
        EXPECT_EQ(offset_of(after), c.offset);
        EXPECT_EQ(after.substr(4, c.kept), std::string(c.kept, 'r'));
        EXPECT_EQ(after.find_first_not_of('\0', 4 + c.kept), std::string::npos);
        EXPECT_EQ(fs::status(path).permissions(), static_cast<fs::perms>(0644));
        EXPECT_EQ(files(), 1) << "the temporary file stayed";
        fs::permissions(path, static_cast<fs::perms>(0600));
    }
}

// What was kept is only looked at by offset: no byte of a ring that could not be opened at first is
// lost.
TEST_P(Trace, RingThatOpensAtTheSecondAttemptKeepsItsBytes) {
    write_file(path, ring_with(77));
    clock.plan("open", 1, {-1, EMFILE});
    EXPECT_EQ(Tclose(open()), 0);
    EXPECT_TRUE(read_file(path) == ring_with(4));
}

TEST_P(Trace, LevelsGate) {
    for (std::uint32_t level = 0; level <= 3; ++level) {
        for (std::uint32_t record = 0; record <= 3; ++record) {
            SCOPED_TRACE(std::to_string(level) + " " + std::to_string(record));
            fs::remove(path);
            TraceHandle* const trace = open(level);
            errno = 12345;
            EXPECT_EQ(Twrite(trace, record, "P", nullptr, 0), record > 2 ? -1 : 0);
            EXPECT_EQ(errno, 12345);
            EXPECT_EQ(fs::exists(path) && offset_of(read_file(path)) > 4,
                      level != 0 && record <= 2 && record <= level);
            EXPECT_EQ(Tclose(trace), 0);
        }
    }
    TraceHandle* const no_size = open(1, 0);
    EXPECT_EQ(Twrite(no_size, 1, "P", nullptr, 0), 0);
    EXPECT_EQ(Tclose(no_size), 0);
    EXPECT_EQ(Twrite(nullptr, 1, "P", nullptr, 0) + Tclose(nullptr), -2);
}

// A ring of another size goes through a second file. The road to a send's ring is in
// mailapi_fault_test.cpp.
TEST_P(Trace, FailedReopeningLeavesNothing) {
    bool hit = true;
    for (int n = 1; hit; ++n) {
        write_file(path, ring_with(77));
        fault::fail_nth(n, fault::Mode::kFail);
        TraceHandle* trace = nullptr;
        {
            const fault::Watch watch;
            trace = open(1, 100);
        }
        const int error = errno;
        hit = fault::was_hit();
        const std::string call = fault::last_hit();
        // The first open may fail: the file is then made. So may the question for the file system.
        const bool harmless = (call == "open" && n == 2) || call == "fstatfs64";
        EXPECT_EQ(trace == nullptr, hit && !harmless) << call << n;
        EXPECT_TRUE(trace != nullptr || error == (call.ends_with("alloc") ? ENOMEM : EIO)) << call;
        if (trace != nullptr) Tclose(trace);
        EXPECT_EQ(files(), call == "unlink" ? 2 : 1) << call << n;
        EXPECT_EQ(fault::descriptors(), trace == nullptr ? 0 : 1) << call << n;
        for (const auto& file : fs::directory_iterator(dir.path())) fs::remove(file);
    }
    EXPECT_EQ(Topen(dir.path().c_str(), 5, 1), nullptr);
    EXPECT_EQ(Topen(nullptr, 5, 1), nullptr);
    EXPECT_EQ(Topen(path.c_str(), 0xFFFFFFFF, 1), nullptr);
}

TEST_P(Trace, ThreadsLeaveOnlyWholeRecords) {
    TraceHandle* const trace = open(1, 5000);
    std::vector<std::thread> threads;
    for (char id = 'a'; id < 'e'; ++id) {
        threads.emplace_back([trace, id] {
            for (int i = 0; i < 20000; ++i)
                Twrite(trace, 1, "WHOLE", std::string(30, id).data(), 30);
        });
    }
    for (int i = 0; i < 200; ++i) Tclose(Topen(dir.file("other").c_str(), 5, 1));  // ends g_cs
    for (auto& thread : threads) thread.join();
    Tclose(trace);
    const std::string bytes = read_file(path);
    constexpr std::size_t kRecord = 12 + 5 + 4 + 30 + 4;
    ASSERT_EQ(offset_of(bytes), 4 + 80000 * kRecord);
    for (std::size_t at = 4; at < offset_of(bytes); at += kRecord) {
        ASSERT_EQ(bytes.substr(at + 12, 9), "WHOLEXXXX");
        ASSERT_EQ(bytes.substr(at + 21, 34), std::string(30, bytes[at + 21]) + "EEEE");
    }
}

TEST_P(Trace, MutexSetUpAnewDoesNotStrandAWaiter) {
    TraceHandle* const trace = open();
    ASSERT_EQ(pthread_mutex_lock(&g_cs), 0);
    std::thread waiter([&] { Twrite(trace, 1, "LATE0000", nullptr, 0); });
    ::usleep(5000);
    EXPECT_EQ(offset_of(read_file(path)), 4U) << "written while another thread held the mutex";
    TraceHandle* const other = Topen(dir.file("other").c_str(), 5, 1);
    waiter.join();
    EXPECT_EQ(offset_of(read_file(path)), 28U);
    Tclose(other);
    EXPECT_EQ(Twrite(trace, 1, "NOMUTEX", nullptr, 0), 0);
    Tclose(trace);
    EXPECT_EQ(offset_of(read_file(path)), 51U);
}

INSTANTIATE_TEST_SUITE_P(Rings, Trace, testing::Bool(),
                         [](const auto& mapped) { return mapped.param ? "mapped" : "written"; });

TEST(TraceConfig, SettingsOfASection) {
    const struct {
        const char* text;
        std::int32_t result, size, level, number;  // from the defaults 5, 1, 5
        std::int32_t old_size, old_level;
    } cases[] = {
        {"", 0, 5, 1, 5, 100, 0},
        {"[ACERT]\nTRACESIZE=9\nTRACELEVEL=7\nTRACENUM=0\n", 0, 9, 7, 0, 9, 2},
        {"[AGETS]\nTRACESIZE=9\n", 0, 5, 1, 5, 100, 0},
        {"[ACERT]\nTRACESIZE=0\nTRACELEVEL=2\n", -1, 5, 1, 5, 0, 2},
        {"[ACERT]\nTRACELEVEL=-1\nTRACENUM=9\n", -1, 5, 1, 5, 100, 2},
        {"[ACERT]\nTRACESIZE=9\nTRACENUM=-1\n", -1, 5, 1, 5, 9, 0},
        {"[ACERT]\nTRACELEVEL=\nTRACESIZE=x\n", -1, 5, 1, 5, 0, 0},
        {"[ACERT]\nTRACESIZE=3000000000\n", -1, 5, 1, 5, INT32_MAX, 0},
        {"[ACERT]\nTRACELEVEL=4294967297\n", -1, 5, 1, 5, 100, 2},
        {"[ACERT]\nTRACENUM=4294967297\n", -1, 5, 1, 5, 100, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        write_file("/etc/opt/Quorvin/trc_conf", c.text);
        std::int32_t size = 5;
        std::int32_t level = 1;
        std::int32_t number = 5;
        EXPECT_EQ(GetTraceInfo("ACERT", 0, &size, &level, &number), c.result);
        EXPECT_EQ(size, c.size);
        EXPECT_EQ(level, c.level);
        EXPECT_EQ(number, c.number);
        Trc_GetSizeLevel("ACERT", &size, &level);
        EXPECT_EQ(size, c.old_size);
        EXPECT_EQ(level, c.old_level);
    }
    fs::remove("/etc/opt/Quorvin/trc_conf");
}

TEST(TraceConfig, FileNameOfTheThread) {
    char name[1025] = "kept";
    MakeTraceFileName(name, 0, "acert", 0);
    EXPECT_STREQ(name, "kept");
    MakeTraceFileName(name, 0, "acert", 1);
    EXPECT_EQ(name, "/var/opt/Quorvin/tmp2/acert" + std::to_string(::getpid()) + "-" +
                        std::to_string(static_cast<int>(::pthread_self())) + ".trc");
}

TEST_P(Trace, PruningKeepsTheNewest) {
    const auto make = [&](const std::string& name, int age) {
        write_file(dir.file(name), "");
        fs::resize_file(dir.file(name), 3'000'000'000);  // more than a 32-bit off_t holds
        const timespec times[2] = {{}, {1'000'000 - age, 0}};
        ::utimensat(AT_FDCWD, dir.file(name).c_str(), times, 0);
    };
    const struct {
        std::int32_t count;
        int left;  // of seven
    } cases[] = {{5, 4}, {8, 7}, {7, 6}, {2, 1}, {1, 0}, {0, 0}, {-1, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.count);
        for (const int n : {3, 6, 1, 0, 5, 2, 4}) make("acert" + std::to_string(n) + ".x", n);
        for (const char* other : {"Acert0", "xacert0", "acer"}) make(other, 99);
        fs::create_directory(dir.file("acertdir"));
        fs::create_symlink("nowhere", dir.file("acertlink"));
        EXPECT_EQ(DeleteOldFiles_DIR(dir.path().c_str(), "acert", "trc", c.count, 1), 0);
        for (int n = 0; n < 7; ++n) {
            EXPECT_EQ(fs::exists(dir.file("acert" + std::to_string(n) + ".x")), n < c.left) << n;
        }
        EXPECT_EQ(files(), c.left + 5) << "something else was deleted";
        fs::remove(dir.file("acertlink"));
    }
    make("acert1", 0);
    EXPECT_EQ(DeleteOldFiles_DIR(dir.path().c_str(), "acert", "trc", 0, 0), 0);
    EXPECT_TRUE(fs::exists(dir.file("acert1"))) << "switched off";
    EXPECT_EQ(DeleteOldFiles_DIR(dir.file("missing").c_str(), "a", "", 1, 1), -1);
    EXPECT_EQ(DeleteOldFiles_DIR(dir.file("acert1").c_str(), "a", "", 1, 1), -1);
}

TEST_P(Trace, PruningTiesFollowTheDirectory) {
    std::vector<std::string> names;
    for (int n = 0; n < 9; ++n) {
        write_file(dir.file("t" + std::to_string(n)), "");
        const timespec times[2] = {{}, {1000, 0}};
        ::utimensat(AT_FDCWD, dir.file("t" + std::to_string(n)).c_str(), times, 0);
    }
    for (const auto& entry : fs::directory_iterator(dir.path())) names.push_back(entry.path());
    EXPECT_EQ(DeleteOldFiles_DIR(dir.path().c_str(), "t", "", 5, 1), 0);
    for (std::size_t n = 0; n < names.size(); ++n) EXPECT_EQ(fs::exists(names[n]), n < 4) << n;
}

}  // namespace

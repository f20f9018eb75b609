// Trace rings: what is written is read back, opening and reopening, a second writer, settings and
// pruning. The calls that fail on the way are in mailapi_fault_test.cpp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "log/trace_handle.hpp"
#include "mail_api.h"
#include "support/fault.hpp"
#include "support/scripted_server.hpp"
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

std::string ring_with(std::uint32_t offset, std::size_t size = kRing) {
    return word(offset) + std::string(size - 4, 'r');
}
std::uint32_t offset_of(const std::string& bytes) {
    std::uint32_t offset = 0;
    std::memcpy(&offset, bytes.data(), sizeof offset);
    return offset;
}

// Mapped rings, and such as are written because the file system may copy on writing.
class Trace : public testing::TestWithParam<bool> {
protected:
    Trace() {
        ::umask(077);
        clock.now = 0x01020304;
        if (!GetParam()) clock.plan("fstatfs64", 1000, {-1, ENOSYS});
    }
    TraceHandle* open(std::uint32_t level = 2, std::uint32_t size = 5) const {
        return Topen(path.c_str(), size, level);
    }
    [[nodiscard]] std::uint32_t offset() const { return offset_of(read_file(path)); }
    void write(TraceHandle* trace, const std::string& point, const std::string& data) {
        Twrite(trace, 1, point.c_str(), data.data(), static_cast<std::uint32_t>(data.size()));
        written.push_back({static_cast<std::uint32_t>(clock.now), point, data, 0});
    }
    static std::size_t size_of(const Record& record) {
        return 16 + record.point.size() + (record.data.empty() ? 0 : 4 + record.data.size());
    }
    // The records that a ring of `size` bytes still holds whole are the newest ones written.
    void expect_newest_of(std::size_t size) const {
        const auto ring = ovrm_trace::read_ring(read_file(path));
        EXPECT_EQ(ring.problem, "");
        std::size_t room = size - 4;
        auto wanted = written.crbegin();
        for (auto got = ring.records.crbegin(); got != ring.records.crend(); ++got, ++wanted) {
            ASSERT_TRUE(wanted != written.crend());
            ASSERT_EQ(got->time, wanted->time);
            ASSERT_EQ(got->point, wanted->point);
            ASSERT_EQ(got->data, wanted->data);
            room -= size_of(*got);
        }
        EXPECT_TRUE(wanted == written.crend() || room < size_of(*wanted));
    }

    fault::Faults clock;
    support::TempDir dir;
    std::string path = dir.file("ring.trc");
    std::vector<Record> written;
};

TEST_P(Trace, RandomRecordsAreReadBack) {
    const char* const pieces[] = {"SSSS", "EEEE", "XXXX", "EEEESSSS", "S", "E"};
    TraceHandle* const trace = open();
    std::mt19937 random(7);
    for (int i = 0; i < 3000; ++i) {
        std::string data;
        for (auto n = random() % 40; n > 0; --n)
            data += random() % 8 == 0 ? pieces[random() % 6]
                                      : std::string(1, static_cast<char>(random()));
        if (i % 500 == 499) data.assign(5000, 'x');
        write(trace, "P" + std::to_string(random() % 5) + "0000", data);
        written.back().data = data.substr(0, kRing / 2);
        if (i % 10 == 9) expect_newest_of(kRing);
        clock.now += random() % 3 == 0;
    }
    for (const char* forged :
         {"EEEESSSS\1\2\3\4\0\0\0\0FAKE0000EEEE", "____SSSS\1\2\3\1\0\0\0\0FAKE0000XXXX"})
        write(trace, "FORGE0010", std::string(forged, 28));
    write(trace, "FORGEFFFF", "");
    expect_newest_of(kRing);
    EXPECT_EQ(Tclose(trace), 0);
}

TEST_P(Trace, SmallerRingInTheSameFile) {
    for (const std::uint32_t size_kb : {30U, 10U}) {
        TraceHandle* const trace = open(1, size_kb);
        for (int i = 0; i < 1500; ++i) {
            write(trace, "STEP0010", std::string(4, static_cast<char>(i)));
            clock.now += i % 50 == 0;
        }
        Tclose(trace);
        clock.now += 100;
    }
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
        write_file(path, ring_with(4));
        TraceHandle* const trace = open();
        const int fd = ::open(path.c_str(), O_RDWR);
        ASSERT_EQ(::pwrite(fd, &c.offset, 4, 0), 4);
        ::close(fd);
        EXPECT_EQ(Twrite(trace, 0, "P000", nullptr, 9), 0);
        Tclose(trace);
        EXPECT_EQ(offset(), c.after);
        EXPECT_EQ(read_file(path).substr(4) == ring_with(4).substr(4), c.after == c.offset);
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
        {"not opened at first", ring_with(77), 5, 8192, 4, 8188},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove(path);
        if (!c.before.empty()) write_file(path, c.before);  // 0600
        if (c.name[0] == 'n' && c.size_kb == 5) clock.plan("open", !c.before.empty(), {-1, EMFILE});
        ASSERT_EQ(Tclose(open(1, c.size_kb)), 0);
        const std::string after = read_file(path);
        ASSERT_EQ(after.size(), c.length);
        EXPECT_EQ(offset(), c.offset);
        EXPECT_EQ(after.substr(4, c.kept), std::string(c.kept, 'r'));
        EXPECT_EQ(after.find_first_not_of('\0', 4 + c.kept), std::string::npos);
        EXPECT_EQ(fs::status(path).permissions(), static_cast<fs::perms>(0644));
        EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), 1)
            << "the temporary file stayed";
    }
}

TEST_P(Trace, LevelsGate) {
    for (std::uint32_t level = 0; level <= 3; ++level) {
        for (std::uint32_t record = 0; record <= 3; ++record) {
            fs::remove(path);
            TraceHandle* const trace = open(level);
            errno = 12345;
            EXPECT_EQ(Twrite(trace, record, "P", nullptr, 0), record > 2 ? -1 : 0);
            EXPECT_EQ(errno, 12345);
            EXPECT_EQ(fs::exists(path) && offset() > 4,
                      level != 0 && record <= 2 && record <= level)
                << level << record;
            EXPECT_EQ(Tclose(trace), 0);
        }
    }
    TraceHandle* const no_size = open(1, 0);
    EXPECT_EQ(Twrite(no_size, 1, "P", nullptr, 0), 0);
    EXPECT_EQ(Tclose(no_size), 0);
    for (const int result : {Twrite(nullptr, 1, "P", nullptr, 0), Tclose(nullptr)})
        EXPECT_EQ(result, -1);
    for (TraceHandle* const trace : {open(1, 0xFFFFFFFF), Topen(nullptr, 5, 1)})
        EXPECT_EQ(trace, nullptr);
}

TEST_P(Trace, MutexIsHeldForARecordAndSetUpAnewStrandsNobody) {
    TraceHandle* const trace = open();
    const auto write = [trace] { Twrite(trace, 1, "LATE0000", nullptr, 0); };
    trace->lock.lock();
    std::thread inside(write);
    while (pthread_mutex_trylock(&g_cs) != EBUSY) pthread_mutex_unlock(&g_cs);
    trace->lock.unlock();
    inside.join();
    EXPECT_EQ(offset(), 28U);

    ASSERT_EQ(pthread_mutex_lock(&g_cs), 0);
    std::thread waiter(write);
    ::usleep(5000);
    EXPECT_EQ(offset(), 28U) << "written while another thread held the mutex";
    TraceHandle* const other = Topen(dir.file("other").c_str(), 5, 1);
    waiter.join();
    EXPECT_EQ(offset(), 52U);
    Tclose(other);
    write();
    Tclose(trace);
    EXPECT_EQ(offset(), 76U) << "without a mutex";
}

INSTANTIATE_TEST_SUITE_P(Rings, Trace, testing::Bool(),
                         [](const auto& mapped) { return mapped.param ? "mapped" : "written"; });

TEST(TraceConfig, SettingsOfASection) {
    const struct {
        const char* text;
        std::array<std::int32_t, 4> wanted;  // result, size, level and number, from 6, 2, 3
        std::array<std::int32_t, 2> older;   // size and level of the older form
    } cases[] = {
        {"", {0, 6, 2, 3}, {100, 0}},
        {"[ACERT]\nTRACESIZE=9\nTRACELEVEL=7\nTRACENUM=0\n", {0, 9, 7, 0}, {9, 2}},
        {"[ACERT]\nTRACELEVEL=0\n", {0, 6, 0, 3}, {100, 0}},
        {"[AGETS]\nTRACESIZE=9\n", {0, 6, 2, 3}, {100, 0}},
        {"[ACERT]\nTRACESIZE=0\nTRACELEVEL=1\n", {-1, 6, 2, 3}, {0, 1}},
        {"[ACERT]\nTRACELEVEL=-1\nTRACENUM=9\n", {-1, 6, 2, 3}, {100, 2}},
        {"[ACERT]\nTRACESIZE=9\nTRACENUM=-1\n", {-1, 6, 2, 3}, {9, 0}},
        {"[ACERT]\nTRACELEVEL=\nTRACESIZE=x\n", {-1, 6, 2, 3}, {0, 0}},
        {"[ACERT]\nTRACESIZE=3000000000\n", {-1, 6, 2, 3}, {INT32_MAX, 0}},
        {"[ACERT]\nTRACELEVEL=4294967297\n", {-1, 6, 2, 3}, {100, 2}},
        {"[ACERT]\nTRACENUM=4294967297\n", {-1, 6, 2, 3}, {100, 0}},
    };
    for (const auto& c : cases) {
        write_file("/etc/opt/Quorvin/trc_conf", c.text);
        std::array<std::int32_t, 4> got{0, 6, 2, 3};
        got[0] = GetTraceInfo("ACERT", 0, &got[1], &got[2], &got[3]);
        EXPECT_EQ(got, c.wanted) << c.text;
        std::array<std::int32_t, 2> older{};
        Trc_GetSizeLevel("ACERT", &older[0], &older[1]);
        EXPECT_EQ(older, c.older) << c.text;
    }
    fs::remove("/etc/opt/Quorvin/trc_conf");

    char name[1025] = "kept";
    MakeTraceFileName(name, 0, "acert", 0);
    EXPECT_STREQ(name, "kept");
    MakeTraceFileName(name, 0, "acert", 1);
    EXPECT_EQ(name, "/var/opt/Quorvin/tmp2/acert" + std::to_string(::getpid()) + "-" +
                        std::to_string(static_cast<int>(::pthread_self())) + ".trc");
}

TEST(TraceConfig, DefaultsOfASend) {
    const fault::Faults clock;
    const std::string rings = "/var/opt/Quorvin/tmp2";
    for (char old = '0'; old <= '9'; ++old) write_file(rings + "/acert" + old, "");
    const MailEntry to{MAIL_KIND_RECIPIENT, 0, "a@b"}, body{MAIL_KIND_BODY, 0, "text"};
    const MailSplitOption refusing{10, support::refusing_port()};
    char detail[MAIL_DETAIL_SIZE], name[1025];
    EXPECT_EQ(OvRm_SendEMail(&to, 1, &body, 1, "a@b", "S", "127.0.0.1", 0, &refusing, nullptr,
                             nullptr, detail),
              MAIL_E_CONNECT);
    EXPECT_EQ(std::distance(fs::directory_iterator(rings), {}), 5);
    MakeTraceFileName(name, 0, "acert", 1);
    const std::string bytes = read_file(name);
    EXPECT_EQ(bytes.size(), kRing) << "5 KiB, rounded up";
    EXPECT_NE(bytes.find("makeTop_0000"), std::string::npos) << "level 1";
    EXPECT_EQ(bytes.find("smtp0654"), std::string::npos) << "level 2";
}

TEST(Pruning, KeepsTheNewest) {
    const struct {
        std::int32_t count;
        std::uint32_t enabled;
        int left;  // of seven, and an older one behind a link
    } cases[] = {{9, 1, 8}, {8, 1, 7}, {5, 1, 4},  {2, 1, 1},
                 {1, 1, 0}, {0, 1, 0}, {-1, 1, 0}, {0, 0, 8}};
    for (const auto& c : cases) {
        const support::TempDir dir;
        const auto make = [&](const std::string& name, int age) {  // in half seconds
            write_file(dir.file(name), "");
            fs::resize_file(dir.file(name), 3'000'000'000);  // more than a 32-bit off_t holds
            const timespec times[2] = {{}, {1000 - age / 2, 1000 - age % 2}};
            ::utimensat(AT_FDCWD, dir.file(name).c_str(), times, 0);
        };
        std::set<std::string> wanted{"Acert0", "acer", "acert-", "acert-d", "xacert0"}, left;
        for (const int n : {3, 6, 1, 0, 5, 2, 4}) make("acert" + std::to_string(n), n);
        for (int n = 0; n < std::min(c.left, 7); ++n) wanted.insert("acert" + std::to_string(n));
        for (const char* other : {"Acert0", "acer", "xacert0"}) make(other, 99);
        fs::create_symlink("xacert0", dir.file("acert7"));
        if (c.left == 8) wanted.insert("acert7");
        fs::create_symlink("nowhere", dir.file("acert-"));
        fs::create_directory(dir.file("acert-d"));
        EXPECT_EQ(DeleteOldFiles_DIR(dir.path().c_str(), "acert", "trc", c.count, c.enabled), 0);
        for (const auto& entry : fs::directory_iterator(dir.path()))
            left.insert(entry.path().filename());
        EXPECT_EQ(left, wanted) << c.count;
    }
    const support::TempDir dir;                   // files of one time follow the directory
    for (char name = 'A'; name <= 'z'; ++name) {  // more than a sort keeps in order by chance
        write_file(dir.file(std::string("t") + name), "");
        fs::last_write_time(dir.file(std::string("t") + name), {});
    }
    const std::vector<fs::path> names(fs::directory_iterator(dir.path()), {});
    EXPECT_EQ(DeleteOldFiles_DIR(dir.path().c_str(), "t", "", 5, 1), 0);
    for (std::size_t n = 0; n < names.size(); ++n) EXPECT_EQ(fs::exists(names[n]), n < 4) << n;
    for (const std::string& none : {dir.file("missing"), names[0].string()})
        EXPECT_EQ(DeleteOldFiles_DIR(none.c_str(), "a", "", 1, 1), -1);
}

}  // namespace

// What the reader makes of damaged rings and of mail logs, and the command's own output.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "mail_log.h"
#include "support/fault.hpp"
#include "support/support.hpp"
#include "tools/ovrm_trace_log.hpp"
#include "tools/ovrm_trace_ring.hpp"
#include "trace.h"

namespace fs = std::filesystem;
using ovrm_trace::read_ring;
using support::read_file;
using support::word;
using support::write_file;

namespace {

class Reader : public testing::Test {
protected:
    static void write(TraceHandle* trace, const std::string& point, const std::string& data) {
        Twrite(trace, 1, point.c_str(), data.data(), static_cast<std::uint32_t>(data.size()));
    }

    fault::Faults clock;
    support::TempDir dir;
    std::string path = dir.file("acert1-2.trc");
};

TEST_F(Reader, DamagedFiles) {
    TraceHandle* const trace = Topen(path.c_str(), 5, 1);
    for (int i = 0; i < 9; ++i) write(trace, "STEP0010", "abcd");
    Tclose(trace);
    const std::string good = read_file(path);
    const struct {
        const char* name;
        std::string bytes;
        const char* problem;
        std::size_t records;
    } cases[] = {
        {"empty", "", "the file is empty", 0},
        {"three bytes", "abc", "too short", 0},
        {"blank", std::string(8192, '\0'), "damaged header", 0},
        {"offset in the header", word(3) + good.substr(4), "damaged header", 9},
        {"offset beyond the end", std::string(4, 'x') + good.substr(4), "damaged header", 9},
        {"no records", word(4) + std::string(8188, '\0'), "", 0},
        {"cut short", good.substr(0, 1000), "cut short", 9},
        {"one byte broken", std::string(good).replace(5, 1, "!"), "", 8},
        {"only markers", word(4) + std::string(8188, 'S'), "", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto ring = read_ring(c.bytes);
        EXPECT_NE(ring.problem.find(c.problem), std::string::npos) << ring.problem;
        EXPECT_EQ(ring.problem.empty(), *c.problem == '\0');
        EXPECT_EQ(ring.records.size(), c.records);
    }
}

TEST(ReaderLog, LinesGetTheirDate) {
    ::setenv("TZ", "UTC0", 1);
    ::tzset();
    const auto lines = ovrm_trace::read_mail_log(
        "23:59:58 R: before the banner\r\n"
        "2026/12/31 23:59:59 [7] Dovrin E-Mail\r\n"
        "23:59:59 S: EHLO x\r\n"
        "00:00:01 R: 250-a\r\n250 b\r\n"
        "2027/01/01 00:00:02 END\r\n\r\n",
        1'000'000'000);
    const std::vector<std::pair<std::time_t, std::string>> wanted = {
        {1'000'079'998, "R: before the banner"},
        {1'798'761'599, "[7] Dovrin E-Mail"},
        {1'798'761'599, "S: EHLO x"},
        {1'798'761'601, "R: 250-a\n250 b"},
        {1'798'761'602, "END"},
    };
    ASSERT_EQ(lines.size(), wanted.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i].time, wanted[i].first) << i;
        EXPECT_EQ(lines[i].text, wanted[i].second) << i;
    }
}

struct Output {
    std::string output;
    int status;
};
Output run(const std::string& arguments) {
    FILE* const pipe = ::popen(("TZ=UTC0 " OVRM_TRACE " " + arguments + " 2>&1").c_str(), "r");
    Output result{};
    std::array<char, 4096> block{};
    for (std::size_t n = 0; (n = std::fread(block.data(), 1, block.size(), pipe)) != 0;)
        result.output.append(block.data(), n);
    result.status = WEXITSTATUS(::pclose(pipe));
    return result;
}

TEST_F(Reader, CommandPrintsAndMerges) {
    clock.now = 1'800'000'000;
    const std::string log = dir.file("mail.log");
    write_file(log,
               "2027/01/15 08:00:01 [7] Dovrin E-Mail\r\n08:00:01 R: 5\x1b[1m \"x\"\r\n"
               "2027/01/15 08:00:02 END\r\n\r\n");
    TraceHandle* const trace = Topen(path.c_str(), 5, 1);
    write(trace, "MAIL0000", "");
    write(trace, "MAIL0010", "250 a \"long\" \x80 line");
    clock.now += 2;
    write(trace, "RSETFFFF", std::string("\xe5\xff\xff\xe5", 4));
    Tclose(trace);

    const Output text = run("--mail-log " + log + " " + path);
    EXPECT_EQ(text.output,
              "2027-01-15 08:00:00 MAIL0000\n"
              "2027-01-15 08:00:00 MAIL0010         "
              "32 35 30 20 61 20 22 6c 6f 6e 67 22 20 80 20 6c |250 a \"long\" . l|\n" +
                  std::string(37, ' ') + "69 6e 65 " + std::string(39, ' ') +
                  "|ine|\n"
                  "2027-01-15 08:00:01 log [7] Dovrin E-Mail\n"
                  "2027-01-15 08:00:01 log R: 5\\x1b[1m \"x\"\n"
                  "2027-01-15 08:00:02 RSETFFFF         e5 ff ff e5 |....| -436207643\n"
                  "2027-01-15 08:00:02 log END\n");
    EXPECT_EQ(text.status, 0);
    EXPECT_EQ(run("--json --grep RSET " + path).output,
              R"({"source":"ring","file":")" + path +
                  R"(","time":1800000002,"local":"2027-01-15T08:00:02+0000","point":"RSETFFFF",)"
                  R"("data":"e5ffffe5","ascii":"....","number":-436207643})"
                  "\n");
    const std::string other = dir.file("acert1-3.trc");
    fs::copy_file(path, other);
    write_file(dir.file("empty"), "");
    const Output several = run(path + " " + other + " --grep MAIL0000 " + dir.file("empty"));
    EXPECT_EQ(several.output, "ovrm-trace: " + dir.file("empty") +
                                  ": the file is empty\n"
                                  "2027-01-15 08:00:00 acert1-2 MAIL0000\n"
                                  "2027-01-15 08:00:00 acert1-3 MAIL0000\n");
    EXPECT_EQ(several.status, 1);
    EXPECT_EQ(run(dir.file("missing")).status, 1);
    EXPECT_EQ(run(dir.path()).status, 1);
    EXPECT_EQ(run("").status, 64);
    EXPECT_EQ(run("--follow --mail-log " + log + " " + path).status, 64);
}

TEST_F(Reader, CommandFollows) {
    TraceHandle* const trace = Topen(path.c_str(), 5, 1);
    write(trace, "OLD0000", "");
    std::thread writer([&] {
        for (int i = 0; i < 12; ++i) {
            ::usleep(100'000);
            for (int n = 0; n < 60; ++n) write(trace, "STEP" + std::to_string(1000 + i), "abcd");
        }
    });
    const Output followed = run("--follow " + path + " & pid=$!; sleep 2; kill $pid");
    writer.join();
    Tclose(trace);
    std::size_t at = followed.output.find("OLD0000");
    for (int i = 1000; i < 1012; ++i)
        for (int n = 0; n < 60; ++n)
            at = followed.output.find("STEP" + std::to_string(i), std::min(at, at + 1));
    EXPECT_NE(at, std::string::npos);
    EXPECT_EQ(std::count(followed.output.begin(), followed.output.end(), '\n'), 721);
}

}  // namespace

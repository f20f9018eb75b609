// The mail log: line forms, settings, continuation, rotation and pruning, seen in its files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>

#include "mail_log.h"
#include "support/fault.hpp"
#include "support/support.hpp"
#include "trace.h"

namespace fs = std::filesystem;
using support::read_file;
using support::write_file;

namespace {

const std::string kDirectory = "/var/opt/Quorvin/log/";
const std::string kConfig = "/etc/opt/Quorvin/trc_conf";
const std::string kLog = kDirectory + "rmsmtp" + std::to_string(::getpid()) + ".log";

class MailLog : public testing::Test {
protected:
    MailLog() {
        clock_.now = 1'234'567'890;
        ::setenv("TZ", "JST-9", 1);
        ::tzset();
        ::umask(0);
        start("");
    }
    ~MailLog() override { start(""); }
    static void start(const std::string& settings) {
        write_file(kConfig, settings.empty() ? "" : "[LOG]\n" + settings + "\n");
        for (const auto& file : fs::directory_iterator(kDirectory)) fs::remove_all(file.path());
    }
    static int files() {
        return static_cast<int>(std::distance(fs::directory_iterator(kDirectory), {}));
    }
    fault::Faults clock_;
};

TEST_F(MailLog, LinesHaveTheirFormBetweenBanners) {
    const std::string long_text(5000, 'x');
    const std::string cut(1024, 'x');
    MailLogHandle* const log = MailLogOpen(0);
    const std::pair<std::uint32_t, const char*> lines[] = {{1, "AUTH PLAIN ******"},
                                                           {2, "250-\x1b[1mo\x7Fk\t\r\n250 x\r\n"},
                                                           {3, ""},
                                                           {1, "\n"},
                                                           {1, "\r\n"},
                                                           {2, long_text.c_str()}};
    for (const auto& [level, text] : lines) EXPECT_EQ(MailLogWrite(log, level, text), 0);
    for (const char* text : {static_cast<const char*>(nullptr), "", long_text.c_str()})
        EXPECT_EQ(MailLogSysErrWrite(log, "connect", 111, -7, text), 0);
    EXPECT_EQ(MailLogTimeOutWrite(log, 60, 1, nullptr), 0);
    EXPECT_EQ(MailLogTimeOutWrite(log, 60, 2, long_text.c_str()), 0);
    for (const auto refused :
         {MailLogWrite(log, 0, "x"), MailLogWrite(log, 4, "x"), MailLogWrite(log, 1, nullptr),
          MailLogSysErrWrite(log, nullptr, 0, 0, "x"), MailLogTimeOutWrite(log, 1, 3, "x"),
          MailLogTimeOutWrite(log, 1, 0, "x"), MailLogWrite(nullptr, 1, "x"),
          MailLogSysErrWrite(nullptr, "f", 0, 0, "x"), MailLogTimeOutWrite(nullptr, 1, 1, "x")})
        EXPECT_EQ(refused, -1);
    clock_.now += 24 * 3600 + 1;
    EXPECT_EQ(MailLogClose(log), 0);
    EXPECT_EQ(MailLogClose(nullptr), 0);
    MailLogClose(MailLogOpen(0));

    const std::string call = " [" + std::to_string(::getpid()) + "] Dovrin E-Mail\r\n";
    const std::string now = "08:31:30 ", later = "2009/02/15 08:31:31";
    const std::string error = now + "-: ERROR: func=connect code=111 detail=-7";
    const std::string pop = now + "-: ERROR: POP TIMEOUT (timer=60) ";
    EXPECT_EQ(read_file(kLog),
              "2009/02/14 08:31:30" + call + now + "S: AUTH PLAIN ******\r\n" + now +
                  "R: 250-?[1mo?k???250 x\r\n" + now + "-: \r\n" + now + "S: \n\r\n" + now +
                  "S: \r\n" + now + "R: " + long_text + "\r\n" + error + "\r\n" + error + " \r\n" +
                  error + " " + cut + "\r\n" + now + "-: ERROR: SMTP TIMEOUT (timer=60)\r\n" + pop +
                  cut + "\r\n" + later + " END\r\n\r\n" + later + call + later + " END\r\n\r\n");
    EXPECT_EQ(fs::status(kLog).permissions(), static_cast<fs::perms>(0644));
}

// A log and a ring are not opened through what somebody else laid under their names, and a full log
// is not renamed.
TEST_F(MailLog, LinksFifosAndForeignFilesAreLeftAlone) {
    const std::string victim = kDirectory + "victim";
    const std::string full(30'000, 'x');
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"link", [&] { fs::create_symlink(victim, kLog); }},
        {"dangling link", [&] { fs::create_symlink(victim + "2", kLog); }},
        {"second name", [&] { fs::create_hard_link(victim, kLog); }},
        {"FIFO", [] { ::mkfifo(kLog.c_str(), 0666); }},
        {"of another user", [&] { write_file(kLog, full), ::chown(kLog.c_str(), 12, 34); }},
        {"directory", [] { fs::create_directory(kLog); }},
    };
    for (const auto& [name, put] : cases) {
        start("");
        write_file(victim, full);
        put();
        EXPECT_EQ(Topen(kLog.c_str(), 5, 1), nullptr) << name;
        EXPECT_EQ(MailLogOpen(0), nullptr) << name;
        EXPECT_TRUE(read_file(victim) == full) << name;
        EXPECT_NE(fs::symlink_status(kLog).type(), fs::file_type::not_found) << name;
        EXPECT_EQ(files(), 2) << name;
    }
}

TEST_F(MailLog, SizeDecidesBetweenContinuingAndRotating) {
    const std::pair<const char*, std::size_t> cases[] = {
        // and the longest that is continued
        {"", 19979},          {"LOGSIZE=20", 19979},  {"LOGSIZE=10", 9739}, {"LOGSIZE=100", 101899},
        {"LOGSIZE=9", 19979}, {"LOGSIZE=101", 19979}, {"LOGSIZE=-1", 19979}};
    for (const auto& [setting, longest] : cases) {
        for (const std::size_t more : {0U, 1U}) {
            SCOPED_TRACE(setting + std::to_string(more));
            start(setting);
            write_file(kLog, std::string(longest + more, 'x'));
            MailLogClose(MailLogOpen(0));
            EXPECT_EQ(fs::file_size(kLog) > longest, more == 0);
            EXPECT_EQ(fs::exists(kLog + "1"), more == 1);
        }
    }
}

TEST_F(MailLog, RotationMovesGenerationsUp) {
    for (const bool blocked : {false, true}) {  // by a directory, which is no generation
        start("LOGNUM=5");
        for (int n = 0; n < 5; ++n) {  // the last is the newest: pruning would take another one
            const std::string name = kLog + (n == 0 ? "" : std::to_string(n));
            if (n == 2 && blocked && fs::create_directory(name)) continue;
            write_file(name, std::to_string(n) + std::string(20000, 'x'));
            fs::last_write_time(name, fs::file_time_type() + std::chrono::hours(n));
        }
        MailLogClose(MailLogOpen(0));
        EXPECT_EQ(read_file(kLog + "1").substr(0, 1), "0");
        EXPECT_EQ(fs::is_directory(kLog + "2"), blocked);
        EXPECT_EQ(read_file(kLog + "3").substr(0, 1), blocked ? "" : "2");
        EXPECT_EQ(read_file(kLog + "4").substr(0, 1), "3");
        EXPECT_FALSE(fs::exists(kLog + "5"));
    }
}

TEST_F(MailLog, NumberBoundsTheFiles) {
    const struct {
        const char* setting;
        bool own;  // a file of this process exists and is continued
        int left;  // of thirty others and the own one
    } cases[] = {{"", false, 20},           {"LOGNUM=5", false, 5},    {"LOGNUM=5", true, 5},
                 {"LOGNUM=100", false, 31}, {"LOGNUM=4", false, 20},   {"LOGNUM=", true, 20},
                 {"LOGNUM=-5", false, 20},  {"LOGNUM=101", false, 20}, {"LOGNUM=0", false, 30},
                 {"LOGNUM=x", false, 30}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.setting);
        start(c.setting);
        for (int n = 0; n < 30; ++n) write_file(kDirectory + "rmsmtp_" + std::to_string(n), "");
        if (c.own) write_file(kLog, "own");
        MailLogHandle* const log = MailLogOpen(0);
        EXPECT_EQ(log == nullptr, c.left == 30) << "switched off";
        MailLogClose(log);
        EXPECT_EQ(files(), c.left);
        EXPECT_EQ(read_file(kLog).substr(0, 3), c.own ? "own" : log == nullptr ? "" : "200");
    }
}

}  // namespace

// The mail log: line forms, settings, continuation, rotation and pruning, seen in its files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <regex>
#include <string>
#include <utility>

#include "mail_log.h"
#include "support/support.hpp"
#include "trace.h"

namespace fs = std::filesystem;
using support::read_file;
using support::write_file;

namespace {

const std::string kDirectory = "/var/opt/Quorvin/log/";
const std::string kConfig = "/etc/opt/Quorvin/trc_conf";

class MailLog : public testing::Test {
protected:
    void SetUp() override {
        fs::remove(kConfig);
        for (const auto& file : fs::directory_iterator(kDirectory)) fs::remove_all(file.path());
    }
    static std::string current() {
        return kDirectory + "rmsmtp" + std::to_string(::getpid()) + ".log";
    }
    static int files() {
        return static_cast<int>(std::distance(fs::directory_iterator(kDirectory), {}));
    }
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
    EXPECT_EQ(MailLogTimeOutWrite(log, 60, 2, "x\r\n"), 0);
    EXPECT_EQ(MailLogTimeOutWrite(log, 60, 2, long_text.c_str()), 0);
    for (const auto refused :
         {MailLogWrite(log, 0, "x"), MailLogWrite(log, 4, "x"), MailLogWrite(log, 1, nullptr),
          MailLogSysErrWrite(log, nullptr, 0, 0, "x"), MailLogTimeOutWrite(log, 1, 3, "x"),
          MailLogTimeOutWrite(log, 1, 0, "x"), MailLogWrite(nullptr, 1, "x"),
          MailLogSysErrWrite(nullptr, "f", 0, 0, "x"), MailLogTimeOutWrite(nullptr, 1, 1, "x")})
        EXPECT_EQ(refused, -1);
    EXPECT_EQ(MailLogClose(log), 0);
    EXPECT_EQ(MailLogClose(nullptr), 0);
    MailLogClose(MailLogOpen(0));

    const std::regex time("(^|\n)(\\d{4}/\\d\\d/\\d\\d )?\\d\\d:\\d\\d:\\d\\d (?=\\S)");
    const std::string call = "[" + std::to_string(::getpid()) + "] Dovrin E-Mail\r\n";
    const std::string error = "-: ERROR: func=connect code=111 detail=-7";
    EXPECT_EQ(std::regex_replace(read_file(current()), time, "$1"),
              call +
                  "S: AUTH PLAIN ******\r\nR: 250-?[1mo?k???250 x\r\n-: \r\nS: \n\r\nS: \r\nR: " +
                  long_text + "\r\n" + error + "\r\n" + error + " \r\n" + error + " " + cut +
                  "\r\n-: ERROR: SMTP TIMEOUT (timer=60)\r\n-: ERROR: POP TIMEOUT (timer=60) x\r\n"
                  "-: ERROR: POP TIMEOUT (timer=60) " +
                  cut + "\r\nEND\r\n\r\n" + call + "END\r\n\r\n");
    const std::time_t now = std::time(nullptr);
    char year[8];
    std::strftime(year, sizeof year, "%Y/", std::localtime(&now));
    EXPECT_EQ(read_file(current()).substr(0, 5), year);
    EXPECT_EQ(fs::status(current()).permissions(), static_cast<fs::perms>(0644));
}

// A log and a ring are not opened through what somebody else laid under their names, and a full log
// is not renamed.
TEST_F(MailLog, LinksFifosAndForeignFilesAreLeftAlone) {
    const std::string victim = kDirectory + "victim";
    const std::string full(30'000, 'x');
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"link", [&] { fs::create_symlink(victim, current()); }},
        {"dangling link", [&] { fs::create_symlink(victim + "2", current()); }},
        {"second name", [&] { fs::create_hard_link(victim, current()); }},
        {"FIFO", [] { ::mkfifo(current().c_str(), 0666); }},
        {"of another user",
         [&] { write_file(current(), full), ::chown(current().c_str(), 12, 34); }},
    };
    for (const auto& [name, put] : cases) {
        SetUp();
        write_file(victim, full);
        put();
        EXPECT_EQ(Topen(current().c_str(), 5, 1), nullptr) << name;
        EXPECT_EQ(MailLogOpen(0), nullptr) << name;
        EXPECT_TRUE(read_file(victim) == full) << name;
        EXPECT_NE(fs::symlink_status(current()).type(), fs::file_type::not_found) << name;
        EXPECT_EQ(files(), 2) << name;
    }
    SetUp();
}

TEST_F(MailLog, SizeDecidesBetweenContinuingAndRotating) {
    const struct {
        const char* size;
        std::size_t length;
        bool continued;
    } cases[] = {
        {"20", 19979, true}, {"20", 19980, false},  {"10", 9739, true},
        {"10", 9740, false}, {"100", 101899, true}, {"100", 101900, false},
        {"9", 19980, false}, {"101", 19979, true},  {"-1", 19979, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.size) + " " + std::to_string(c.length));
        SetUp();
        write_file(kConfig, std::string("[LOG]\nLOGSIZE=") + c.size + "\n");
        write_file(current(), std::string(c.length, 'x'));
        MailLogClose(MailLogOpen(0));
        EXPECT_EQ(fs::file_size(current()) > c.length, c.continued);
        EXPECT_EQ(fs::exists(current() + "1"), !c.continued);
    }
}

TEST_F(MailLog, RotationMovesGenerationsUp) {
    write_file(kConfig, "[LOG]\nLOGNUM=5\n");
    write_file(current(), std::string(20000, 'c'));
    for (int n = 1; n < 5; ++n) {  // the last is the newest: pruning would take another one
        const std::string generation = current() + std::to_string(n);
        write_file(generation, std::to_string(n));
        fs::last_write_time(generation, fs::file_time_type::clock::now() + std::chrono::hours(n));
    }
    MailLogClose(MailLogOpen(0));
    EXPECT_EQ(fs::file_size(current() + "1"), 20000U);
    EXPECT_EQ(read_file(current() + "2"), "1");
    EXPECT_EQ(read_file(current() + "3"), "2");
    EXPECT_EQ(read_file(current() + "4"), "3");
    EXPECT_FALSE(fs::exists(current() + "5"));

    SetUp();
    write_file(kConfig, "[LOG]\nLOGNUM=5\n");
    write_file(current(), std::string(20000, 'c'));
    fs::create_directory(current() + "2");  // not a generation, and in the way of one
    write_file(current() + "1", "lost");
    MailLogClose(MailLogOpen(0));
    EXPECT_TRUE(fs::is_directory(current() + "2"));
    EXPECT_EQ(fs::file_size(current() + "1"), 20000U);
}

TEST_F(MailLog, NumberBoundsTheFiles) {
    const struct {
        const char* number;
        bool own;  // a file of this process exists and is continued
        int left;  // of thirty others and the own one
    } cases[] = {{"5", false, 5}, {"5", true, 5},    {"100", false, 31}, {"3", false, 20},
                 {"", true, 20},  {"-5", false, 20}, {"101", false, 20}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.number);
        SetUp();
        write_file(kConfig, std::string("[LOG]\nLOGNUM=") + c.number + "\n");
        for (int n = 0; n < 30; ++n) write_file(kDirectory + "rmsmtp_" + std::to_string(n), "");
        if (c.own) write_file(current(), "own");
        MailLogClose(MailLogOpen(0));
        EXPECT_EQ(files(), c.left);
        EXPECT_TRUE(fs::exists(current()));
        if (c.own) {
            EXPECT_EQ(read_file(current()).substr(0, 3), "own");
        }
    }
    for (const char* off : {"0", "x"}) {
        SetUp();
        write_file(kConfig, std::string("[LOG]\nLOGNUM=") + off + "\n");
        EXPECT_EQ(MailLogOpen(0), nullptr) << off;
        EXPECT_EQ(files(), 0);
    }
    SetUp();
    fs::create_directory(current());
    EXPECT_EQ(MailLogOpen(0), nullptr) << "the file cannot be opened";
}

}  // namespace

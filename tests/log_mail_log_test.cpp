// The mail log: line forms, settings, continuation, rotation and pruning, seen in its files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>

#include "mail_log.h"
#include "support/support.hpp"

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
    // The one line that `write` adds, without its time.
    template <class Write>
    static std::string line_of(MailLogHandle* log, Write write) {
        const std::size_t before = read_file(current()).size();
        EXPECT_EQ(write(log), 0);
        const std::string line = read_file(current()).substr(before);
        EXPECT_TRUE(std::regex_search(line, std::regex("^\\d\\d:\\d\\d:\\d\\d "))) << line;
        return line.substr(9);
    }
};

TEST_F(MailLog, LinesHaveTheirForm) {
    MailLogHandle* const log = MailLogOpen(0);
    const std::string long_text(5000, 'x');
    const std::string cut(1024, 'x');
    const auto say = [](std::uint32_t level, const char* text) {
        return [=](MailLogHandle* to) { return MailLogWrite(to, level, text); };
    };
    const auto error = [](const char* text) {
        return [=](MailLogHandle* to) { return MailLogSysErrWrite(to, "connect", 111, -7, text); };
    };
    const auto timeout = [](std::int32_t kind, const char* text) {
        return [=](MailLogHandle* to) { return MailLogTimeOutWrite(to, 60, kind, text); };
    };
    EXPECT_EQ(line_of(log, say(1, "AUTH PLAIN ******")), "S: AUTH PLAIN ******\r\n");
    EXPECT_EQ(line_of(log, say(2, "250 ok\r\n")), "R: 250 ok\r\n");
    EXPECT_EQ(line_of(log, say(3, "")), "-: \r\n");
    EXPECT_EQ(line_of(log, say(1, "\n")), "S: \n\r\n");
    EXPECT_EQ(line_of(log, say(1, "\r\n")), "S: \r\n");
    EXPECT_EQ(line_of(log, say(2, long_text.c_str())), "R: " + long_text + "\r\n");
    EXPECT_EQ(line_of(log, error(nullptr)), "-: ERROR: func=connect code=111 detail=-7\r\n");
    EXPECT_EQ(line_of(log, error("")), "-: ERROR: func=connect code=111 detail=-7 \r\n");
    EXPECT_EQ(line_of(log, error(long_text.c_str())),
              "-: ERROR: func=connect code=111 detail=-7 " + cut + "\r\n");
    EXPECT_EQ(line_of(log, timeout(1, nullptr)), "-: ERROR: SMTP TIMEOUT (timer=60)\r\n");
    EXPECT_EQ(line_of(log, timeout(2, "x\r\n")), "-: ERROR: POP TIMEOUT (timer=60) x\r\n");
    EXPECT_EQ(line_of(log, timeout(2, long_text.c_str())),
              "-: ERROR: POP TIMEOUT (timer=60) " + cut + "\r\n");
    EXPECT_EQ(MailLogSysErrWrite(log, long_text.c_str(), 0, 0, "kept in bounds"), 0);

    const std::string before = read_file(current());
    EXPECT_EQ(MailLogWrite(log, 0, "x"), -1);
    EXPECT_EQ(MailLogWrite(log, 4, "x"), -1);
    EXPECT_EQ(MailLogWrite(log, 1, nullptr), -1);
    EXPECT_EQ(MailLogSysErrWrite(log, nullptr, 0, 0, "x"), -1);
    EXPECT_EQ(MailLogTimeOutWrite(log, 1, 3, "x"), -1);
    EXPECT_EQ(MailLogTimeOutWrite(log, 1, 0, "x"), -1);
    EXPECT_EQ(read_file(current()), before);
    EXPECT_EQ(MailLogClose(log), 0);
    EXPECT_EQ(MailLogWrite(nullptr, 1, "x"), -1);
    EXPECT_EQ(MailLogSysErrWrite(nullptr, "f", 0, 0, "x"), -1);
    EXPECT_EQ(MailLogTimeOutWrite(nullptr, 1, 1, "x"), -1);
    EXPECT_EQ(MailLogClose(nullptr), 0);
}

TEST_F(MailLog, BannersFrameACall) {
    for (int call = 0; call < 2; ++call) MailLogClose(MailLogOpen(0));
    const std::string date = "\\d{4}/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d ";
    const std::string call =
        date + "\\[" + std::to_string(::getpid()) + "\\] Dovrin E-Mail\r\n" + date + "END\r\n\r\n";
    EXPECT_TRUE(std::regex_match(read_file(current()), std::regex(call + call)));
    const std::time_t now = std::time(nullptr);
    char year[8];
    std::strftime(year, sizeof year, "%Y/", std::localtime(&now));
    EXPECT_EQ(read_file(current()).substr(0, 5), year);
    EXPECT_EQ(fs::status(current()).permissions(), static_cast<fs::perms>(0644));
}

TEST_F(MailLog, SizeDecidesBetweenContinuingAndRotating) {
    const struct {
        const char* size;
        std::size_t length;
        bool continued;
    } cases[] = {
        {"20", 19979, true},   {"20", 19980, false},   {"10", 9739, true},  {"10", 9740, false},
        {"100", 101899, true}, {"100", 101900, false}, {"5", 19979, true},  {"9", 19980, false},
        {"101", 19979, true},  {"101", 19980, false},  {"-1", 19979, true}, {"", 19980, false},
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
    } cases[] = {
        {"5", false, 5},   {"5", true, 5}, {"100", false, 31}, {"3", false, 20},
        {"200", true, 20}, {"", true, 20}, {"-5", false, 20},  {"101", false, 20},
    };
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

// What the reader makes of damaged rings and of mail logs, and the command's own output: what it
// says of real sends, and where it puts the entries of their logs.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <optional>
#include <sstream>
#include <thread>

#include "mail_log.h"
#include "support/delivery.hpp"
#include "support/fault.hpp"
#include "tools/ovrm_trace_log.hpp"
#include "tools/ovrm_trace_ring.hpp"
#include "trace.h"

namespace fs = std::filesystem;
using ovrm_trace::read_ring;
using namespace support;

namespace {

void write(TraceHandle* trace, const std::string& point, const std::string& data = "") {
    Twrite(trace, 1, point.c_str(), data.data(), static_cast<std::uint32_t>(data.size()));
}

class Reader : public testing::Test {
protected:
    Reader() {
        ::setenv("TZ", "UTC0", 1);
        ::tzset();
    }
    TempDir dir;
    std::string path = dir.file("acert1-2.trc");
};

// As a machine of the other byte order writes it.
std::string swapped(std::string ring) {
    const auto turn = [&](std::size_t at) { std::reverse(&ring[at], &ring[at] + 4); };
    turn(0);
    for (std::size_t at = 4; (at = ring.find("SSSS", at)) != ring.npos; at += 16) turn(at + 4);
    return ring;
}

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
        {"the other byte order", swapped(good), "", 9},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto ring = read_ring(c.bytes);
        EXPECT_NE(ring.problem.find(c.problem), std::string::npos) << ring.problem;
        EXPECT_EQ(ring.problem.empty(), *c.problem == '\0');
        EXPECT_EQ(ring.records.size(), c.records);
    }
    EXPECT_EQ(read_ring(swapped(good)).records[3].time, read_ring(good).records[3].time);
}

// What the command prints, and its exit status when it is not 0.
std::string run(const std::string& arguments) {
    FILE* const pipe = ::popen((OVRM_TRACE " " + arguments + " 2>&1").c_str(), "r");
    std::string output;
    for (int c = 0; (c = std::getc(pipe)) != EOF;) output += static_cast<char>(c);
    const int status = WEXITSTATUS(::pclose(pipe));
    return output + (status != 0 ? "exit " + std::to_string(status) : "");
}

// Texts of a server or a caller are seen as such: no escape sequence, no entry of their own.
TEST_F(Reader, TellsEntriesFromTexts) {
    fault::Faults clock;
    clock.now = 1'799'971'200;  // midnight
    const std::string log = dir.file("mail.log");
    write_file(log,
               "2027/01/14 23:59:59 [7] Dovrin E-Mail\r\n"
               "23:59:59 -: \x8C\x78\x8D\x90 \x83\x5C\r\n23:59:59 -: \xA5\xC6\xA5\xB9\xA5\xC8\r\n"
               "00:00:01 R: 5\x1b[1m \"x\"\r\n250 more\r\n00:00:01 no label\r\n"
               "00:00:01 -: a\n00:00:01 R: 250 forged\r\n"
               "2027/01/15 00:00:02 END\r\n\r\n");
    TraceHandle* const trace = Topen(path.c_str(), 5, 1);
    write(trace, "MAIL0000");
    write(trace, "MAIL0010", "250 a \"long\" \x80 line");
    clock.now += 2;
    write(trace, "MAILFFFF", "\xe5\xff\xff\xe5");  // the same in either byte order
    Tclose(trace);
    EXPECT_EQ(run("-l " + log + " " + path),
              "2027-01-14 23:59:59 log [7] Dovrin E-Mail\n"
              "2027-01-14 23:59:59 log -: 警告 ソ\n"
              "2027-01-14 23:59:59 log -: テスト\n"
              "2027-01-15 00:00:00 MAIL0000\n"
              "2027-01-15 00:00:00 MAIL0010         "
              "32 35 30 20 61 20 22 6c 6f 6e 67 22 20 80 20 6c |250 a \"long\" . l|\n"
              "                                     "
              "69 6e 65                                        |ine|\n"
              "2027-01-15 00:00:01 log R: 5\\x1b[1m \"x\"\n"
              "                    log | 250 more\n"
              "                    log | 00:00:01 no label\n"
              "2027-01-15 00:00:01 log -: a\n"
              "                    log | 00:00:01 R: 250 forged\n"
              "2027-01-15 00:00:02 MAILFFFF         e5 ff ff e5 |....| -436207643\n"
              "2027-01-15 00:00:02 log END\n");
    EXPECT_EQ(run("--json --grep MAILF " + path),
              R"({"source":"ring","file":")" + path +
                  R"(","time":1799971202,"local":"2027-01-15T00:00:02+0000","point":"MAILFFFF",)"
                  R"("data":"e5ffffe5","ascii":"....","number":-436207643})"
                  "\n");
    const std::string other = dir.file("acert1-3.trc");
    fs::copy_file(path, other);
    write_file(dir.file("empty"), "");
    EXPECT_EQ(run(path + " " + other + " -g MAIL0000 " + dir.file("empty")),
              "ovrm-trace: " + dir.file("empty") +
                  ": the file is empty\n"
                  "2027-01-15 00:00:00 acert1-2 MAIL0000\n"
                  "2027-01-15 00:00:00 acert1-3 MAIL0000\nexit 1");
    EXPECT_TRUE(run(dir.file("missing")).ends_with("exit 1"));
    for (const std::string& wrong : {std::string(), "--follow -l " + log + " x", "--last " + path})
        EXPECT_TRUE(run(wrong).ends_with("exit 64")) << wrong;
}

// The reply goes to the call it belongs to, and to none when two threads may have got it.
TEST_F(Reader, DoesNotGuess) {
    const auto send_in = [](const std::string& ring) {
        TraceHandle* const trace = Topen(ring.c_str(), 5, 1);
        for (const char* const point : {"SNDEMAIL0000", "smtp0dFF", "ACERTFFFF"})
            write(trace, point, point[0] == 'S' ? "" : word(0));
        Tclose(trace);
    };
    fault::Faults clock;
    clock.now = 1'799'971'200;
    const std::string log = dir.file("log"), one = dir.file("acert7-1.trc");
    write_file(log,
               "2027/01/15 00:00:00 [7] Dovrin E-Mail\r\n00:00:00 R: 220\r\n"
               "2027/01/15 00:00:00 END\r\n\r\n");
    const auto reply_comes_last = [&] {
        const std::string output = run("-l " + log + " " + one);
        return output.find("log R: 220") > output.find("ACERTFFFF");
    };
    send_in(one);
    EXPECT_FALSE(reply_comes_last());
    send_in(dir.file("acert7-2.trc"));
    EXPECT_TRUE(reply_comes_last());
}

TEST_F(Reader, FollowsFromBeforeTheBeginning) {
    std::thread writer([&] {
        ::usleep(500'000);
        TraceHandle* const trace = Topen(path.c_str(), 5, 1);
        write(trace, "SNDEMAIL0000");
        for (int i = 1000; i < 1010; ++i, ::usleep(100'000))
            for (int n = 0; n < 60; ++n) write(trace, "STEP" + std::to_string(i), "abcd");
        write(trace, "CHANGE0060", word(-99));
        write(trace, "ACERTFFFF", word(-20));
        Tclose(trace);
    });
    const std::string followed =
        run("--follow '" + dir.path() + "/acert1-*.trc' 2>&1 & pid=$!; sleep 2; kill $pid");
    writer.join();
    std::size_t at = followed.find("waiting\n");
    for (int i = 1000; i < 1010; ++i)
        for (int n = 0; n < 60; ++n)
            at = followed.find("STEP" + std::to_string(i), std::min(at, at + 1));
    EXPECT_NE(followed.find("verdict: a code that has no result: -99; result -20\n", at),
              std::string::npos);
    EXPECT_EQ(std::count(followed.begin(), followed.end(), '\n'), 605) << followed;
}

// Next to which points the library writes an entry.
constexpr struct {
    std::string_view entry;
    bool behind;
    std::string_view points;
} kPlaces[] = {
    {"log [", true, "SNDEMAIL0000"},
    {"log S: ", true, "SMTP_sFFFF smtp0eFF Pop3_0bff"},
    {"log R: ", true, "smtp0dFF smtp0fFF Pop3_0cff"},
    {"log -: ERROR: ", false,
     "getsmtp0010 smtp1060 smtp1070 smtp0e10 smtp0f05 smtp0f10 getpop0010 Pop3_0310 Pop3_0c10"},
    {"log -: ", true, "SETTIMEFFFF"},
    {"log END", true, "ACERTFFFF"},
};

// Every entry stands next to its point, and every point has a meaning and the data that go with it.
void expect_in_place(const std::string& output) {
    EXPECT_EQ(output.find("not its data"), std::string::npos) << output;
    std::vector<std::string> lines;
    std::istringstream in(output.substr(output.find("\n\n") + 2));
    constexpr std::size_t kTime = 20;
    for (std::string line; std::getline(in, line);)
        if (line[0] != ' ') lines.push_back(line.substr(kTime));
    std::size_t i = 0;  // entries of records that the ring has lost stand in front
    while (lines.at(i).starts_with("log ")) ++i;
    for (; i < lines.size(); ++i) {
        EXPECT_NE(lines[i].find(' '), std::string::npos) << "no meaning: " << lines[i];
        const auto* const place =
            std::find_if(std::begin(kPlaces), std::end(kPlaces),
                         [&](const auto& row) { return lines[i].starts_with(row.entry); });
        if (place == std::end(kPlaces)) continue;
        const std::string& next = lines.at(place->behind ? i - 1 : i + 1);
        EXPECT_NE(place->points.find(next.substr(0, next.find(' '))), std::string::npos)
            << lines[i] << " at " << next;
        EXPECT_FALSE(place->behind && i + 1 < lines.size() &&
                     lines[i + 1].find(" end: receiving a reply") != std::string::npos)
            << lines[i] << " within a reply";
    }
}

// The first row of the script that fits a command changes the server's reply.
const struct {
    Kind kind;
    Script changes;
    const char* verdict;
} kServerFaults[] = {
    {kPartial, {{kBody, "250 kept\r\n"}}, "sent in 4 pieces; the server said: 250 kept; result 0"},
    {kPop, {{kBody, "250 kept\r\n"}}, "sent; the server said: 250 kept; result 0"},
    {kAuth,
     {{"dXNlci", "535 no\r\n"}},
     "sent, but without SMTP AUTH: the answer of AUTH CRAM-MD5 was refused: 535 no; result 2"},
    {kHelo, {}, "sent, but without SMTP AUTH: the server does not know EHLO; result 2"},
    {kPartial,
     {{"RCPT", "", Then::kStall}},
     "RCPT TO:<ann@example.test>: no answer within 300 seconds (piece 1 of 4); result -4"},
    {kPlain,
     {{"RCPT", "550 5.1.1 user unknown\r\n"}},
     "RCPT TO:<ann@example.test> was refused: 550 5.1.1 user unknown; result -6"},
    {kPrepared, {{"", "554-not\r\n554 no\r\n"}}, "the greeting is a refusal: 554 no; result -6"},
    {kPrepared,
     {{kBody, "", Then::kClose}},
     "the end of the message: the server closed the connection; the server may or may not have it; "
     "result -7"},
    {kPop, {{"PASS", "-ERR no\r\n"}}, "the POP3 password was refused: -ERR no; result -15"},
    {kPop,
     {{"STAT", "", Then::kClose}},
     "STAT on the POP3 server: the server closed the connection; result -16"},
    {kPop, {{"", "", Then::kStall}}, "the POP3 greeting: no answer within 60 seconds; result -17"},
    {kAuth,
     {{"dXNlci", "535 no\r\n"}, {"MAIL", "530 log in\r\n"}},
     "MAIL FROM:<bob@example.test> was refused: 530 log in; before that: the answer of AUTH "
     "CRAM-MD5 was refused: 535 no; result -25"},
    {kAuth,
     {{"EHLO", "250 hi\r\n"}, {"MAIL", "530 log in\r\n"}},
     "MAIL FROM:<bob@example.test> was refused: 530 log in; before that: SMTP AUTH: the server "
     "offers none of the mechanisms allowed; result -26"},
};

// A call of the machine fails when it is about that text, or the request is another.
const struct {
    Kind kind;
    const char* call;
    const char* about;
    int error;
    const char* verdict;
    void (*change)(SampleMail&) = [](SampleMail&) {};
} kLocalFaults[] = {
    {kEuc, "iconv_open", "", EINVAL,
     "sent, but subject or text are not converted: this system has no converter from EUC-JP to "
     "Shift_JIS; result 1"},
    {kPlain, "", "", 0, "the split size is not 10 to 100 KiB: 7; result -1",
     [](SampleMail& mail) { mail.split.lSplitSize = 7; }},
    {kPartial, "calloc", "10240", ENOMEM, "getting memory for a piece failed; result -2"},
    {kPlain, "read", "/EMT", EIO,
     "reading the body file failed: Input/output error (5); result -3"},
    {kPlain, "send", "RCPT TO:<eve", EPIPE, "RCPT TO: sending failed: Broken pipe (32); result -7",
     [](SampleMail& mail) { mail.to += ",eve@example.test"; }},
    {kPlain, "send", "QUIT", EPIPE,
     "QUIT: sending failed: Broken pipe (32); the server has the mail; result -7"},
    {kPlain, "", "", 0, "looking up the server failed: Unknown host (1); result -10",
     [](SampleMail& mail) { mail.server = "a.invalid"; }},
    {kPop, "connect", "", EHOSTUNREACH,
     "connecting to the POP3 server failed: No route to host (113); result -18"},
};

void expect_verdict(Delivery& delivery, const std::string& verdict) {
    SCOPED_TRACE(verdict);
    for (const char* const place : {kTraceDir, kLogDir})
        for (const std::string& path : paths_in(place)) fs::remove(path);
    delivery.run();
    const std::string output = run("--last");
    expect_in_place(output);
    std::string said = output.substr(20, output.find('\n') - 20);
    // Whom a command would have named that could not be sent is known with every detail only.
    constexpr std::string_view kUnsent = ":<eve@example.test>";
    if (said.find(kUnsent) != said.npos) said.erase(said.find(kUnsent), kUnsent.size());
    EXPECT_EQ(said, "verdict: " + verdict);
}

TEST_F(Reader, SaysWhatBecameOfASend) {
    for (const int level : {1, 2}) {
        set_logs(20, level);
        for (const auto& [kind, changes, verdict] : kServerFaults) {
            Delivery delivery(kind, changes, changes);
            fault::clear();
            expect_verdict(delivery, verdict);
        }
        for (const auto& [kind, call, about, error, verdict, change] : kLocalFaults) {
            std::optional<EucLocale> locale;
            if (kind == kEuc && !locale.emplace().is_set()) continue;
            Delivery delivery(kind);
            change(delivery.mail);
            fault::fail_on(call, about, error);
            expect_verdict(delivery, verdict);
        }
    }
}

}  // namespace

// Lines, sends, budgets and connections, with the system calls under them failing on request.
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>

#include "smtp.h"
#include "smtp/transport.hpp"
#include "support/net_faults.hpp"
#include "support/scripted_server.hpp"

namespace {

using namespace support;

// A connected pair of which the test is both ends, and a running budget.
struct Pair : Faults {
    Pair() {
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        SMTP_SetTimeOut(10);
        SMTP_SetStartTime();
    }
    ~Pair() {
        for (const int fd : ends) ::close(fd);
    }
    void say(const std::string& bytes) {
        EXPECT_EQ(::write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    std::string heard() {
        std::string bytes(200000, '\0');
        const ssize_t got = ::recv(ends[1], bytes.data(), bytes.size(), MSG_DONTWAIT);
        return bytes.substr(0, got > 0 ? static_cast<std::size_t>(got) : 0);
    }
    std::array<int, 2> ends{};
    std::uint32_t err = 99;
};

TEST(Receive, TakesTheLineAndNothingBehindIt) {
    Pair pair;
    pair.say("250-one\r\n250 two\r\nrest");
    std::array<char, 1028> line;
    line.fill('#');
    EXPECT_EQ(SMTP_recv(pair.ends[0], line.data(), line.size(), &pair.err), 0);
    EXPECT_EQ(std::string(line.data(), line.size()), "250-one\r\n" + std::string(1019, '\0'));
    EXPECT_EQ(SMTP_returnMessage(pair.ends[0], line.data(), line.size(), &pair.err), 0);
    EXPECT_STREQ(line.data(), "250 two\r\n");
    std::array<char, 9> rest{};
    EXPECT_EQ(::recv(pair.ends[0], rest.data(), rest.size(), MSG_DONTWAIT), 4);
}

TEST(Receive, FullBufferEndsAnUnterminatedLine) {
    for (const std::size_t length : {1026U, 1027U, 1028U}) {
        Pair pair;
        pair.say("2" + std::string(length - 1, 'x') + "\r\n");
        std::array<char, 1029> line;
        line.fill('#');
        EXPECT_EQ(SMTP_recv(pair.ends[0], line.data(), 1028, &pair.err), 0);
        EXPECT_EQ(line[1028], '#');
        EXPECT_EQ(line[1027], length == 1026 ? '\n' : length == 1027 ? '\r' : 'x');
        EXPECT_LE(pair.calls["poll"], 1);
    }
}

TEST(Receive, CallsThatFail) {
    const struct {
        const char* name;
        const char* call;
        std::size_t times;
        Outcome outcome;
        std::int32_t result;
        std::uint32_t err;
        const char* log;
    } cases[] = {
        {"interrupted wait", "poll", 50, {-1, EINTR}, 0, 0, ""},
        {"interrupted read", "recv", 50, {-1, EINTR}, 0, 0, ""},
        {"read that finds nothing", "recv", 3, {-1, EAGAIN}, 0, 0, ""},
        {"short reads", "recv", 9, {1}, 0, 0, ""},
        {"five empty reads", "recv", 5, {0}, 0, 0, ""},
        {"six empty reads", "recv", 6, {0}, -4, 0, "func=recv code=0 detail=0"},
        {"failing wait", "poll", 1, {-1, ENOMEM}, -4, ENOMEM, "func=select code=-1 detail=12"},
        {"failing read", "recv", 1, {-1, EIO}, -4, EIO, "func=recv code=-1 detail=5"},
    };
    for (const auto& [name, call, times, outcome, result, err, log] : cases) {
        SCOPED_TRACE(name);
        Pair pair;
        LogCapture capture;
        pair.say("250 ok\r\n");
        pair.plan(call, times, outcome);
        std::array<char, 1028> line;
        errno = 7;
        EXPECT_EQ(SMTP_recv(pair.ends[0], line.data(), line.size(), &pair.err), result);
        EXPECT_EQ(pair.err, err);
        EXPECT_EQ(std::string(line.data()) == "250 ok\r\n", result == 0);
        EXPECT_NE(capture.text().find(log), std::string::npos) << capture.text();
    }
}

// Two bytes that take 4 of 10 seconds each: the next wait is 10 seconds again.
TEST(Receive, EveryByteHasTheWaitOfTheLinesBeginning) {
    Pair pair;
    pair.say("25");
    pair.plan("recv", 4, {1});
    pair.plan("poll", 2, {1, 0, 4});
    const std::time_t begun = pair.now;
    std::array<char, 1028> line;
    EXPECT_EQ(SMTP_recv(pair.ends[0], line.data(), line.size(), &pair.err), -6);
    EXPECT_EQ(pair.now - begun, 4 + 4 + 10);
}

TEST(Send, CallsThatFail) {
    const struct {
        const char* name;
        std::size_t times;
        Outcome outcome;
        std::int32_t result;
        std::uint32_t err;
        const char* log;
    } cases[] = {
        {"part by part", 6, {1}, 0, 0, ""},
        {"five interruptions", 5, {-1, EINTR}, 0, 0, ""},
        {"six interruptions", 6, {-1, EINTR}, -3, EINTR, "func=send code=-1 detail=4"},
        {"five empty sends", 5, {0}, 0, 0, ""},
        {"six empty sends", 6, {0}, -3, 0, "func=send code=0 detail=0"},
        {"failure", 1, {-1, EIO}, -3, EIO, "func=send code=-1 detail=5"},
    };
    for (const auto& [name, times, outcome, result, err, log] : cases) {
        SCOPED_TRACE(name);
        Pair pair;
        LogCapture capture;
        pair.plan("send", times, outcome);
        errno = 7;
        EXPECT_EQ(SMTP_send(pair.ends[0], "DATA\r\n", 6, &pair.err), result);
        EXPECT_EQ(pair.err, err);
        EXPECT_EQ(pair.heard(), result == 0 ? "DATA\r\n" : "");
        EXPECT_NE(capture.text().find(log), std::string::npos) << capture.text();
    }
}

TEST(Send, BudgetIsCheckedAfterAPartOnly) {
    for (const Outcome outcome : {Outcome{6}, Outcome{5}, Outcome{0}}) {
        Pair pair;
        LogCapture capture;
        pair.now += 10;
        pair.plan("send", 1, outcome);
        const bool all = outcome.result == 6;
        EXPECT_EQ(SMTP_send(pair.ends[0], "DATA\r\n", 6, &pair.err), all ? 0 : -6);
        EXPECT_EQ(capture.text().find("ERROR: SMTP TIMEOUT (timer=10) send") != std::string::npos,
                  !all);
    }
}

TEST(Send, PeerThatHasGoneIsAnErrorAndNoSignal) {
    Pair pair;
    ::close(pair.ends[1]);
    EXPECT_EQ(SMTP_send(pair.ends[0], "QUIT\r\n", 6, &pair.err), -3);
    EXPECT_EQ(pair.err, static_cast<std::uint32_t>(EPIPE));
    pair.ends[1] = -1;
}

TEST(Send, PeerThatStopsReadingEndsWithTheBudget) {
    Pair pair;
    LogCapture capture;
    const std::string much(4 << 20, 'x');
    const std::time_t begun = pair.now;
    EXPECT_EQ(SMTP_send(pair.ends[0], much.data(), 4 << 20, &pair.err), -6);
    EXPECT_EQ(pair.now - begun, 10);
    EXPECT_NE(capture.text().find("ERROR: SMTP TIMEOUT (timer=10) send\r\n"), std::string::npos);
}

// Each send takes 9 of the 10 seconds that a block has.
TEST(SendBlocks, ClockRestartsAsBlocksGoOut) {
    const std::string bytes = std::string(1028, 'a') + std::string(1028, 'b') + "c";
    const std::pair<long, std::int32_t> cases[] = {{1100, 0}, {1028, 0}, {600, 0}, {400, -6}};
    for (const auto& [part, result] : cases) {
        Pair pair;
        TraceCapture trace;
        pair.now += 10;  // the first block starts the clock as well
        pair.plan("send", bytes.size() / static_cast<std::size_t>(part), {part, 0, 9});
        EXPECT_EQ(ovrmail::smtp::send_blocks(pair.ends[0], bytes, 1028, &pair.err), result) << part;
        EXPECT_EQ(pair.heard(), result == 0 ? bytes : bytes.substr(0, 800));
        EXPECT_EQ(trace.count("smtp0e05XXXX"), result == 0 ? 3 : 1);
        EXPECT_EQ(trace.count("smtp0e05XXXXcEEEE"), result == 0 ? 1 : 0);
    }
}

TEST(SendLines, EachLineIsARecordAndHasItsOwnCounts) {
    Pair pair;
    TraceCapture trace;
    const std::string text = "Date: x\r\nFrom: y\r\n\r\n";
    const std::string_view all(text);
    const std::string_view lines[] = {all.substr(0, 9), all.substr(9, 9), all.substr(18)};
    for (int line = 0; line < 2; ++line) {
        pair.plan("send", 5, {-1, EINTR});
        pair.plan("send", 1, {9});
    }
    EXPECT_EQ(ovrmail::smtp::send_lines(pair.ends[0], lines, &pair.err), 0);
    EXPECT_EQ(pair.heard(), text);
    EXPECT_EQ(trace.count("smtp0e05XXXXFrom: y\r\nEEEE"), 1);
    EXPECT_EQ(trace.count("smtp0e05"), 3);
}

TEST(Budget, Arithmetic) {
    const struct {
        std::uint32_t budget;
        long elapsed;
        std::int32_t over;
        long left;
        long began;  // relative to the start before
    } cases[] = {
        {120, 0, 0, 120, 0},       {120, 119, 0, 1, 0},   {120, 120, -6, 0, 0},
        {120, 121, -6, 0, 0},      {0, 0, -6, 0, 0},      {120, -3600, 0, 120, -3600},
        {0xFFFFFFFF, 0, -6, 0, 0}, {3600, 3599, 0, 1, 0}, {0x7FFFFFFF, 5, 0, 0x7FFFFFFA, 0},
    };
    for (const auto& row : cases) {
        Faults faults;
        SMTP_SetTimeOut(row.budget);
        SMTP_SetStartTime();
        faults.now += row.elapsed;
        timeval left{-1, -1};
        SMTP_GetSelectTimeOut(&left);
        EXPECT_EQ(left.tv_sec, row.left) << row.budget << " " << row.elapsed;
        EXPECT_EQ(left.tv_usec, 0);
        EXPECT_EQ(SMTP_CheckOverTimeOut(), row.over) << row.budget << " " << row.elapsed;
        EXPECT_EQ(g_tStartTime, 1'000'000 + row.began);
    }
}

TEST(Budget, ZoneInWholeHours) {
    const std::pair<const char*, int> zones[] = {
        {"UTC0", 0},     {"JST-9", 9},       {"EST5", -5},
        {"IST-5:30", 5}, {"NST3:30NDT", -3}, {"CET-1CEST,M3.5.0,M10.5.0/3", 1}};
    for (const auto& [zone, hours] : zones)
        for (const std::time_t now : {1'700'000'000, 1'720'000'000}) {  // winter, summer
            Faults faults;
            faults.now = now;
            ::setenv("TZ", zone, 1);
            EXPECT_EQ(SMTP_GetTimeDifference(), hours) << zone << " " << now;
        }
    ::unsetenv("TZ");
}

TEST(Connect, Attempts) {
    const struct {
        const char* name;
        const char* call;
        std::size_t times;
        Outcome outcome;
        std::int32_t result;  // 1: connected
        int calls, pauses;
        const char* log;
    } cases[] = {
        {"refused three times", "connect", 3, {-1, ECONNREFUSED}, 1, 4, 3, ""},
        {"refused five times", "connect", 5, {-1, ECONNREFUSED}, 1, 6, 5, ""},
        {"always refused",
         "connect",
         9,
         {-1, ECONNREFUSED},
         -2,
         6,
         5,
         "func=connect code=-1 detail=111"},
        {"no route", "connect", 1, {-1, ENETUNREACH}, -2, 1, 0, "func=connect code=-1 detail=101"},
        {"no socket", "socket", 1, {-1, EMFILE}, -1, 1, 0, "func=socket code=-1 detail=24"},
        {"resolver busy", "gethostbyname_r", 4, {0, TRY_AGAIN}, 1, 5, 4, ""},
        {"resolver always busy",
         "gethostbyname_r",
         5,
         {0, TRY_AGAIN},
         -5,
         5,
         4,
         "func=gethostbyname_r code=0 detail=2"},
        {"unknown host",
         "gethostbyname_r",
         1,
         {0, HOST_NOT_FOUND},
         -5,
         1,
         0,
         "func=gethostbyname_r code=0 detail=1"},
        {"entry too large",
         "gethostbyname_r",
         1,
         {ERANGE, NETDB_INTERNAL},
         -5,
         1,
         0,
         "func=gethostbyname_r code=0 detail=-1"},
    };
    ScriptedServer server(friendly(), {.any_order = true});
    for (const auto& [name, call, times, outcome, result, calls, pauses, log] : cases) {
        SCOPED_TRACE(name);
        Faults faults;
        LogCapture capture;
        faults.plan(call, times, outcome);
        std::uint32_t err = 99;
        const int fd = SMTP_connect("localhost", server.port(), &err);
        EXPECT_EQ(fd >= 0 ? 1 : fd, result);
        EXPECT_EQ(err, fd >= 0 ? 99U : static_cast<std::uint32_t>(outcome.error));
        EXPECT_EQ(faults.calls[call], calls);
        EXPECT_EQ(faults.calls["sleep"], pauses);
        EXPECT_NE(capture.text().find(log), std::string::npos) << capture.text();
        if (fd >= 0) ::close(fd);
    }
}

TEST(Connect, PortsAndAddresses) {
    const struct {
        const char* name;
        std::uint32_t port;
        std::size_t unknown_services;
        int wanted_port;
        std::size_t asked;
        int lookups;
    } cases[] = {
        {"127.0.0.1", 4711, 0, 4711, 0, 0},
        {"127.1", 65535, 0, 65535, 0, 0},
        {"127.0.0.1", 0, 2, 25, 2, 0},
        {"localhost", 4711, 0, 4711, 0, 1},
    };
    for (const auto& row : cases) {
        Faults faults;
        faults.plan("getservbyname_r", row.unknown_services, {ENOENT});
        faults.plan("connect", 1, {-1, EHOSTUNREACH});
        EXPECT_EQ(SMTP_connect(row.name, row.port, nullptr), -2);
        EXPECT_EQ(ntohs(faults.peer.sin_port), row.wanted_port) << row.name;
        EXPECT_EQ(ntohl(faults.peer.sin_addr.s_addr), INADDR_LOOPBACK);
        EXPECT_EQ(faults.services.size(), row.asked);
        EXPECT_EQ(faults.calls["gethostbyname_r"], row.lookups);
    }
    Faults faults;  // all ones is a name
    faults.plan("gethostbyname_r", 1, {0, HOST_NOT_FOUND});
    EXPECT_EQ(SMTP_connect("255.255.255.255", 25, nullptr), -5);
    EXPECT_EQ(SMTP_connect(nullptr, 25, nullptr), -5);
}

TEST(Connect, DescriptorsAboveAThousand) {
    rlimit many{};
    ::getrlimit(RLIMIT_NOFILE, &many);
    many.rlim_cur = 4096;
    if (::setrlimit(RLIMIT_NOFILE, &many) != 0) GTEST_SKIP() << "may not open 4,096 files";
    ScriptedServer server(friendly(), {.any_order = true});
    const int low = SMTP_connect("127.0.0.1", server.port(), nullptr);
    const int high = ::dup2(low, 2000);
    EXPECT_EQ(SMTP_initialize(high, nullptr, nullptr), 0);
    EXPECT_EQ(SMTP_QUIT(high, nullptr), 0);
    ::close(low);
    ::close(high);
    EXPECT_EQ(server.commands().size(), 2U);
}

TEST(Arguments, NothingCrashes) {
    Faults faults;
    LogCapture capture;
    std::uint32_t err = 0;
    std::array<char, 4> small{};
    EXPECT_EQ(SMTP_recv(-1, small.data(), 4, &err), -4);
    EXPECT_EQ(err, static_cast<std::uint32_t>(EBADF));
    EXPECT_NE(capture.text().find("func=select code=-1 detail=9"), std::string::npos);
    EXPECT_EQ(SMTP_recv(0, nullptr, 4, nullptr), -4);
    EXPECT_EQ(SMTP_recv(0, small.data(), 0, nullptr), -4);
    EXPECT_EQ(SMTP_send(-1, "x", 1, nullptr), -3);
    EXPECT_EQ(SMTP_send(0, nullptr, 1, nullptr), -3);
    EXPECT_EQ(SMTP_send(0, "x", -1, nullptr), -3);
    SMTP_GetSmtpSvResponce(nullptr);
    SMTP_SetTimeOutInfo(nullptr);
    SMTP_GetSelectTimeOut(nullptr);
}

}  // namespace

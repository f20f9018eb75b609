// POP before SMTP against a scripted server.
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "pop3.h"
#include "support/net_faults.hpp"
#include "support/scripted_server.hpp"

namespace {

using namespace support;

struct Ended {
    std::int32_t login = 1, stat = 1, logout = 1;  // 1: not reached
    bool operator==(const Ended&) const = default;
};
void PrintTo(const Ended& ended, std::ostream* out) {
    *out << ended.login << " " << ended.stat << " " << ended.logout;
}

Ended run_session(std::uint16_t port, char* text, std::uint32_t* err) {
    const int sock = Pop3_Connect("127.0.0.1", port, err, g_trace);
    Ended ended;
    ended.login = Pop3_Login(sock, "tim", "secret", text, err, g_trace);
    if (ended.login == 0) ended.stat = Pop3_STAT(sock, text, err, g_trace);
    if (ended.stat == 0) ended.logout = Pop3_Logout(sock, text, err, g_trace);
    ::close(sock);
    return ended;
}

TEST(Pop3, Sessions) {
    const std::string longest = "-ERR " + std::string(300, 'x') + "\r\n";
    const std::string endless = "+OK" + std::string(1024, 'x');
    const struct {
        const char* name;
        Script changes;
        Ended wanted;
        std::string text;
        const char* log;
    } cases[] = {
        {"accepted", {}, {0, 0, 0}, "", "S: QUIT\r\n"},
        {"bare +OK", {{"USER", "+OK\r\n"}}, {0, 0, 0}, "", "S: ******\r\n"},
        {"LF ends a line", {dribble({"USER", "+OK \n"})}, {0, 0, 0}, "", "R: +OK \n"},
        {"greeting", {{"", "-ERR busy\r\n"}}, {-2}, "-ERR busy\r\n", "R: -ERR busy\r\n"},
        {"greeting of garbage", {{"", "220 hi\r\n"}}, {-2}, "220 hi\r\n", ""},
        {"shortest greeting", {{"", "+OK\n"}}, {0, 0, 0}, "", ""},
        {"user", {{"USER tim\r\n", "-ERR who\r\n"}}, {-3}, "-ERR who\r\n", ""},
        {"password", {{"PASS secret\r\n", "+ok\r\n"}}, {-4}, "+ok\r\n", ""},
        {"STAT", {{"STAT\r\n", longest}}, {0, -5}, longest.substr(0, 255), ""},
        {"QUIT", {{"QUIT\r\n", "-ERR\r\n"}}, {0, 0, -8}, "-ERR\r\n", ""},
        {"line of 1,027 bytes and more", {{"USER", endless + "-ERR\r\n"}}, {-4}, "-ERR\r\n", ""},
        {"silent",
         {{"STAT", "", Then::kStall}},
         {0, -17},
         "",
         "ERROR: POP TIMEOUT (timer=60) recv\r\n"},
        {"closed", {{"STAT", "+O", Then::kClose}}, {0, -1}, "", "func=recv code=0 detail=0\r\n"},
        {"reset", {{"PASS", "", Then::kReset}}, {-1}, "", "func=recv code=-1 detail=104\r\n"},
    };
    for (const auto& [name, changes, wanted, text, log] : cases) {
        SCOPED_TRACE(name);
        Faults faults;
        LogCapture capture;
        TraceCapture trace;
        Script rows = changes;
        const Script friendly = {{"", "+OK hi\r\n"},
                                 {"USER", "+OK\r\n"},
                                 {"PASS", "+OK\r\n"},
                                 {"STAT", "+OK 0 0\r\n"},
                                 {"QUIT", "+OK\r\n"}};
        rows.insert(rows.end(), friendly.begin(), friendly.end());
        ScriptedServer server(rows, {.any_order = true});
        std::array<char, 257> kept;
        kept.fill('#');
        std::uint32_t err = 0;
        errno = 0;
        EXPECT_EQ(run_session(server.port(), kept.data(), &err), wanted);
        EXPECT_EQ(std::string(kept.data()), text);
        EXPECT_EQ(kept[256], '#');
        EXPECT_EQ(err, std::string(name) == "reset" ? static_cast<std::uint32_t>(ECONNRESET) : 0U);
        EXPECT_NE(capture.text().find(log), std::string::npos) << capture.text();
        EXPECT_EQ(capture.text().find("secret"), std::string::npos);
        EXPECT_EQ(trace.count("secret"), 0);
        EXPECT_GT(trace.count("Pop3_0400"), 0);
        EXPECT_EQ(server.problem(), "");
    }
}

// Two bytes that take 20 seconds each: the time-out bounds the line, not each of its bytes.
TEST(Pop3, TimeOutBoundsTheLine) {
    Faults faults;
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    ASSERT_EQ(::write(ends[1], "+O", 2), 2);
    Pop3_SetTimeOut(60, nullptr);
    faults.plan("recv", 4, {1});
    faults.plan("poll", 2, {1, 0, 20});
    const std::time_t begun = faults.now;
    EXPECT_EQ(Pop3_STAT(ends[0], nullptr, nullptr, nullptr), -17);
    EXPECT_EQ(faults.now - begun, 60);
    for (const int fd : ends) ::close(fd);
}

TEST(Pop3, CallsThatFail) {
    const struct {
        const char* name;
        const char* call;
        std::size_t times;
        Outcome outcome;
        std::int32_t result;
        const char* log;
    } cases[] = {
        {"interrupted", "send", 50, {-1, EINTR}, 0, ""},
        {"part by part", "send", 6, {1}, 0, ""},
        {"empty send", "send", 1, {0}, -1, "func=send code=0 detail=0"},
        {"failing send", "send", 1, {-1, EPIPE}, -1, "func=send code=-1 detail=32"},
        {"interrupted wait", "poll", 50, {-1, EINTR}, 0, ""},
        {"failing wait", "poll", 1, {-1, ENOMEM}, -1, "func=select code=-1 detail=12"},
        {"interrupted read", "recv", 50, {-1, EINTR}, 0, ""},
        {"five empty reads", "recv", 5, {0}, 0, ""},
        {"six empty reads", "recv", 6, {0}, -1, "func=recv code=0 detail=0"},
        {"failing read", "recv", 1, {-1, EIO}, -1, "func=recv code=-1 detail=5"},
    };
    for (const auto& [name, call, times, outcome, result, log] : cases) {
        SCOPED_TRACE(name);
        Faults faults;
        LogCapture capture;
        std::array<int, 2> ends{};
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        ASSERT_EQ(::write(ends[1], "+OK\r\n+OK\r\n", 10), 10);
        faults.plan(call, times, outcome);
        errno = 7;
        EXPECT_EQ(Pop3_STAT(ends[0], nullptr, nullptr, nullptr), result);
        EXPECT_NE(capture.text().find(log), std::string::npos) << capture.text();
        for (const int fd : ends) ::close(fd);
    }
}

TEST(Pop3, Connect) {
    const struct {
        const char* name;
        const char* call;
        std::size_t times;
        Outcome outcome;
        std::int32_t result;
        int calls, pauses;
    } cases[] = {
        {"always refused", "connect", 9, {-1, ECONNREFUSED}, -2, 7, 6},
        {"no route", "connect", 1, {-1, ENETUNREACH}, -2, 1, 0},
        {"no socket", "socket", 1, {-1, EMFILE}, -1, 1, 0},
        {"resolver always busy", "gethostbyname_r", 5, {0, TRY_AGAIN}, -11, 5, 4},
        {"unknown host", "gethostbyname_r", 1, {0, HOST_NOT_FOUND}, -11, 1, 0},
    };
    for (const auto& [name, call, times, outcome, result, calls, pauses] : cases) {
        SCOPED_TRACE(name);
        Faults faults;
        faults.plan(call, times, outcome);
        faults.plan("getservbyname_r", 1, {ENOENT});
        std::uint32_t err = 99;
        EXPECT_EQ(Pop3_Connect("localhost", 0, &err, nullptr), result);
        EXPECT_EQ(err, static_cast<std::uint32_t>(outcome.error));
        EXPECT_EQ(faults.calls[call], calls);
        EXPECT_EQ(faults.calls["sleep"], pauses);
        EXPECT_EQ(ntohs(faults.peer.sin_port), result == -2 ? 110 : 0);
    }
}

}  // namespace

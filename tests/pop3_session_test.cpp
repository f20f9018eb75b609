// POP before SMTP against a scripted server.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "pop3.h"
#include "support/fault.hpp"
#include "support/scripted_server.hpp"
#include "support/support.hpp"

namespace {

using namespace support;
using namespace fault;

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

}  // namespace

// Lines, sends, budgets and connections, with the system calls under them failing on request.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <tuple>
#include <utility>

#include "pop3.h"
#include "smtp.h"
#include "smtp/transport.hpp"
#include "support/fault.hpp"
#include "support/scripted_server.hpp"
#include "support/support.hpp"

namespace {

using namespace support;
using namespace fault;

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

// Later lines of a reply were seen with the first: they are not looked at again, but still taken
// line by line, whatever interrupts that.
TEST(Receive, LinesSeenAheadAreTakenOneByOne) {
    const struct {
        std::size_t times;
        Outcome outcome;
        int calls;
    } cases[] = {{0, {0}, 4}, {4, {1}, 8}, {9, {-1, EINTR}, 14}, {5, {0}, 10}};
    for (const auto& c : cases) {
        Pair pair;
        pair.say("250-one\r\n250-AUTH\r\n250 two\r\n220 rest\r\nmore");
        pair.plan("recv", c.times, c.outcome);
        std::array<char, 1028> line;
        line.fill('#');
        EXPECT_EQ(SMTP_returnMessage(pair.ends[0], line.data(), line.size(), &pair.err), 0);
        EXPECT_EQ(std::string(line.data(), line.size()), "250 two\r\n" + std::string(1019, '\0'));
        EXPECT_LE(pair.calls["recv"], c.calls) << c.times;
        EXPECT_EQ(SMTP_recv(pair.ends[0], line.data(), line.size(), &pair.err), 0);
        EXPECT_STREQ(line.data(), "220 rest\r\n");
        EXPECT_EQ(::recv(pair.ends[0], line.data(), line.size(), MSG_DONTWAIT), 4);
    }
}

std::int32_t receive_line(Pair& pair) {
    std::array<char, 1028> line;
    const std::int32_t rc = SMTP_recv(pair.ends[0], line.data(), line.size(), &pair.err);
    EXPECT_EQ(std::string(line.data()) == "+OK 2\r\n", rc == 0);
    return rc;
}
std::int32_t send_line(Pair& pair) {
    const std::int32_t rc = SMTP_send(pair.ends[0], "DATA\r\n", 6, &pair.err);
    EXPECT_EQ(pair.heard(), rc == 0 ? "DATA\r\n" : "");
    return rc;
}
std::int32_t pop_command(Pair& pair) {
    return Pop3_STAT(pair.ends[0], nullptr, &pair.err, nullptr);
}

TEST(Calls, Fail) {
    const struct {
        std::int32_t (*act)(Pair&);
        const char* call;
        std::size_t times;
        Outcome outcome;
        std::int32_t result;
        const char* log;
    } cases[] = {
        {receive_line, "poll", 50, {-1, EINTR}, 0, ""},
        {receive_line, "recv", 3, {-1, EAGAIN}, 0, ""},
        {receive_line, "recv", 5, {0}, 0, ""},
        {receive_line, "recv", 6, {0}, -4, "func=recv code=0 detail=0"},
        {receive_line, "poll", 1, {-1, ENOMEM}, -4, "func=select code=-1 detail=12"},
        {receive_line, "recv", 1, {-1, EIO}, -4, "func=recv code=-1 detail=5"},
        {send_line, "send", 5, {-1, EINTR}, 0, ""},
        {send_line, "send", 6, {-1, EINTR}, -3, "func=send code=-1 detail=4"},
        {send_line, "send", 5, {0}, 0, ""},
        {send_line, "send", 6, {0}, -3, "func=send code=0 detail=0"},
        {send_line, "send", 1, {-1, EIO}, -3, "func=send code=-1 detail=5"},
        {pop_command, "poll", 50, {-1, EINTR}, 0, ""},
        {pop_command, "recv", 5, {0}, 0, ""},
        {pop_command, "recv", 6, {0}, -1, "func=recv code=0 detail=0"},
        {pop_command, "poll", 1, {-1, ENOMEM}, -1, "func=select code=-1 detail=12"},
        {pop_command, "recv", 1, {-1, EIO}, -1, "func=recv code=-1 detail=5"},
        {pop_command, "send", 50, {-1, EINTR}, 0, ""},
        {pop_command, "send", 1, {0}, -1, "func=send code=0 detail=0"},
        {pop_command, "send", 1, {-1, EPIPE}, -1, "func=send code=-1 detail=32"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.call + std::string(" ") + std::to_string(row.times) + row.log);
        Pair pair;
        LogCapture log;
        pair.say("+OK 2\r\n");
        pair.plan(row.call, row.times, row.outcome);
        errno = 7;
        EXPECT_EQ(row.act(pair), row.result);
        const auto error = static_cast<std::uint32_t>(row.outcome.error);
        EXPECT_TRUE(row.result == 0 || pair.err == error) << pair.err;
        EXPECT_NE(log.text().find(row.log), std::string::npos) << log.text();
        EXPECT_EQ(log.text().find("ERROR") == std::string::npos, row.result == 0);
    }
}

TEST(Calls, EmptyReadsCountInARow) {
    for (auto* const act : {receive_line, pop_command}) {
        Pair pair;
        pair.say("+OK 2\r\n");
        for (int times = 0; times < 3; ++times) {
            pair.plan("recv", 5, {0});
            pair.plan("recv", 2, {1});
        }
        EXPECT_EQ(act(pair), 0);
    }
}

// A byte after 4 of 10 seconds, something else, and then silence. SMTP: every wait is what was left
// when the line began or was interrupted. POP3: the time-out bounds the line.
TEST(Calls, WaitsWithinALine) {
    const std::tuple<std::int32_t (*)(Pair&), Outcome, std::int32_t, int> cases[] = {
        {receive_line, {1, 0, 4}, -6, 4 + 4 + 10},
        {receive_line, {-1, EINTR, 4}, -6, 10},
        {pop_command, {1, 0, 4}, -17, 10},
        {pop_command, {-1, EINTR, 4}, -17, 10},
        {pop_command, {1, 0, -100}, -17, 4 - 100 + 10},  // the clock is set back
    };
    for (const auto& [act, second, result, seconds] : cases) {
        Pair pair;
        Pop3_SetTimeOut(10, nullptr);
        pair.say("+O");
        pair.plan("recv", 4, {1});
        pair.plan("poll", 1, {1, 0, 4});
        pair.plan("poll", 1, second);
        const std::time_t begun = pair.now;
        EXPECT_EQ(act(pair), result);
        EXPECT_EQ(pair.now - begun, seconds);
    }
    Pop3_SetTimeOut(60, nullptr);
}

TEST(Send, BudgetIsCheckedAfterAPartOnly) {
    for (const Outcome outcome : {Outcome{6}, Outcome{5}, Outcome{0}}) {
        Pair pair;
        pair.now += 10;
        pair.plan("send", 1, outcome);
        EXPECT_EQ(SMTP_send(pair.ends[0], "DATA\r\n", 6, &pair.err), outcome.result == 6 ? 0 : -6);
    }
    Pair pair;  // that has gone is an error, and no signal
    ::close(std::exchange(pair.ends[1], -1));
    EXPECT_EQ(SMTP_send(pair.ends[0], "QUIT\r\n", 6, &pair.err), -3);
    EXPECT_EQ(pair.err, static_cast<std::uint32_t>(EPIPE));
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

// Replies lie ready, but every read takes 5 seconds, and a line takes two, or one when it was seen
// with the line before: at the end the clock has run for the last line alone, on the budget of the
// step.
TEST(Budget, OfEveryStep) {
    static const MailAuthAccount kAccount{MAIL_MECH_LOGIN, "tim", "secret"};
    static const MailEntry kAuth{MAIL_AUTH_SMTP, 0, &kAccount};
    const auto open = [](int sock) { return SMTP_initialize(sock, nullptr, nullptr); };
    const struct {
        const char* replies;
        std::int32_t (*act)(int sock);
        std::uint32_t budget;
        int elapsed = 10;
    } cases[] = {
        {"220 a\r\n250-b\r\n250-c\r\n250 d\r\n", open, 10, 5},
        {"220 a\r\n250 b\r\n", open, 10},
        {"220 a\r\n502 b\r\n250 c\r\n", open, 10},
        {"220 a\r\n250 AUTH LOGIN\r\n334 b\r\n334 c\r\n235 d\r\n",
         [](int sock) { return SMTP_initialize(sock, &kAuth, nullptr); }, 10},
        {"250 a\r\n250 b\r\n250 c\r\n",
         [](int sock) { return SMTP_MAIL(sock, "a", "b,c", nullptr); }, 302},
        {"354 a\r\n", [](int sock) { return SMTP_startData(sock, nullptr); }, 121},
        {"250 a\r\n", [](int sock) { return SMTP_endData(sock, nullptr); }, 601},
        {"250 a\r\n", [](int sock) { return SMTP_RSET(sock, nullptr); }, 10},
        {"221 a\r\n", [](int sock) { return SMTP_QUIT(sock, nullptr); }, 300},
    };
    const MailTimeout budgets{300, 301, 302, 121, 181, 601};
    SMTP_SetTimeOutInfo(&budgets);
    for (const auto& row : cases) {
        Pair pair;
        pair.say(row.replies);
        pair.plan("recv", 20, {2000, 0, 5});
        pair.now += 3;
        EXPECT_EQ(row.act(pair.ends[0]), 0) << row.replies;
        EXPECT_EQ(g_ulTimeOut, row.budget) << row.replies;
        EXPECT_EQ(pair.now - g_tStartTime, row.elapsed) << row.replies;
    }
}

struct Client {
    const char* name;
    int (*connect)(const char* host, std::uint32_t port, std::uint32_t* err);
    int attempts, unknown_host, default_port;
    std::vector<std::string> services;
};
const Client kClients[] = {
    {"SMTP", SMTP_connect, 6, -5, 25, {"SMTP", "smtp"}},
    {"POP3",
     [](auto host, auto port, auto err) { return Pop3_Connect(host, port, err, nullptr); },
     7,
     -11,
     110,
     {"pop3"}},
};

TEST(Connect, Attempts) {
    constexpr int kAll = 99;  // attempts
    const struct {
        const char* call;
        std::size_t times;
        Outcome outcome;
        std::int32_t result;  // 1: connected, kAll: the client's code for an unknown host
        int calls;
        const char* log;
    } cases[] = {
        {"connect", 3, {-1, ECONNREFUSED}, 1, 4, ""},
        {"connect", 5, {-1, ECONNREFUSED}, 1, 6, ""},
        {"connect", 9, {-1, ECONNREFUSED}, -2, kAll, "func=connect code=-1 detail=111"},
        {"connect", 1, {-1, ENETUNREACH}, -2, 1, "func=connect code=-1 detail=101"},
        {"socket", 1, {-1, EMFILE}, -1, 1, "func=socket code=-1 detail=24"},
        {"gethostbyname_r", 4, {0, TRY_AGAIN}, 1, 5, ""},
        {"gethostbyname_r", 9, {0, TRY_AGAIN}, kAll, 5, "func=gethostbyname_r code=0 detail=2"},
        {"gethostbyname_r", 1, {0, HOST_NOT_FOUND}, kAll, 1, "hostbyname_r code=0 detail=1"},
        {"gethostbyname_r", 1, {ERANGE, NETDB_INTERNAL}, kAll, 1, "code=0 detail=-1"},
    };
    ScriptedServer server(friendly(), {.any_order = true});
    for (const Client& client : kClients)
        for (const auto& row : cases) {
            SCOPED_TRACE(std::string(client.name) + row.call + row.log);
            Faults faults;
            LogCapture log;
            faults.plan(row.call, row.times, row.outcome);
            std::uint32_t err = 99;
            const int fd = client.connect("localhost", server.port(), &err);
            EXPECT_EQ(fd >= 0 ? 1 : fd, row.result == kAll ? client.unknown_host : row.result);
            EXPECT_EQ(err, fd >= 0 ? 99U : static_cast<std::uint32_t>(row.outcome.error));
            const int calls = row.calls == kAll ? client.attempts : row.calls;
            EXPECT_EQ(faults.calls[row.call], calls);
            EXPECT_EQ(faults.calls["sleep"], calls - 1);
            EXPECT_NE(log.text().find(row.log), std::string::npos) << log.text();
            if (fd >= 0) ::close(fd);
        }
}

TEST(Connect, PortsAndAddresses) {
    for (const Client& client : kClients) {
        const std::tuple<const char*, std::uint32_t, int, int> cases[] = {
            {"127.0.0.1", 4711, 4711, 0},
            {"127.1", 65535, 65535, 0},
            {"127.0.0.1", 0, client.default_port, 0},
            {"localhost", 4711, 4711, 1},
        };
        for (const auto& [host, port, wanted, lookups] : cases) {
            Faults faults;
            faults.plan("getservbyname_r", 2, {ENOENT});
            faults.plan("connect", 1, {-1, EHOSTUNREACH});
            EXPECT_EQ(client.connect(host, port, nullptr), -2);
            EXPECT_EQ(ntohs(faults.peer.sin_port), wanted) << host;
            EXPECT_EQ(ntohl(faults.peer.sin_addr.s_addr), INADDR_LOOPBACK);
            EXPECT_EQ(faults.services, port == 0 ? client.services : std::vector<std::string>());
            EXPECT_EQ(faults.calls["gethostbyname_r"], lookups);
        }
        Faults faults;  // all ones is a name
        faults.plan("gethostbyname_r", 1, {0, HOST_NOT_FOUND});
        EXPECT_EQ(client.connect("255.255.255.255", 25, nullptr), client.unknown_host);
        EXPECT_EQ(client.connect(nullptr, 25, nullptr), client.unknown_host);
    }
}

// A small write goes out at once, and a child of the host does not inherit the connection.
TEST(Connect, SocketOptions) {
    ScriptedServer server(friendly(), {.any_order = true});
    for (const Client& client : kClients) {
        const int fd = client.connect("127.0.0.1", server.port(), nullptr);
        int no_delay = 0;
        socklen_t size = sizeof no_delay;
        EXPECT_EQ(::getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &no_delay, &size), 0);
        EXPECT_EQ(no_delay, 1);
        EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC);
        ::close(fd);
    }
}

TEST(Arguments, NothingCrashes) {
    Faults faults;
    LogCapture capture;
    std::uint32_t err = 0;
    std::array<char, 4> small{};
    EXPECT_EQ(SMTP_recv(-1, small.data(), 4, &err), -4);
    EXPECT_EQ(err, static_cast<std::uint32_t>(EBADF));
    EXPECT_NE(capture.text().find("func=select code=-1 detail=9"), std::string::npos);
    for (const auto rc : {SMTP_recv(0, nullptr, 4, nullptr), SMTP_recv(0, small.data(), 0, nullptr),
                          SMTP_send(-1, "x", 1, nullptr) - 1, SMTP_send(0, nullptr, 1, nullptr) - 1,
                          SMTP_send(0, "x", -1, nullptr) - 1})
        EXPECT_EQ(rc, -4);
    SMTP_GetSmtpSvResponce(nullptr);
    SMTP_SetTimeOutInfo(nullptr);
    SMTP_GetSelectTimeOut(nullptr);
}

}  // namespace

// Lines seen ahead, waits, blocks, the clock's arithmetic, connecting, recipients. What a failing
// call and a server that misbehaves come to, mailapi_result_test tells; what any answer does,
// fuzz/reply_fuzz.cpp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <tuple>
#include <utility>

#include "pop3.h"
#include "smtp.h"
#include "smtp/blocks.hpp"
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
        CallResult outcome;
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

// A send that takes nothing, which no kernel does, and a POP3 server that is slow to read.
TEST(Send, TakesNothing) {
    const struct {
        bool is_pop;
        std::size_t times;
        CallResult outcome;
        std::int32_t result;
        const char* log;
    } cases[] = {
        {false, 5, {0}, 0, ""},
        {false, 6, {0}, -3, "func=send code=0 detail=0"},
        {true, 1, {0}, -1, "func=send code=0 detail=0"},
        {true, 50, {-1, EAGAIN}, 0, ""},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.times);
        Pair pair;
        LogCapture log;
        pair.say("+OK 2\r\n");
        pair.plan("send", row.times, row.outcome);
        EXPECT_EQ(row.is_pop ? Pop3_STAT(pair.ends[0], nullptr, &pair.err, nullptr)
                             : SMTP_send(pair.ends[0], "STAT\r\n", 6, &pair.err),
                  row.result);
        EXPECT_EQ(pair.heard(), row.result == 0 ? "STAT\r\n" : "");
        EXPECT_NE(log.text().find(row.log), std::string::npos) << log.text();
    }
}

// A wait of 10 seconds, three times interrupted after 3, ends after 10.
TEST(Wait, GoesOnAfterASignal) {
    const std::string much(1 << 20, 'x');
    const std::pair<std::int32_t, std::function<std::int32_t(Pair&)>> cases[] = {
        {-6,
         [&](Pair& pair) {
             return SMTP_recv(pair.ends[0], std::array<char, 99>{}.data(), 99, nullptr);
         }},
        {-6, [&](Pair& pair) { return SMTP_send(pair.ends[0], much.data(), 1 << 20, nullptr); }},
        {-17, [](Pair& pair) { return Pop3_STAT(pair.ends[0], nullptr, nullptr, nullptr); }},
    };
    Pop3_SetTimeOut(10, nullptr);
    for (const auto& [result, wait] : cases) {
        Pair pair;
        pair.plan("poll", 3, {-1, EINTR, 3});
        EXPECT_EQ(wait(pair), result);
        EXPECT_EQ(pair.now, 1'000'010);
    }
    Pop3_SetTimeOut(60, nullptr);
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

// Records that later ones overwrite are passed over: the ring is that of one send for each block.
TEST(SendBlocks, LeaveTheRingOfSingleSends) {
    const TempDir dir;
    for (const auto& [level, size_kb] : {std::pair{1U, 5U}, {2U, 5U}, {1U, 30U}, {2U, 300U}}) {
        for (const std::size_t size : {1028U * 180U, 1028U * 180U + 1U, 1028U * 60U, 500U}) {
            SCOPED_TRACE(testing::Message() << level << " " << size_kb << " " << size);
            const std::string bytes(size, 'b');
            std::string rings[2];
            for (const bool at_once : {true, false}) {
                Pair pair;
                const int room = 1 << 20;
                ::setsockopt(pair.ends[0], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
                const std::string path = dir.file("ring");
                std::filesystem::remove(path);
                g_trace = Topen(path.c_str(), size_kb, level);
                if (at_once) {
                    EXPECT_EQ(ovrmail::smtp::send_blocks(pair.ends[0], bytes, 1028, nullptr), 0);
                }
                for (std::size_t at = 0; !at_once && at < size; at += 1028) {
                    SMTP_SetStartTime();
                    const auto length = std::min<std::size_t>(1028, size - at);
                    SMTP_send(pair.ends[0], bytes.data() + at, static_cast<std::int32_t>(length),
                              nullptr);
                }
                Tclose(std::exchange(g_trace, nullptr));
                rings[at_once] = read_file(path);
            }
            EXPECT_TRUE(rings[0] == rings[1]);
        }
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
        CallResult outcome;
        std::int32_t result;  // 1: connected, kAll: the client's code for an unknown host
        int calls;
        const char* log;
    } cases[] = {
        {"connect", 5, {-1, ECONNREFUSED}, 1, 6, ""},
        {"connect", 9, {-1, ECONNREFUSED}, -2, kAll, "func=connect code=-1 detail=111"},
        {"connect", 1, {-1, ENETUNREACH}, -2, 1, "func=connect code=-1 detail=101"},
        {"socket", 1, {-1, EMFILE}, -1, 1, "func=socket code=-1 detail=24"},
        {"gethostbyname_r", 4, {0, TRY_AGAIN}, 1, 5, ""},
        {"gethostbyname_r", 9, {0, TRY_AGAIN}, kAll, 5, "func=gethostbyname_r code=0 detail=2"},
        {"gethostbyname_r", 1, {0, HOST_NOT_FOUND}, kAll, 1, "hostbyname_r code=0 detail=1"},
        {"gethostbyname_r", 1, {ERANGE, NETDB_INTERNAL}, kAll, 1, "code=0 detail=-1"},
    };
    ScriptedServer server(friendly());
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

// The pause between two attempts is a whole second, also when signals arrive.
TEST(Connect, InterruptedPauseGoesOn) {
    Faults faults;
    faults.plan("connect", 1, {-1, ECONNREFUSED});
    faults.plan("sleep", 1, {-1, EINTR});
    faults.plan("clock_nanosleep", 2, {EINTR});
    ScriptedServer server(friendly());
    EXPECT_GE(::close(SMTP_connect("127.0.0.1", server.port(), nullptr)), 0);
    EXPECT_EQ(faults.calls["clock_nanosleep"], 3);
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
    ScriptedServer server(friendly());
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

TEST(Session, Recipients) {
    const std::string longest(307, 'x'), sender(4089, 's'), too_long(4090, 's');
    const struct {
        const char* sender;
        std::string recipients;
        std::int32_t result;
        std::string wire;  // behind EHLO
    } cases[] = {
        {nullptr, "", 0, "MAIL FROM:<>\r\nRCPT TO:<>\r\n"},
        {"a", ",b, c,", 0,
         "MAIL FROM:<a>\r\nRCPT TO:<>\r\nRCPT TO:<b>\r\nRCPT TO:< c>\r\nRCPT TO:<>\r\n"},
        {sender.c_str(), longest, 0, "MAIL FROM:<" + sender + ">\r\nRCPT TO:<" + longest + ">\r\n"},
        {too_long.c_str(), "b", -22, ""},
        {"a", "b," + longest + "x,c", -23, "MAIL FROM:<a>\r\nRCPT TO:<b>\r\n"},
    };
    for (const auto& [from, recipients, result, wire] : cases) {
        ScriptedServer server(friendly());
        std::uint32_t err = 99;
        const int sock = SMTP_connect("127.0.0.1", server.port(), &err);
        EXPECT_EQ(SMTP_initialize(sock, nullptr, &err), 0);
        EXPECT_EQ(SMTP_MAIL(sock, from, recipients.c_str(), &err), result);
        char kept[256];
        SMTP_GetSmtpSvResponce(kept);
        EXPECT_STREQ(kept, result == 0 ? "250 ok\r\n" : "");
        EXPECT_EQ(err, 0U);
        ::close(sock);
        const std::string& all = server.received();
        EXPECT_EQ(all.substr(all.find('\n') + 1), wire);
    }
}

TEST(Session, RefusedPopCommands) {
    const std::pair<const char*, std::int32_t> cases[] = {
        {"", -2}, {"USER", -3}, {"PASS", -4}, {"STAT", -5}, {"QUIT", -8}};
    for (const auto& [command, result] : cases) {
        LogCapture log;
        ScriptedServer server(friendly_pop({{command, "-ERR no\r\n"}}));
        std::array<char, 1028> text{};
        const Faults faults;
        const int sock = Pop3_Connect("127.0.0.1", server.port(), nullptr, nullptr);
        std::int32_t rc = Pop3_Login(sock, "user", "secret", text.data(), nullptr, nullptr);
        EXPECT_EQ(log.text().find("S: ******") != std::string::npos, result < -3);
        if (rc == 0) rc = Pop3_STAT(sock, text.data(), nullptr, nullptr);
        if (rc == 0) rc = Pop3_Logout(sock, text.data(), nullptr, nullptr);
        EXPECT_EQ(rc, result);
        EXPECT_STREQ(text.data(), "-ERR no\r\n");
        ::close(sock);
    }
}

TEST(Session, EmptyHostName) {
    Faults faults;
    faults.plan("gethostname", 1, {0});
    ScriptedServer server(friendly());
    const int sock = SMTP_connect("127.0.0.1", server.port(), nullptr);
    EXPECT_EQ(SMTP_initialize(sock, nullptr, nullptr), -5);
    ::close(sock);
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

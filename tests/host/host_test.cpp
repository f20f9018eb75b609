// The library inside a host: signals in every wait, lost peers, what is left of the host's state,
// other threads and children. Calls, waits and clocks are real.
#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cfenv>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <thread>
#include <tuple>

#include "codeset.h"
#include "file_util.h"
#include "inst_info.h"
#include "mail_api.h"
#include "mail_log.h"
#include "md5.h"
#include "pop3.h"
#include "profile.h"
#include "smtp.h"
#include "support/scripted_server.hpp"
#include "support/support.hpp"
#include "trace.h"

namespace {

using namespace support;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr const char* kLocal = "127.0.0.1";
enum Road { kPlain, kAuth, kPieces, kPop };

struct Request {
    Request() : split{}, partial(0) { parts.clear(); }  // an argument error
    explicit Request(std::uint16_t port, Road road = kPlain, std::size_t attached = 0,
                     std::uint16_t pop_port = 0)
        : split{10, port}, partial(road == kPieces ? 1 : 0) {
        write_file("/etc/opt/Quorvin/trc_conf", "[ACERT]\nTRACELEVEL=2\n[LOG]\nLOGNUM=5\n");
        pop.ulPort = pop_port;
        if (road == kPop) auth = {MAIL_AUTH_POP_BEFORE_SMTP, 0, &pop};
        if (road == kAuth) auth = {MAIL_AUTH_SMTP, 0, &account};
        if (attached == 0) return;
        write_file(path, std::string(attached, 'a'));
        parts.push_back({MAIL_KIND_ATTACHMENT, 0, path.c_str()});
    }
    std::int32_t send(decltype(&OvRm_SendEMail) entry = OvRm_SendEMail) {
        return entry(&to, 1, parts.data(), static_cast<std::uint32_t>(parts.size()),
                     "bob@example.test", "Hello", kLocal, partial, &split, nullptr,
                     auth.kind != 0 ? &auth : nullptr, detail.data());
    }

    TempDir dir;
    std::string path = dir.file("attached");
    MailEntry to{MAIL_KIND_RECIPIENT, 0, "ann@example.test"};
    std::vector<MailEntry> parts{{MAIL_KIND_BODY, 0, "one\n.\ntwo\n"}};
    MailSplitOption split;
    std::uint32_t partial;
    MailAuthAccount account{MAIL_MECH_LOGIN, "user", "secret"};
    MailPopAccount pop{0, 0, "user", "secret", "127.0.0.1", 60};
    MailEntry auth{0, 0, nullptr};
    std::array<char, 256> detail{"untouched"};
};

Script smtp_rows(Script rows = {}) {
    rows.insert(rows.end(), {{"EHLO", "250-hi\r\n250 AUTH LOGIN\r\n"},
                             {"AUTH LOGIN", "334 VXNlcg==\r\n"},
                             {"dXNlcg", "334 UGFzcw==\r\n"},
                             {"c2VjcmV0", "235 ok\r\n"}});
    return friendly(rows);
}
Script pop_rows(Script rows = {}) {
    for (const char* const command : {"", "USER", "PASS", "STAT", "QUIT"})
        rows.push_back({command, "+OK 0 0\r\n"});
    return rows;
}

// A port that refuses, or takes connections and says nothing until it resets them.
struct Silence {
    explicit Silence(int backlog) {
        sockaddr_in name{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        auto* const plain = reinterpret_cast<sockaddr*>(&name);
        socklen_t size = sizeof name;
        EXPECT_EQ(::bind(fd, plain, size) | ::getsockname(fd, plain, &size), 0);
        port = ntohs(name.sin_port);
        if (backlog >= 0) ::listen(fd, backlog);
    }
    ~Silence() { end(); }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;
    void await_sender() const {
        pollfd entry{fd, POLLIN, 0};
        EXPECT_EQ(::poll(&entry, 1, 60'000), 1);
    }
    void end() {
        if (fd >= 0) ::close(std::exchange(fd, -1));
    }

    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::uint16_t port = 0;
};

// Interrupts the thread that made it every 2 ms, for at most 8 seconds: a wait that starts anew
// each time ends too late.
class Storm {
public:
    Storm() {
        fired_ = 0;
        struct sigaction action {};
        action.sa_handler = [](int) {
            fired_ = fired_ + 1;
            if (fired_ == 4000) set(0);
        };
        sigevent event{};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = SIGRTMIN;
        event._sigev_un._tid = ::gettid();
        EXPECT_EQ(::sigaction(SIGRTMIN, &action, nullptr), 0);
        EXPECT_EQ(::timer_create(CLOCK_MONOTONIC, &event, &timer_), 0);
        set(2'000'000);
    }
    ~Storm() {
        ::timer_delete(timer_);
        EXPECT_GT(fired_, 5) << "no storm";
    }
    Storm(const Storm&) = delete;
    Storm& operator=(const Storm&) = delete;

private:
    static void set(long ns) {
        const itimerspec often{{0, ns}, {0, ns}};
        ::timer_settime(timer_, 0, &often, nullptr);
    }
    static inline volatile std::sig_atomic_t fired_ = 0;
    static inline timer_t timer_{};
};

using Pair = std::array<int, 2>;  // sockets

std::int32_t silent_smtp(const Pair& pair) {
    std::array<char, 1028> line;
    return SMTP_recv(pair[0], line.data(), line.size(), nullptr);
}
std::int32_t silent_pop(const Pair& pair) { return Pop3_STAT(pair[0], nullptr, nullptr, nullptr); }
std::int32_t deaf(const Pair& pair) {
    return SMTP_send(pair[0], std::string(4 << 20, 'x').data(), 4 << 20, nullptr);
}
std::int32_t slow(const Pair& pair) {  // reads 100 KiB every 30 ms
    std::string mail, heard, block(100 << 10, '\0');
    for (int line = 0; mail.size() < 2 << 20; ++line) mail += std::to_string(line) + "\r\n";
    std::thread reader([&] {
        for (ssize_t got = 1; got > 0; heard.append(block, 0, static_cast<std::size_t>(got))) {
            std::this_thread::sleep_for(milliseconds(30));
            got = ::recv(pair[1], block.data(), block.size(), 0);
        }
    });
    const auto length = static_cast<std::int32_t>(mail.size());
    const std::int32_t rc = SMTP_send(pair[0], mail.data(), length, nullptr);
    ::shutdown(pair[0], SHUT_WR);
    reader.join();
    return rc == 0 && heard != mail ? 1 : rc;
}
std::int32_t connects(const Silence& server, int after_ms, void (*change)(int fd)) {
    std::thread later([&, change] {
        std::this_thread::sleep_for(milliseconds(after_ms));
        change(server.fd);
    });
    const int fd = SMTP_connect(kLocal, server.port, nullptr);
    later.join();
    return ::close(fd);
}
std::int32_t refusing(const Pair&) {  // twice; the pauses in between are whole seconds
    return connects(Silence(-1), 1500, [](int fd) { ::listen(fd, 1); });
}
std::int32_t crowded(const Pair&) {  // no room for a second connection at first
    const Silence server(0);
    const int first = SMTP_connect(kLocal, server.port, nullptr);
    const auto make_room = [](int fd) { ::close(::accept(fd, nullptr, nullptr)); };
    return connects(server, 300, make_room) + ::close(first);
}
std::int32_t pop_wait(const Pair&) {  // of 300 ms, between the two servers
    ScriptedServer server(smtp_rows(), {.any_order = true});
    ScriptedServer pop_server(pop_rows(), {.any_order = true});
    Request request(server.port(), kPop, 0, pop_server.port());
    request.pop.lWaitMs = 300;
    const auto begun = Clock::now();
    const std::int32_t result = request.send();
    return Clock::now() - begun < milliseconds(300) ? -1 : result;
}

TEST(Signals, EveryWaitIsTakenUpAgain) {
    const std::tuple<const char*, std::int32_t (*)(const Pair&), std::int32_t> cases[] = {
        {"silent SMTP", silent_smtp, -6},
        {"silent POP3", silent_pop, -17},
        {"deaf", deaf, -6},
        {"slow", slow, 0},
        {"refusing", refusing, 0},
        {"crowded", crowded, 0},
        {"POP wait", pop_wait, 0},
    };
    for (const auto& [name, wait, result] : cases) {
        SCOPED_TRACE(name);
        Pair pair;
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), 0);
        const Storm storm;
        Pop3_SetTimeOut(2, nullptr);
        SMTP_SetTimeOut(2);
        SMTP_SetStartTime();
        const auto begun = Clock::now();
        EXPECT_EQ(wait(pair), result);
        EXPECT_LT(Clock::now() - begun, milliseconds(7000));
        for (const int fd : pair) ::close(fd);
    }
    Pop3_SetTimeOut(60, nullptr);
}

TEST(Signals, SendEndsAsWithoutThem) {
    const std::regex changing("Date: .*|Message-Id: .*|OvWexl\\d+|id=\"[^\"]*");
    Script smtp = smtp_rows(), pop = pop_rows();
    for (Script* const script : {&smtp, &pop})
        for (Row& row : *script) row = dribble(row);
    for (const Road road : {kAuth, kPieces, kPop}) {
        std::string messages[2];
        for (const bool calm : {true, false}) {
            SCOPED_TRACE(std::to_string(road) + (calm ? " calm" : " storm"));
            ScriptedServer server(smtp, {.any_order = true, .reply_delay_ms = 10});
            ScriptedServer pop_server(pop, {.any_order = true, .reply_delay_ms = 10});
            Request request(server.port(), road, 12 << 10, pop_server.port());
            std::optional<Storm> storm;
            std::jthread busy;  // writing to the trace
            if (!calm) {
                storm.emplace();
                busy = std::jthread([](const std::stop_token& stop) {
                    for (; !stop.stop_requested(); ::usleep(1000)) {
                        if (::pthread_mutex_trylock(&g_cs) != 0) continue;
                        ::usleep(5000);
                        ::pthread_mutex_unlock(&g_cs);
                    }
                });
            }
            EXPECT_EQ(request.send(), MAIL_SENT);
            EXPECT_STREQ(request.detail.data(), "");
            for (const auto& body : server.bodies())
                messages[calm] += std::regex_replace(body, changing, "") + ".";
        }
        EXPECT_GT(messages[0].size(), 16U << 10);
        EXPECT_EQ(messages[0], messages[1]);
    }
}

// The server leaves after each reply in turn; during the body the library writes on for a while.
TEST(Signals, LostServerIsNoSigpipe) {
    ASSERT_NE(::signal(SIGPIPE, SIG_DFL), SIG_ERR);
    for (const Then end : {Then::kClose, Then::kReset})
        for (const Road road : {kAuth, kPop})
            for (Row row : road == kPop ? pop_rows() : smtp_rows()) {
                if (row.expect == "HELO" || row.expect == "RSET") continue;
                SCOPED_TRACE(row.expect + " " + row.reply);
                row.then = end;
                ScriptedServer server(smtp_rows(road == kPop ? Script() : Script{row}),
                                      {.any_order = true});
                ScriptedServer pop_server(pop_rows({row}), {.any_order = true});
                Request request(server.port(), road, 2 << 20, pop_server.port());
                const std::int32_t result = request.send();
                EXPECT_TRUE(result == MAIL_SENT || result == MAIL_E_SYSTEM ||
                            result == MAIL_E_POP_SYSTEM)
                    << result;
            }
}

// Descriptors with what they are, and their flags.
std::map<int, std::string> descriptors() {
    std::map<int, std::string> open;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const int fd = std::stoi(entry.path().filename());
        const std::string target = std::filesystem::read_symlink(entry, gone);
        if (target.find("/proc/") != std::string::npos) continue;  // the iterator's own
        open[fd] = target + (::fcntl(fd, F_GETFD) == FD_CLOEXEC ? "" : " inherited");
    }
    return open;
}

// What a process shares between its host and a library.
std::string host_state() {
    std::ostringstream state;
    std::ifstream status("/proc/self/status"), maps("/proc/self/maps");
    for (std::string line; std::getline(status, line);)
        if (std::regex_search(line, std::regex("^(SigBlk|SigIgn|SigCgt|Threads|Umask)")))
            state << line << '\n';
    for (std::string line; std::getline(maps, line);)
        if (line.find('/') != std::string::npos) state << line.substr(line.find('/')) << '\n';
    for (const auto& [fd, target] : descriptors()) state << fd << target << '\n';
    for (char** variable = environ; *variable != nullptr; ++variable) state << *variable << '\n';
    int cancel = 0;
    ::pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &cancel);
    ::pthread_setcancelstate(cancel, nullptr);
    state << std::setlocale(LC_ALL, nullptr) << std::filesystem::current_path() << cancel
          << std::fegetround() << ::fegetexcept();
    return state.str();
}

TEST(State, IsTheSameAfterASend) {
    ScriptedServer server(smtp_rows(), {.any_order = true});
    ScriptedServer refusing(smtp_rows({{"RCPT", "550 no\r\n"}}), {.any_order = true});
    ScriptedServer pop_server(pop_rows(), {.any_order = true});
    std::fesetround(FE_UPWARD);
    const mode_t mask = ::umask(037);
    const std::string before = host_state();
    for (const Road road : {kAuth, kPieces, kPop})
        for (const bool accepted : {true, false}) {
            Request request(accepted ? server.port() : refusing.port(), road, 20 << 10,
                            pop_server.port());
            EXPECT_EQ(request.send(), accepted ? MAIL_SENT : MAIL_E_REJECTED);
            // The server closes its end a moment later.
            for (int ms = 0; ms < 500 && host_state() != before; ++ms) ::usleep(1000);
            ASSERT_EQ(host_state(), before);
            EXPECT_TRUE(g_trace == nullptr && g_pLogHandle == nullptr);
        }
    ::umask(mask);
    std::fesetround(FE_TONEAREST);
}

TEST(State, NoProgramInheritsDescriptorsOfASend) {
    for (const Road road : {kPlain, kPop}) {
        Silence server(1);
        Request request(server.port, road, 0, server.port);
        const auto before = descriptors();
        std::thread sender([&] { EXPECT_LT(request.send(), 0); });
        server.await_sender();
        const auto during = descriptors();
        EXPECT_EQ(during.size(),
                  before.size() + (road == kPop ? 3 : 4));  // socket, log, ring, mail
        for (const auto& [fd, target] : during)
            EXPECT_TRUE(before.contains(fd) || !target.ends_with("inherited")) << target;
        server.end();
        sender.join();
    }
}

TEST(State, TwoThousandDescriptors) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit many{std::max<rlim_t>(limit.rlim_cur, 4096), limit.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &many) != 0) GTEST_SKIP() << "may not open 4,096 files";
    ScriptedServer server(smtp_rows(), {.any_order = true});
    ScriptedServer pop_server(pop_rows(), {.any_order = true});
    std::vector<int> open(2000);
    for (int& fd : open) fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_GT(open.back(), 1999);
    for (const Road road : {kAuth, kPop})
        EXPECT_EQ(Request(server.port(), road, 1 << 20, pop_server.port()).send(), MAIL_SENT);
    for (const int fd : open) ::close(fd);
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(State, LibraryUnloadsAfterUse) {
    ScriptedServer server(smtp_rows(), {.any_order = true});
    void* const library = ::dlopen(OVRMAIL_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << ::dlerror();
    decltype(&OvRm_SendEMail) entry = nullptr;
    void* const symbol = ::dlsym(library, "OvRm_SendEMail");
    std::memcpy(&entry, &symbol, sizeof entry);
    EXPECT_EQ(Request(server.port(), kAuth).send(entry), MAIL_SENT);
    ::dlclose(library);
    EXPECT_EQ(read_file("/proc/self/maps").find("libovrmail"), std::string::npos);
}

TEST(Threads, OfTwoThatEnterAtOnceOneSends) {
    for (int round = 0; round < 100; ++round) {
        Silence server(2);
        std::atomic<int> entered = 0, left = 0, turned_away = 0;
        std::vector<std::thread> senders;
        for (int i = 0; i < 2; ++i)
            senders.emplace_back([&] {
                Request request(server.port);
                ++entered;
                while (entered < 2) continue;
                turned_away += request.send() == MAIL_E_BUSY ? 1 : 0;
                ++left;
            });
        for (int ms = 0; left == 0 && ms < 5000; ++ms) ::usleep(1000);
        server.await_sender();
        server.end();
        for (auto& sender : senders) sender.join();
        ASSERT_EQ(turned_away, 1);
    }
}

// One of every family of functions that needs no send, on files of its own.
bool tools_work(const TempDir& dir) {
    const std::string path = dir.file("profile"), sub = dir.file("sub"), ring = dir.file("ring");
    MailProfile* const profile = Com_OpenPrivateProfile(path.c_str(), 1);
    bool all = Com_WritePrivateProfileString(profile, "S", "K", "7") > 0;
    all &= Com_GetPrivateProfileInt(profile, "S", "K", 1, path.c_str()) == 7;
    all &= Com_ClosePrivateProfile(profile, path.c_str()) == 0;

    std::array<char, 64> text{};
    std::int32_t length = 0;
    const std::int32_t converter = Cnv_open("eucJP", "SJIS");
    all &= Cnv_euctosjis(converter, 2, "\xa4\xa2", 64, text.data(), &length) == 2;
    all &= Cnv_close(converter) == 0 && std::string_view(text.data()) == "\x82\xa0";

    std::array<unsigned char, 16> digest;
    MailMd5Context context;
    MD5Init(&context);
    MD5Final(digest.data(), &context);
    MailInstInfo info{};
    std::uint32_t err = 0;
    all &= digest[0] == 0xd4 && Info_GetDovrinInstInfo(&info, &err) < 0;
    all &= CheckString_NotUpLow("ABC", "abc") == 0 && DirectryMake(sub.c_str()) >= 0;
    all &= FileClose(FileOpen((sub + "/file").c_str())) == 0 && ExecDelDir(sub.c_str(), 3) == 0;

    TraceHandle* const trace = Topen(ring.c_str(), 8, 2);
    all &= Twrite(trace, 1, "TOOLS0000", "data", 4) == 0 && Tclose(trace) == 0;
    return all && read_file(ring).find("TOOLS0000XXXXdataEEEE") != std::string::npos;
}

TEST(Threads, OthersDisturbNoSend) {
    std::atomic<bool> done = false;
    std::atomic<long> turned_away = 0;
    std::vector<std::thread> others;
    for (int i = 0; i < 2; ++i)
        others.emplace_back([&] {
            const TempDir dir;
            while (!done) {
                EXPECT_TRUE(tools_work(dir));
                Request wrong;  // an argument error while nobody sends
                if (wrong.send() != MAIL_E_BUSY) continue;
                EXPECT_STREQ(wrong.detail.data(), "untouched");
                ++turned_away;
            }
        });
    for (int mail = 0; mail < 20; ++mail) {
        ScriptedServer server(smtp_rows(), {.any_order = true, .reply_delay_ms = 1});
        Request request(server.port(), mail % 2 == 0 ? kAuth : kPieces, 20 << 10);
        std::int32_t result = MAIL_E_BUSY;
        while (result == MAIL_E_BUSY) result = request.send();
        EXPECT_EQ(result, MAIL_SENT);
        EXPECT_EQ(server.bodies().size(), mail % 2 == 0 ? 1U : 4U);
    }
    done = true;
    for (auto& other : others) other.join();
    EXPECT_GT(turned_away, 0);
}

// A child has the memory of its birth: with a send in it, it never sends; the rest works, even when
// a thread that the child does not have was writing to the trace.
TEST(Threads, ChildOfAFork) {
    const auto in_child = [](auto act) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(20);
            ::_exit(act());
        }
        int status = 0;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        return WIFEXITED(status) ? static_cast<signed char>(WEXITSTATUS(status)) : 99;
    };
    Silence server(1);
    Request request(server.port), wrong;
    const TempDir dir;
    std::thread sender([&] { EXPECT_EQ(request.send(), MAIL_E_SYSTEM); });
    server.await_sender();
    ::pthread_mutex_lock(&g_cs);
    EXPECT_EQ(in_child([&] { return wrong.send(); }), MAIL_E_BUSY);
    EXPECT_EQ(in_child([&] { return tools_work(dir) ? 0 : 1; }), 0);
    ::pthread_mutex_unlock(&g_cs);
    server.end();
    sender.join();
    EXPECT_EQ(in_child([&] { return wrong.send(); }), MAIL_E_ARGUMENT);
}

// Names of all files that the library has written, and the log.
std::string logs_and_traces() {
    std::string all;
    for (const auto& entry : std::filesystem::recursive_directory_iterator("/var/opt/Quorvin"))
        all += entry.path().string() +
               (entry.path().extension() == ".log" ? read_file(entry.path()) : "");
    return all;
}

TEST(Threads, CancelledSenderEndsItsSendFirst) {
    Silence server(1);
    Request request(server.port), wrong;
    const int descriptors = open_descriptors();
    std::atomic<int> result = 0;
    std::thread sender([&] {
        result = request.send();
        for (;;) ::pause();
    });
    server.await_sender();
    const std::string before = logs_and_traces();
    EXPECT_EQ(wrong.send(), MAIL_E_BUSY);
    EXPECT_TRUE(logs_and_traces() == before) << "of a call that is turned away";
    ::pthread_cancel(sender.native_handle());
    ::usleep(20'000);
    server.end();
    sender.join();
    EXPECT_EQ(result, MAIL_E_SYSTEM);
    EXPECT_EQ(open_descriptors(), descriptors - 1);  // the server's
    EXPECT_TRUE(std::filesystem::is_empty("/var/opt/Quorvin/tmp"));
    EXPECT_EQ(wrong.send(), MAIL_E_ARGUMENT);
}

}  // namespace

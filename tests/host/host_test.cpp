// The library inside a host: signals, what is left of the host's state, other threads and children.
// Calls, waits and clocks are real.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cfenv>
#include <clocale>
#include <csignal>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <semaphore>
#include <sstream>
#include <thread>

#include "codeset.h"
#include "file_util.h"
#include "inst_info.h"
#include "mail_log.h"
#include "profile.h"
#include "support/delivery.hpp"
#include "trace.h"

namespace {

using namespace support;

// Interrupts the thread that made it every 2 ms.
class Storm {
public:
    Storm() {
        fired_ = 0;
        struct sigaction action {};
        action.sa_handler = [](int) { fired_ = fired_ + 1; };
        sigevent event{};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = SIGRTMIN;
        event._sigev_un._tid = ::gettid();
        const itimerspec often{{0, 2'000'000}, {0, 2'000'000}};
        EXPECT_EQ(::sigaction(SIGRTMIN, &action, nullptr), 0);
        EXPECT_EQ(::timer_create(CLOCK_MONOTONIC, &event, &timer_), 0);
        EXPECT_EQ(::timer_settime(timer_, 0, &often, nullptr), 0);
    }
    ~Storm() {
        ::timer_delete(timer_);
        EXPECT_GT(fired_, 5) << "no storm";
    }
    Storm(const Storm&) = delete;
    Storm& operator=(const Storm&) = delete;

private:
    static inline volatile std::sig_atomic_t fired_ = 0;
    timer_t timer_{};
};

// Replies arrive byte by byte, and somebody else writes to the trace most of the time.
TEST(Signals, SendEndsAsWithoutThem) {
    set_logs(5, 2);
    for (const Kind kind : {kPartial, kPop}) {
        std::string messages[2];
        for (const bool calm : {true, false}) {
            SCOPED_TRACE(name_of(kind) + std::string(calm ? ", calm" : ", storm"));
            Script slow{{"MAIL", "250 ok\r\n"}, {"DATA", "354 go\r\n"}, {kBody, "250 kept\r\n"}};
            for (Row& row : slow) row.part = 1;
            Delivery delivery(kind, slow, {{"PASS", "+OK\r\n", Then::kGoOn, 1}}, Runs::kInThread);
            delivery.mail.pop.lWaitMs = 50;
            std::optional<Storm> storm;
            std::jthread busy;
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
            EXPECT_EQ(delivery.mail.send(), MAIL_SENT);
            EXPECT_STREQ(delivery.mail.detail.data(), "");
            messages[calm] = delivery.message();
        }
        EXPECT_GT(messages[0].size(), 4'000U);
        EXPECT_EQ(messages[0], messages[1]);
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
        for (const char* const key : {"SigBlk", "SigIgn", "SigCgt", "Threads", "Umask"})
            if (line.starts_with(key)) state << line << '\n';
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

TEST(State, IsTheSameAfterASendAndNothingIsInherited) {
    std::fesetround(FE_UPWARD);
    const mode_t mask = ::umask(037);
    set_logs(5, 1);
    for (const Kind kind : {kAuth, kPartial, kPop})
        for (const char* const reply : {"250 ok\r\n", "550 no\r\n"}) {
            std::map<int, std::string> during;
            const auto look = [&] { during = descriptors(); };
            Delivery delivery(kind, {{"RCPT", reply, Then::kGoOn, 0, 0, look}}, {},
                              Runs::kInThread);
            const auto open = descriptors();
            const std::string before = host_state();
            EXPECT_EQ(delivery.mail.send(), *reply == '2' ? MAIL_SENT : MAIL_E_REJECTED);
            // The server closes its end a moment later.
            for (int ms = 0; ms < 500 && host_state() != before; ++ms) ::usleep(1000);
            ASSERT_EQ(host_state(), before);
            EXPECT_TRUE(g_trace == nullptr && g_pLogHandle == nullptr);
            EXPECT_GE(during.size(), open.size() + 5);  // two ends, log, ring, composed file
            for (const auto& [fd, target] : during)
                EXPECT_TRUE(open.contains(fd) || !target.ends_with("inherited")) << target;
        }
    ::umask(mask);
    std::fesetround(FE_TONEAREST);
}

TEST(State, TwoThousandDescriptors) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit many{std::max<rlim_t>(limit.rlim_cur, 4096), limit.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &many) != 0) GTEST_SKIP() << "may not open 4,096 files";
    std::vector<int> open(2000);
    for (int& fd : open) fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_GT(open.back(), 1999);
    EXPECT_EQ(Delivery(kPop, {}, {}, Runs::kInThread).mail.send(), MAIL_SENT);
    for (const int fd : open) ::close(fd);
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(State, LibraryUnloadsAfterUse) {
    void* const library = ::dlopen(OVRMAIL_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << ::dlerror();
    decltype(&OvRm_SendEMail) entry = nullptr;
    void* const symbol = ::dlsym(library, "OvRm_SendEMail");
    std::memcpy(&entry, &symbol, sizeof entry);
    EXPECT_EQ(Delivery(kAuth, {}, {}, Runs::kInThread).mail.send(entry), MAIL_SENT);
    ::dlclose(library);
    EXPECT_EQ(read_file("/proc/self/maps").find("libovrmail"), std::string::npos);
}

// A send in a thread of its own: it has asked MAIL and waits for the reply until it is let go.
class WaitingSend {
public:
    WaitingSend() { at_mail_.acquire(); }
    ~WaitingSend() { end(); }
    WaitingSend(const WaitingSend&) = delete;
    WaitingSend& operator=(const WaitingSend&) = delete;

    std::int32_t end() {
        reply_.release();
        if (thread_.joinable()) thread_.join();
        return result_;
    }
    void cancel() { ::pthread_cancel(thread_.native_handle()); }

private:
    void wait() {
        at_mail_.release();
        reply_.acquire();
    }
    std::counting_semaphore<> at_mail_{0}, reply_{0};
    std::atomic<std::int32_t> result_ = 0;
    Delivery delivery_{kPlain,
                       {{"MAIL", "550 no\r\n", Then::kGoOn, 0, 0, [this] { wait(); }}},
                       {},
                       Runs::kInThread};
    std::thread thread_{[this] {
        result_ = delivery_.mail.send();
        ::pthread_testcancel();
    }};
};

std::int32_t send_to_nobody() {  // an argument error, unless another send goes on
    SampleMail mail;
    mail.recipient_count = 0;
    return mail.send();
}

TEST(Threads, OfTwoThatEnterAtOnceOneSends) {
    for (int round = 0; round < 100; ++round) {
        std::atomic<int> entered = 0, left = 0, turned_away = 0;
        const auto until_other_left = [&] {
            for (int ms = 0; left == 0 && ms < 5000; ++ms) ::usleep(1000);
        };
        Delivery deliveries[] = {
            Delivery(kPlain, {{"", "550 no\r\n", Then::kGoOn, 0, 0, until_other_left}}, {},
                     Runs::kInThread),
            Delivery(kPlain, {{"", "550 no\r\n", Then::kGoOn, 0, 0, until_other_left}}, {},
                     Runs::kInThread)};
        std::vector<std::jthread> senders;
        for (Delivery& delivery : deliveries)
            senders.emplace_back([&] {
                ++entered;
                while (entered < 2) continue;
                turned_away += delivery.mail.send() == MAIL_E_BUSY ? 1 : 0;
                ++left;
            });
        senders.clear();
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

    MailInstInfo info{};
    std::uint32_t err = 0;
    all &= Info_GetDovrinInstInfo(&info, &err) < 0 && DirectryMake(sub.c_str()) >= 0;
    all &= FileClose(FileOpen((sub + "/file").c_str())) == 0 && ExecDelDir(sub.c_str(), 3) == 0;
    TraceHandle* const trace = Topen(ring.c_str(), 8, 2);
    all &= Twrite(trace, 1, "TOOLS0000", "data", 4) == 0 && Tclose(trace) == 0;
    return all && read_file(ring).find("TOOLS0000XXXXdataEEEE") != std::string::npos;
}

TEST(Threads, OthersDisturbNoSend) {
    std::atomic<bool> done = false;
    std::atomic<long> turned_away = 0;
    std::deque<Delivery> deliveries;  // made while no call has its ring mapped
    for (int mail = 0; mail < 10; ++mail)
        deliveries.emplace_back(mail % 2 == 0 ? kAuth : kPartial, Script{}, Script{},
                                Runs::kInThread);
    std::vector<std::jthread> others;
    for (int i = 0; i < 2; ++i)
        others.emplace_back([&] {
            for (const TempDir dir; !done;) {
                EXPECT_TRUE(tools_work(dir));
                if (send_to_nobody() == MAIL_E_BUSY) ++turned_away;
            }
        });
    for (Delivery& delivery : deliveries) {
        std::int32_t result = MAIL_E_BUSY;
        while (result == MAIL_E_BUSY) result = delivery.mail.send();
        EXPECT_EQ(result, MAIL_SENT);
        EXPECT_EQ(delivery.smtp.bodies().size(), delivery.mail.partial == 0 ? 1U : 4U);
    }
    done = true;
    others.clear();
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
    const TempDir dir;
    {
        const WaitingSend send;
        ::pthread_mutex_lock(&g_cs);
        EXPECT_EQ(in_child(send_to_nobody), MAIL_E_BUSY);
        EXPECT_EQ(in_child([&] { return tools_work(dir) ? 0 : 1; }), 0);
        ::pthread_mutex_unlock(&g_cs);
    }
    EXPECT_EQ(in_child(send_to_nobody), MAIL_E_RECIPIENT);
}

TEST(Threads, CancelledSenderEndsItsSendFirst) {
    set_logs(5, 1);
    WaitingSend send;
    const auto traces_and_log = [] {
        std::string all = read_file(log_path());
        for (const auto& path : paths_in(kTraceDir)) all += path;
        return all;
    };
    const std::string before = traces_and_log();
    EXPECT_EQ(send_to_nobody(), MAIL_E_BUSY);
    EXPECT_TRUE(traces_and_log() == before) << "of a call that is turned away";
    send.cancel();
    ::usleep(20'000);
    EXPECT_EQ(send.end(), MAIL_E_REJECTED);
    EXPECT_TRUE(paths_in(kWorkDir).empty());
    EXPECT_EQ(send_to_nobody(), MAIL_E_RECIPIENT);
}

}  // namespace

// ovrm_send_watch.cpp - what can be seen of a send from the outside, and signals.
#include "ovrm_send_watch.hpp"

#include <arpa/inet.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>

#include "ovrm_send_dialogue.hpp"
#include "ovrm_send_places.hpp"
#include "ovrm_send_show.hpp"

namespace ovrm_send {
namespace {

namespace fs = std::filesystem;

constexpr int kTickMs = 100;
constexpr double kMiB = 1024.0 * 1024.0;

struct Sight {
    std::optional<std::uint64_t> composed_bytes;     /* size of the open composed file */
    std::optional<std::uint64_t> acknowledged_bytes; /* on the connection to the server */
};

std::optional<std::uint64_t> acknowledged(int fd) {
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length) != 0) return std::nullopt;
    if (peer.sin_family != AF_INET) return std::nullopt;
    tcp_info info{};
    length = sizeof info;
    if (getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &length) != 0) return std::nullopt;
    return info.tcpi_bytes_acked;
}

Sight look_at_send() {
    Sight sight;
    const std::string composed = work_directory() + "/" + paths::kComposedFilePrefix;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd", error)) {
        const std::string target = fs::read_symlink(entry.path(), error).string();
        if (target.compare(0, composed.size(), composed) == 0) {
            struct stat status {};
            if (stat(entry.path().c_str(), &status) == 0) {
                sight.composed_bytes = static_cast<std::uint64_t>(status.st_size);
            }
        } else if (target.compare(0, 7, "socket:") == 0) {
            const std::string name = entry.path().filename().string();
            int fd = -1;
            std::from_chars(name.data(), name.data() + name.size(), fd);
            if (const auto bytes = acknowledged(fd)) sight.acknowledged_bytes = bytes;
        }
    }
    return sight;
}

void remove_working_files() {
    const std::string process = std::to_string(getpid()) + "-";
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(work_directory(), error)) {
        const std::string name = entry.path().filename().string();
        for (const char* const prefix : {paths::kBodyFilePrefix, paths::kComposedFilePrefix}) {
            if (name.starts_with(prefix + process)) fs::remove(entry.path(), error);
        }
    }
}

}  // namespace

Watch::Watch(std::string temporary_directory)
    : temporary_directory_(std::move(temporary_directory)) {
    sigemptyset(&signals_);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals_, number);
    pthread_sigmask(SIG_BLOCK, &signals_, &previous_);
    signal_fd_ = signalfd(-1, &signals_, SFD_CLOEXEC);
    stop_fd_ = eventfd(0, EFD_CLOEXEC);
    thread_ = std::thread([this] { run(); });
}

Watch::~Watch() {
    eventfd_write(stop_fd_, 1);
    thread_.join();
    close(stop_fd_);
    close(signal_fd_);
    pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

void Watch::begin(LogReader& log, bool follow, std::uint64_t estimated_bytes) {
    const std::lock_guard lock(mutex_);
    log_ = &log;
    follow_ = follow;
    estimated_bytes_ = estimated_bytes;
    has_begun_ = true;
}

void Watch::end() {
    const std::lock_guard lock(mutex_);
    log_ = nullptr;
    clear_progress();
}

void Watch::run() {
    pollfd waited[] = {{stop_fd_, POLLIN, 0}, {signal_fd_, POLLIN, 0}};
    for (;;) {
        const int ready = poll(waited, 2, kTickMs);
        if (ready < 0 && errno != EINTR) break;
        if (ready > 0 && waited[0].revents != 0) break;
        const std::lock_guard lock(mutex_);
        if (ready > 0) end_on_signal();
        look();
    }
}

void Watch::look() {
    if (log_ == nullptr) return;
    if (follow_) {
        clear_progress();
        log_->read();
    }
    if (estimated_bytes_ != 0) show_progress();
}

// An entry may be on its way to the log while the message is sent: only what was before that is
// certain.
const char* Watch::fate_of_mail() {
    if (!has_begun_) return "; nothing was sent";
    if (log_ == nullptr) return ""; /* between two sends, whose outcomes were told */
    log_->read();
    const Dialogue dialogue(log_->lines());
    const bool is_before = dialogue.logged && dialogue.step < Step::kData && dialogue.taken == 0;
    return is_before ? "; the mail was not sent" : "; the server may or may not have the mail";
}

void Watch::end_on_signal() {
    signalfd_siginfo info{};
    if (read(signal_fd_, &info, sizeof info) != ssize_t(sizeof info)) return;
    clear_progress();
    remove_working_files();
    std::error_code error;
    if (!temporary_directory_.empty()) fs::remove_all(temporary_directory_, error);
    complain("ended by signal " + std::to_string(info.ssi_signo) + fate_of_mail());
    _exit(128 + static_cast<int>(info.ssi_signo));
}

void Watch::show_progress() {
    const Sight sight = look_at_send();
    if (!sight.composed_bytes) return;
    const bool sending = sight.acknowledged_bytes.has_value();
    const std::uint64_t total =
        sending ? *sight.composed_bytes : std::max(estimated_bytes_, *sight.composed_bytes);
    const std::uint64_t done =
        std::min(total, sending ? *sight.acknowledged_bytes : *sight.composed_bytes);
    std::fprintf(stderr, "\r\033[K%s %.1f of %.1f MiB",
                 sending ? "sending:" : "preparing:", static_cast<double>(done) / kMiB,
                 static_cast<double>(total) / kMiB);
    std::fflush(stderr);
    shown_ = true;
}

void Watch::clear_progress() {
    if (shown_) std::fputs("\r\033[K", stderr);
    shown_ = false;
}

}  // namespace ovrm_send

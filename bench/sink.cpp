// sink.cpp - the server every client is measured against: as fast as it can be, and the same for
// all. One thread, epoll, loopback only; it takes every mail and forgets it.
//   --keep FILE   keeps the last mail: MAIL and RCPT lines, an empty line, the data as sent
//   --delay MS    waits before each reply
//   --maxseg N    TCP_MAXSEG of the listening socket
// Prints its port, then serves until its standard input ends.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

struct Options {
    std::string keep;
    int delay_ms = 0;
    int maxseg = 0;
};

// Finds the end mark across blocks. Encoded bodies hold hardly any dot, so that jumping from dot
// to dot costs next to nothing.
class EndOfData {
public:
    void begin() { matched_ = 2; }  // an empty message: the mark's CR LF is that of DATA

    // Bytes of `block` up to and including the mark, or npos when it is not complete yet.
    std::size_t find(std::string_view block) {
        std::size_t at = 0;
        while (at < block.size() && matched_ > 0) {
            if (step(block[at++])) return at;
        }
        for (std::size_t dot = block.find('.', at); dot != block.npos;
             dot = block.find('.', dot + 1)) {
            if (dot >= at + 2 && block.substr(dot - 2, kMark.size()) == kMark) return dot + 3;
        }
        const std::size_t rest = std::max(at, block.size() - std::min(block.size(), kMark.size()));
        for (const char byte : block.substr(rest)) step(byte);
        return block.npos;
    }

private:
    static constexpr std::string_view kMark = "\r\n.\r\n";

    bool step(char byte) {
        matched_ = byte == kMark[matched_] ? matched_ + 1 : byte == '\r' ? 1 : 0;
        if (matched_ < kMark.size()) return false;
        matched_ = 0;
        return true;
    }

    std::size_t matched_ = 0;
};

class Session {
public:
    Session(int fd, const Options& options) : fd_(fd), options_(options) {
        reply("220 sink\r\n");
        flush();
    }
    ~Session() { ::close(fd_); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Takes what has arrived, answers it; false ends the session. Replies to pipelined commands
    // travel together.
    bool serve(std::vector<char>& block) {
        const ssize_t got = ::recv(fd_, block.data(), block.size(), 0);
        if (got <= 0) return false;
        std::string_view fresh(block.data(), static_cast<std::size_t>(got));
        while (!fresh.empty() && !done_) in_data_ ? take_data(fresh) : take_line(fresh);
        return flush() && !done_;
    }

private:
    void reply(std::string_view text) {
        if (options_.delay_ms > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(options_.delay_ms));
        answers_ += text;
    }
    bool flush() {
        const auto size = static_cast<ssize_t>(answers_.size());
        const bool sent =
            size == 0 || ::send(fd_, answers_.data(), answers_.size(), MSG_NOSIGNAL) == size;
        answers_.clear();
        return sent;
    }

    void take_line(std::string_view& fresh) {
        const std::size_t size = std::min(fresh.find('\n'), fresh.size() - 1) + 1;
        line_ += fresh.substr(0, size);
        fresh.remove_prefix(size);
        if (line_.back() != '\n') return;
        command();
        line_.clear();
    }

    void command() {
        std::string verb = line_.substr(0, 4);
        for (char& letter : verb) letter = static_cast<char>(std::toupper(letter));
        if (verb == "EHLO") {
            reply("250-sink\r\n250-PIPELINING\r\n250-SIZE 0\r\n250 8BITMIME\r\n");
        } else if (verb == "DATA") {
            reply("354 go\r\n");
            in_data_ = true;
            end_.begin();
        } else if (verb == "QUIT") {
            reply("221 bye\r\n");
            done_ = true;
        } else {
            if (!options_.keep.empty()) kept_ = (verb == "MAIL" ? "" : kept_) + line_;
            reply("250 ok\r\n");
        }
    }

    void take_data(std::string_view& fresh) {
        const std::size_t end = end_.find(fresh);
        const std::string_view taken = fresh.substr(0, end);
        if (!options_.keep.empty()) message_ += taken;
        fresh.remove_prefix(taken.size());
        if (end == fresh.npos) return;
        in_data_ = false;
        if (!options_.keep.empty()) {
            std::ofstream(options_.keep, std::ios::binary) << kept_ << "\r\n" << message_;
            message_.clear();
        }
        reply("250 taken\r\n");
    }

    int fd_;
    const Options& options_;
    EndOfData end_;
    bool in_data_ = false;
    bool done_ = false;
    std::string line_;
    std::string answers_;
    std::string kept_;
    std::string message_;
};

int open_listener(const Options& options) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (options.maxseg > 0)
        ::setsockopt(fd, IPPROTO_TCP, TCP_MAXSEG, &options.maxseg, sizeof options.maxseg);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(fd, generic, size) != 0 || ::listen(fd, 64) != 0 ||
        ::getsockname(fd, generic, &size) != 0) {
        std::perror("sink");
        std::exit(1);
    }
    std::printf("%d\n", ::ntohs(address.sin_port));
    std::fflush(stdout);
    return fd;
}

void watch(int epoll, int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    ::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event);
}

void serve(int listener, const Options& options) {
    const int epoll = ::epoll_create1(EPOLL_CLOEXEC);
    watch(epoll, listener);
    watch(epoll, STDIN_FILENO);
    std::map<int, std::unique_ptr<Session>> sessions;
    std::vector<char> block(256 * 1024);
    for (;;) {
        epoll_event event{};
        if (::epoll_wait(epoll, &event, 1, -1) != 1) continue;
        const int fd = event.data.fd;
        if (fd == STDIN_FILENO) return;
        if (fd != listener) {
            if (!sessions[fd]->serve(block)) sessions.erase(fd);
            continue;
        }
        const int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) continue;
        const int on = 1;
        ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        sessions[client] = std::make_unique<Session>(client, options);
        watch(epoll, client);
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string_view name = argv[i];
        if (name == "--keep") options.keep = argv[i + 1];
        if (name == "--delay") options.delay_ms = std::atoi(argv[i + 1]);
        if (name == "--maxseg") options.maxseg = std::atoi(argv[i + 1]);
    }
    serve(open_listener(options), options);
}

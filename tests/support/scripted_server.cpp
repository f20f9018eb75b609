// scripted_server.cpp - see scripted_server.hpp.
#include "support/scripted_server.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <utility>

namespace support {
namespace {

constexpr int kPartPauseMs = 2;  // lets a part arrive alone
std::atomic<int> g_silent_port = 0;

int bound_socket(std::uint16_t& port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    if (::bind(fd, plain, size) != 0 || ::getsockname(fd, plain, &size) != 0) std::abort();
    port = ntohs(address.sin_port);
    return fd;
}

void send_all(int fd, std::string_view bytes, std::size_t part) {
    while (!bytes.empty()) {
        const std::string_view now = bytes.substr(0, part != 0 ? part : bytes.size());
        const ssize_t sent = ::send(fd, now.data(), now.size(), MSG_NOSIGNAL);
        if (sent <= 0) return;  // the client has gone, which its own test judges
        bytes.remove_prefix(static_cast<std::size_t>(sent));
        if (!bytes.empty()) ::poll(nullptr, 0, kPartPauseMs);
    }
}

}  // namespace

ScriptedServer::ScriptedServer(Script script, ServerOptions options)
    : script_(std::move(script)), options_(options), listener_(bound_socket(port_)) {
    if (::pipe(stop_) != 0 || ::listen(listener_, 16) != 0) std::abort();
    thread_ = std::thread([this] { run(); });
}

ScriptedServer::~ScriptedServer() {
    finish();
    ::close(stop_[0]);
    ::close(stop_[1]);
}

void ScriptedServer::finish() {
    if (listener_ < 0) return;
    if (::write(stop_[1], "", 1) != 1) std::abort();
    thread_.join();
    ::close(listener_);
    listener_ = -1;
}

// Whether there is something to read; false once the server is to end and nothing has arrived.
bool ScriptedServer::wait(int fd) {
    pollfd entries[] = {{fd, POLLIN, 0}, {stop_[0], POLLIN, 0}};
    while (::poll(entries, 2, -1) < 0) continue;
    return entries[0].revents != 0;
}

void ScriptedServer::run() {
    while (wait(listener_)) {
        Session session;
        session.fd = ::accept(listener_, nullptr, nullptr);
        if (session.fd < 0) continue;
        const int on = 1;
        ::setsockopt(session.fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        options_.any_order ? serve_any_order(session) : serve_in_order(session);
        // The next session, or the next server on this port, does answer; another may be silent.
        int own = port_;
        g_silent_port.compare_exchange_strong(own, 0);
        if (session.fd >= 0) ::close(session.fd);
        if (!std::exchange(served_, true)) first_ = std::move(session);
    }
}

void ScriptedServer::serve_in_order(Session& session) {
    for (const Row& row : script_) {
        std::string line;
        if (!row.expect.empty() && !take(session, row.expect == kBody, line)) return;
        if (row.expect != kBody && !line.starts_with(row.expect)) {
            problem_ = "not in the script: " + line;
            break;
        }
        if (!answer(session, row)) return;
    }
    g_silent_port = port_;  // the script is over
    std::string rest;
    while (take(session, false, rest)) continue;
}

void ScriptedServer::serve_any_order(Session& session) {
    const auto answered = [&](std::string_view line) {
        const auto row = std::ranges::find_if(script_, [line](const Row& candidate) {
            return candidate.expect.empty() ? line.empty() : line.starts_with(candidate.expect);
        });
        if (row == script_.end()) problem_ = "not in the script: " + std::string(line);
        body_follows_ = row != script_.end() && row->reply.starts_with("354");
        return row != script_.end() && answer(session, *row);
    };
    bool body = false;
    for (std::string line; answered(body ? kBody : line);) {
        body = body_follows_;
        if (!take(session, body, line)) return;
    }
}

// Answers; false when the connection has ended.
bool ScriptedServer::answer(Session& session, const Row& row) {
    if (options_.reply_delay_ms != 0) ::poll(nullptr, 0, options_.reply_delay_ms);
    if (row.before) row.before();
    send_all(session.fd, row.reply, row.part);
    switch (row.then) {
        case Then::kGoOn:
            return true;
        case Then::kReset: {
            const linger now{1, 0};
            ::setsockopt(session.fd, SOL_SOCKET, SO_LINGER, &now, sizeof now);
            [[fallthrough]];
        }
        case Then::kClose:
            ::close(std::exchange(session.fd, -1));
            return false;
        case Then::kStall:
            g_silent_port = port_;
            for (std::string rest; take(session, false, rest);) continue;
            return false;
        case Then::kDeaf:
            g_silent_port = port_;
            wait(-1);
            return false;
    }
    return false;
}

// Takes a command with its line end, or a body without its end mark.
bool ScriptedServer::take(Session& session, bool body, std::string& out) {
    const std::string_view mark = body ? "\r\n.\r\n" : "\n";
    std::string& pending = session.pending;
    for (std::size_t from = 0;;) {
        const std::size_t at = pending.find(mark, from);
        if (at != std::string::npos) {
            out = pending.substr(0, body ? at : at + mark.size());
            pending.erase(0, at + mark.size());
            (body ? session.bodies : session.commands).push_back(out);
            return true;
        }
        from = pending.size() - std::min(pending.size(), mark.size() - 1);
        std::array<char, 65536> block;
        const ssize_t got =
            wait(session.fd) ? ::recv(session.fd, block.data(), block.size(), 0) : 0;
        if (got <= 0) return false;
        session.received.append(block.data(), static_cast<std::size_t>(got));
        pending.append(block.data(), static_cast<std::size_t>(got));
    }
}

Script friendly(Script changes) {
    const Script rows = {{"", "220 hi\r\n"},      {"EHLO", "250 hi\r\n"}, {"HELO", "250 hi\r\n"},
                         {"MAIL", "250 ok\r\n"},  {"RCPT", "250 ok\r\n"}, {"DATA", "354 go\r\n"},
                         {kBody, "250 kept\r\n"}, {"RSET", "250 ok\r\n"}, {"QUIT", "221 bye\r\n"}};
    changes.insert(changes.end(), rows.begin(), rows.end());
    return changes;
}

int silent_port() { return g_silent_port; }

std::uint16_t refusing_port() {
    static std::uint16_t port = 0;
    static const int kept = bound_socket(port);  // bound, never listening
    return kept >= 0 ? port : 0;
}

}  // namespace support

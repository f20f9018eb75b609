// scripted_server.cpp - see scripted_server.hpp.
#include "support/scripted_server.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <utility>

namespace support {
namespace {

constexpr int kThreadPauseMs = 2;      // lets a part arrive alone
constexpr int kArrivalLimitMs = 2000;  // for bytes on their way, on a busy machine

std::vector<ScriptedServer*> g_in_client;

int bound_socket(std::uint16_t& port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    if (::bind(fd, plain, size) != 0 || ::getsockname(fd, plain, &size) != 0) std::abort();
    port = ntohs(address.sin_port);
    return fd;
}

// poll() is the caller.
int real_poll(pollfd* entries, nfds_t count, int ms) {
    const timespec limit{ms / 1000, ms % 1000 * 1'000'000L};
    return ::ppoll(entries, count, ms < 0 ? nullptr : &limit, nullptr);
}

ScriptedServer* server_of(int client) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    if (::getpeername(client, reinterpret_cast<sockaddr*>(&peer), &size) != 0) return nullptr;
    for (ScriptedServer* const server : g_in_client)
        if (server->port() == ntohs(peer.sin_port)) return server;
    return nullptr;
}

}  // namespace

ScriptedServer::ScriptedServer(Script script, Runs runs)
    : script_(std::move(script)), runs_(runs), listener_(bound_socket(port_)) {
    if (::pipe2(stop_, O_CLOEXEC) != 0 || ::listen(listener_, 16) != 0) std::abort();
    if (runs_ == Runs::kInClient)
        g_in_client.push_back(this);
    else
        thread_ = std::thread([this] { serve_until_stopped(); });
}

void ScriptedServer::serve_until_stopped() {
    for (pollfd stop{stop_[0], POLLIN, 0}; real_poll(&stop, 1, 0) == 0;) {
        const Did did = serve();
        if (did == Did::kSaid) real_poll(nullptr, 0, kThreadPauseMs);
        if (did == Did::kNothing) wait(-1, stop_[0]);
    }
}

ScriptedServer::~ScriptedServer() {
    finish();
    for (const int fd : stop_) ::close(fd);
}

void ScriptedServer::finish() {
    if (listener_ < 0) return;
    if (::write(stop_[1], "", 1) != 1) std::abort();
    if (thread_.joinable()) thread_.join();
    std::erase(g_in_client, this);
    while (serve() != Did::kNothing || (now_.fd >= 0 && !now_.deaf && wait(kArrivalLimitMs, -1)))
        continue;
    end_session();
    ::close(std::exchange(listener_, -1));
}

// Whether something arrives for the server, or there is something to read at the other descriptor.
bool ScriptedServer::wait(int ms, int other) {
    const int own = now_.fd < 0 ? listener_ : now_.deaf ? -1 : now_.fd;
    pollfd entries[] = {{own, POLLIN, 0}, {other, POLLIN, 0}};
    return real_poll(entries, 2, ms) > 0;
}

// One step of what there is to do now.
ScriptedServer::Did ScriptedServer::serve() {
    if (now_.fd < 0 && !accept()) return Did::kNothing;
    bool took = read();
    std::string line;
    if (now_.row == nullptr && !now_.silent && take(line)) {
        took = true;
        answer(line);
    }
    if (now_.row != nullptr && now_.pause_s == 0) return say();
    if (took || !now_.client_left) return took ? Did::kTook : Did::kNothing;
    end_session();
    return Did::kTook;
}

bool ScriptedServer::accept() {
    now_.fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (now_.fd < 0) return false;
    const int on = 1;
    ::setsockopt(now_.fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    answer("");
    return true;
}

bool ScriptedServer::read() {
    std::array<char, 65536> block;
    const ssize_t got = now_.deaf ? -1 : ::recv(now_.fd, block.data(), block.size(), 0);
    if (got == 0 || (got < 0 && !now_.deaf && errno != EAGAIN)) now_.client_left = true;
    if (got <= 0) return false;
    now_.received.append(block.data(), static_cast<std::size_t>(got));
    now_.pending.append(block.data(), static_cast<std::size_t>(got));
    return true;
}

// Takes a command with its line end, or a message without its end mark.
bool ScriptedServer::take(std::string& line) {
    const std::string_view mark = now_.body_follows ? "\r\n.\r\n" : "\n";
    const std::size_t at = now_.pending.find(mark);
    if (at == std::string::npos) return false;
    line = now_.pending.substr(0, now_.body_follows ? at : at + 1);
    now_.pending.erase(0, at + mark.size());
    (now_.body_follows ? now_.bodies : now_.commands).push_back(line);
    if (now_.body_follows) line = kBody;
    return true;
}

void ScriptedServer::answer(const std::string& line) {
    const auto row = std::ranges::find_if(script_, [&](const Row& candidate) {
        return candidate.expect.empty() ? line.empty() : line.starts_with(candidate.expect);
    });
    if (row == script_.end()) {
        problem_ = "not in the script: " + line;
        return end_session();
    }
    if (row->before) row->before();
    now_.body_follows = row->reply.starts_with("354");
    now_.row = &*row;
    now_.owed = row->reply;
    now_.pause_s = runs_ == Runs::kInThread ? 0 : row->pause_s;
}

ScriptedServer::Did ScriptedServer::say() {
    const Row& row = *now_.row;
    const std::string part = now_.owed.substr(0, row.part != 0 ? row.part : std::string::npos);
    const ssize_t sent = ::send(now_.fd, part.data(), part.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EAGAIN) return Did::kNothing;  // the client has to read first
    now_.owed.erase(0, sent < 0 ? std::string::npos : static_cast<std::size_t>(sent));
    if (!now_.owed.empty()) {
        now_.pause_s = row.pause_s;
        return Did::kSaid;
    }
    now_.row = nullptr;
    now_.deaf = row.then == Then::kDeaf;
    now_.silent = now_.deaf || row.then == Then::kStall;
    const bool ends = row.then == Then::kClose || row.then == Then::kReset;
    if (ends) end_session(row.then == Then::kReset);
    return ends || sent > 0 ? Did::kSaid : Did::kTook;
}

void ScriptedServer::end_session(bool reset) {
    if (now_.fd < 0) return;
    const linger at_once{1, 0};
    if (reset) ::setsockopt(now_.fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    ::close(now_.fd);
    if (!std::exchange(served_, true)) first_ = std::move(now_);
    now_ = {};
}

std::optional<int> wait_for_server(pollfd& client, int wait_ms, int& passed_ms) {
    ScriptedServer* const server = server_of(client.fd);
    if (server == nullptr) return {};
    for (passed_ms = 0;;) {
        const auto did = server->serve();
        const bool arrives = did == ScriptedServer::Did::kSaid && client.events == POLLIN;
        const int ready = real_poll(&client, 1, arrives ? kArrivalLimitMs : 0);
        if (ready != 0) return ready;
        if (did != ScriptedServer::Did::kNothing) continue;
        const int pause_s = server->now_.pause_s;
        if (pause_s == 0 && !server->now_.silent && server->wait(kArrivalLimitMs, client.fd))
            continue;
        const int left_s = (wait_ms - passed_ms) / 1000;
        passed_ms = pause_s > 0 && pause_s <= left_s ? passed_ms + pause_s * 1000 : wait_ms;
        server->now_.pause_s -= std::min(pause_s, left_s);
        if (pause_s == 0 || pause_s > left_s) return 0;
    }
}

Script friendly(Script changes) {
    const Script rows = {{"", "220 hi\r\n"},      {"EHLO", "250 hi\r\n"}, {"HELO", "250 hi\r\n"},
                         {"MAIL", "250 ok\r\n"},  {"RCPT", "250 ok\r\n"}, {"DATA", "354 go\r\n"},
                         {kBody, "250 kept\r\n"}, {"RSET", "250 ok\r\n"}, {"QUIT", "221 bye\r\n"}};
    changes.insert(changes.end(), rows.begin(), rows.end());
    return changes;
}

Script friendly_pop(Script changes) {
    const Script rows = {{"", "+OK hi\r\n"},
                         {"USER", "+OK\r\n"},
                         {"PASS", "+OK\r\n"},
                         {"STAT", "+OK 0 0\r\n"},
                         {"QUIT", "+OK\r\n"}};
    changes.insert(changes.end(), rows.begin(), rows.end());
    return changes;
}

std::uint16_t refusing_port() {
    static std::uint16_t port = 0;
    static const int kept = bound_socket(port);  // bound, never listening
    return kept >= 0 ? port : 0;
}

}  // namespace support

// scripted_server.hpp - the other end of a conversation, as a table. Speaks whatever the rows say,
// so it is a mail server, a POP3 server, or one that misbehaves. It listens on a loopback port;
// every byte that arrives is kept.
//
//   ScriptedServer server(friendly({{"RCPT", "550 no\r\n", Then::kClose}}));
//   send_a_mail(server.port());
//   EXPECT_EQ(server.problem(), "");                      // no command without a row
//   EXPECT_EQ(server.commands()[1], "MAIL FROM:<a@b>\r\n");
//
// The first row that fits a command answers it, again and again; the row of "" is the greeting,
// that of kBody takes a message up to its end mark. Connections are served one after the other;
// what is kept is of the first.
//
// Without a thread of its own it works while its client waits: the poll() of support/fault calls
// wait_for_server(), and no wait takes real time.
#pragma once

#include <poll.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace support {

inline constexpr const char* kBody = "<body>";

enum class Then {
    kGoOn,
    kClose,  // orderly end after the reply
    kReset,  // RST after the reply
    kStall,  // says nothing more, but reads on
    kDeaf,   // says nothing more and reads nothing more
};

struct Row {
    std::string expect;  // beginning of the command
    std::string reply;   // bytes to send; "": none
    Then then = Then::kGoOn;
    std::size_t part = 0;               // bytes sent at once; 0: all
    int pause_s = 0;                    // before each part; not with a thread
    std::function<void()> before = {};  // what happens elsewhere before the reply
};

using Script = std::vector<Row>;

enum class Runs { kInClient, kInThread };

class ScriptedServer {
public:
    explicit ScriptedServer(Script script, Runs runs = Runs::kInClient);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    [[nodiscard]] std::uint16_t port() const { return port_; }

    // What was seen. The first of these calls ends the server: what has been sent to it until then
    // is still read and answered.
    // First line without a row, or "".
    const std::string& problem() { return finish(), problem_; }
    const std::string& received() { return finish(), first_.received; }
    // Lines with CR LF, messages without CR LF . CR LF.
    const std::vector<std::string>& commands() { return finish(), first_.commands; }
    const std::vector<std::string>& bodies() { return finish(), first_.bodies; }

private:
    struct Session {
        int fd = -1;
        std::string received, pending;  // pending: not yet taken as commands
        std::vector<std::string> commands, bodies;
        const Row* row = nullptr;  // being answered
        std::string owed;          // of its reply
        int pause_s = 0;           // until the next part
        bool body_follows = false, silent = false, deaf = false, client_left = false;
    };
    enum class Did { kNothing, kTook, kSaid };

    friend std::optional<int> wait_for_server(pollfd& client, int wait_ms, int& passed_ms);
    void serve_until_stopped();
    Did serve();
    bool accept();
    bool read();
    bool take(std::string& line);
    void answer(const std::string& line);
    Did say();
    void end_session(bool reset = false);
    bool wait(int ms, int other);
    void finish();

    const Script script_;
    const Runs runs_;
    std::uint16_t port_ = 0;
    int listener_ = -1;
    int stop_[2] = {-1, -1};
    std::string problem_;
    Session now_, first_;
    bool served_ = false;
    std::thread thread_;
};

// Waits like poll() for what the client's socket is asked, while the server at its other end works.
// Time passes without being waited for: `passed_ms`. Nothing, when there is no such server.
std::optional<int> wait_for_server(pollfd& client, int wait_ms, int& passed_ms);

// Rows of an SMTP server that accepts everything; rows of `changes` come first, so that
// friendly({{"RCPT", "550 no\r\n"}}) refuses recipients.
Script friendly(Script changes = {});
Script friendly_pop(Script changes = {});

// A loopback port that refuses connections.
std::uint16_t refusing_port();

}  // namespace support

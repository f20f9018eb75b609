// scripted_server.hpp - the other end of a conversation, as a table. Speaks whatever the rows say,
// so it is a mail server, a POP3 server, or one that misbehaves. A thread on a loopback port;
// every byte that arrives is kept.
//
//   ScriptedServer server({{"", "220 hi\r\n"},            // sent without waiting: the greeting
//                          {"EHLO", "250-hi\r\n250 SIZE\r\n"},
//                          {"MAIL", "250 ok\r\n"},
//                          {"RCPT", "550 no\r\n", Then::kClose}});
//   send_a_mail(server.port());
//   EXPECT_EQ(server.problem(), "");                      // no command out of the script
//   EXPECT_EQ(server.commands()[1], "MAIL FROM:<a@b>\r\n");
//
// A row whose `expect` is kBody takes a message up to its end mark. dribble() sends a reply byte by
// byte. Connections are served one after the other; what is kept is of the first. friendly() is a
// whole server in one table, in any order.
#pragma once

#include <cstdint>
#include <functional>
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
    std::string expect;  // beginning of the command; "": nothing is awaited
    std::string reply;   // bytes to send; "": none
    Then then = Then::kGoOn;
    std::size_t part = 0;               // bytes sent at once; 0: all
    std::function<void()> before = {};  // what happens elsewhere before the reply
};

inline Row dribble(Row row) { return row.part = 1, row; }

using Script = std::vector<Row>;

struct ServerOptions {
    bool any_order = false;  // first row that fits, again and again; "" is the greeting
    int reply_delay_ms = 0;  // before each reply
};

class ScriptedServer {
public:
    explicit ScriptedServer(Script script, ServerOptions options = {});
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    [[nodiscard]] std::uint16_t port() const { return port_; }

    // What was seen. The first of these calls ends the server: what has been sent to it until then
    // is still read and answered.
    // First line that the script did not expect, or "".
    const std::string& problem() { return finish(), problem_; }
    const std::string& received() { return first().received; }
    // Lines with CR LF, messages without CR LF . CR LF.
    const std::vector<std::string>& commands() { return first().commands; }
    const std::vector<std::string>& bodies() { return first().bodies; }

private:
    struct Session {
        int fd = -1;
        std::string received, pending;
        std::vector<std::string> commands, bodies;
    };

    void run();
    void serve_in_order(Session& session);
    void serve_any_order(Session& session);
    bool answer(Session& session, const Row& row);
    bool take(Session& session, bool body, std::string& out);
    bool wait(int fd);
    void finish();
    const Session& first() { return finish(), first_; }

    Script script_;
    ServerOptions options_;
    std::uint16_t port_ = 0;
    int listener_ = -1;
    int stop_[2] = {-1, -1};
    std::string problem_;
    bool body_follows_ = false;
    Session first_;
    bool served_ = false;
    std::thread thread_;
};

// Rows of an SMTP server that accepts everything; rows of `changes` come first, so that
// friendly({{"RCPT", "550 no\r\n"}}) refuses recipients. Use with any_order.
Script friendly(Script changes = {});

// Port of the server that last reached a row that stalls: who waits for it in virtual time need
// not wait at all.
int silent_port();

// A loopback port that refuses connections.
std::uint16_t refusing_port();

}  // namespace support

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
// A row whose `expect` is kBody takes a message up to its end mark. split() sends a reply in parts,
// dribble() byte by byte. Connections are served one after the other, the later ones by scripts of
// their own; the last script serves all that follow. friendly() is a whole server in one table, in
// any order.
#pragma once

#include <cstdint>
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
    std::size_t part = 0;  // bytes sent at once; 0: all
};

inline Row split(Row row, std::size_t bytes) { return row.part = bytes, row; }
inline Row dribble(Row row) { return split(std::move(row), 1); }

using Script = std::vector<Row>;

struct ServerOptions {
    bool any_order = false;          // first row that fits, again and again; "" is the greeting
    bool listening = true;           // false: refuses until listen()
    int receive_buffer = 0;          // bytes; 0: the system's
    int reply_delay_ms = 0;          // before each reply
    std::vector<Script> later = {};  // scripts of the connections after the first
};

class ScriptedServer {
public:
    explicit ScriptedServer(Script script, ServerOptions options = {});
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    [[nodiscard]] std::uint16_t port() const { return port_; }
    void listen();

    // What was seen. The first of these calls ends the server: what has been sent to it until then
    // is still read and answered.
    const std::string& problem();  // first line that the script did not expect, or ""
    std::size_t connections();
    const std::string& received(std::size_t connection = 0);
    const std::vector<std::string>& commands(std::size_t connection = 0);  // lines with CR LF
    const std::vector<std::string>& bodies(std::size_t connection = 0);    // without CR LF . CR LF

private:
    struct Session {
        int fd = -1;
        std::string received, pending;
        std::vector<std::string> commands, bodies;
    };

    void run();
    void serve_in_order(Session& session, const Script& script);
    void serve_any_order(Session& session, const Script& script);
    bool answer(Session& session, const Row& row);
    bool take(Session& session, bool body, std::string& out);
    bool wait(int fd);
    void finish();
    const Session& session(std::size_t connection);

    std::vector<Script> scripts_;
    ServerOptions options_;
    std::uint16_t port_ = 0;
    int listener_ = -1;
    int stop_[2] = {-1, -1};
    std::string problem_;
    bool body_follows_ = false;
    std::vector<Session> sessions_;
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

// ovrm_send_dialogue.hpp - how far a send came, read from the lines that it left in the mail log.
#pragma once

#include <string>
#include <vector>

namespace ovrm_send {

// In the order of a send.
enum class Step {
    kConnect,
    kPop, /* the whole POP3 session */
    kGreeting,
    kHello, /* EHLO, HELO */
    kAuth,
    kMail,
    kRcpt,
    kData,
    kMessage, /* the lines behind DATA */
    kEnd,     /* the end mark, a lone dot */
    kReset,   /* between two pieces */
    kQuit,
};

struct Dialogue {
    explicit Dialogue(const std::vector<std::string>& log_lines);

    bool logged; /* false: there is no log, and nothing below is known */
    Step step = Step::kConnect;
    std::string command; /* the last that was sent */
    std::string reply;   /* the last line of its reply; empty: none came */
    std::string address; /* of the last MAIL or RCPT */
    std::string receipt; /* the last reply with which the server took a mail or piece */
    int taken = 0;       /* mails or pieces that the server took */
    int seconds = 0;     /* of the time-out that ended the send */
    bool authenticated = false;

    // Whether the end mark was sent and not answered.
    [[nodiscard]] bool end_unanswered() const { return step == Step::kEnd && reply.empty(); }

private:
    void on_sent(const std::string& text);
    void on_received(const std::string& text);
    void on_note(const std::string& text);
};

}  // namespace ovrm_send

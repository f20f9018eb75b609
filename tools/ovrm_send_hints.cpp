// ovrm_send_hints.cpp - what to do, by result, step and reply: the first row that fits is said.
//
// Servers refuse for reasons that their replies name in a hundred ways; a row looks at the code and
// at words that most of them use. Where no row fits, the library's general advice is given.
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "ovrm_send_results.hpp"

namespace ovrm_send {
namespace {

constexpr int kTlsPort = 465;

bool contains(std::string_view text, std::string_view word) {
    return std::search(text.begin(), text.end(), word.begin(), word.end(),
                       [](char a, char b) { return (a | 0x20) == (b | 0x20); }) != text.end();
}

bool is_refused(const Delivery& d) { return !d.outcome && !d.outcome.reply().empty(); }
bool is_refused_with(const Delivery& d, std::string_view code) {
    return is_refused(d) && d.outcome.reply().starts_with(code);
}
bool is_refused_at(const Delivery& d, Step step) {
    return is_refused(d) && d.dialogue.logged && d.dialogue.step == step;
}
bool has_result(const Delivery& d, std::int32_t result) { return d.outcome.result() == result; }

bool demands_tls(const Delivery& d) {
    const std::string& reply = d.outcome.reply();
    return is_refused(d) && (contains(reply, "starttls") || contains(reply, "must use TLS") ||
                             contains(reply, "encryption"));
}
bool may_speak_tls_only(const Delivery& d) {
    return !d.is_sent() && d.request.server().port == kTlsPort && d.dialogue.step < Step::kHello;
}
bool demands_account(const Delivery& d) {
    return is_refused_with(d, "530") && d.request.options().mechanisms == 0;
}
bool dislikes_host_name(const Delivery& d) {
    return is_refused_with(d, "504") || is_refused_at(d, Step::kHello) ||
           (is_refused_with(d, "5") && contains(d.outcome.reply(), "helo"));
}
bool dislikes_lines(const Delivery& d) {
    return is_refused_with(d, "5") && d.dialogue.step >= Step::kMessage && d.findings.long_lines;
}
bool dislikes_8bit(const Delivery& d) {
    return is_refused_with(d, "5") && d.dialogue.step >= Step::kMessage && d.findings.has_8bit;
}
bool may_pass(const Delivery& d) { return is_refused_with(d, "4"); }
bool dislikes_one_of_many(const Delivery& d) {
    return is_refused_at(d, Step::kRcpt) && d.to.size() > 1;
}
bool dislikes_recipient(const Delivery& d) { return is_refused_at(d, Step::kRcpt); }
bool is_doubtful(const Delivery& d) { return d.may_be_sent(); }
bool is_in_pieces(const Delivery& d) { return !d.is_sent() && d.dialogue.taken > 0; }
bool is_tried_again(const Delivery& d) {
    return !d.is_sent() && d.dialogue.logged &&
           (has_result(d, MAIL_E_TIMEOUT) || has_result(d, MAIL_E_SYSTEM));
}
bool is_told_already(const Delivery& d) {
    return has_result(d, MAIL_E_REJECTED) && d.dialogue.logged;
}

struct Hint {
    bool (*fits)(const Delivery&);
    const char* words;
};
constexpr std::array kHints{
    Hint{demands_tls,
         "the server demands TLS, which the library does not speak: send through a relay on this "
         "host, see ovrmail-relay(7)"},
    Hint{may_speak_tls_only,
         "on port 465 a server speaks TLS from the first byte, which the library does not: send "
         "through a relay on this host, see ovrmail-relay(7)"},
    Hint{demands_account, "the server takes mail from accounts alone: give --auth and --user"},
    Hint{dislikes_host_name,
         "the server dislikes the name that this host gave in EHLO: give the host a name with a "
         "domain that the name service knows, such as host.example.com (hostnamectl)"},
    Hint{dislikes_lines, "break the lines over 998 bytes, or send with --utf8"},
    Hint{dislikes_8bit, "8-bit text may be why: --utf8 encodes subject, text and file names"},
    Hint{dislikes_one_of_many,
         "one refused recipient refuses the mail to all: --each sends a mail to each"},
    Hint{may_pass, "the server says that it may take the mail later: send again"},
    Hint{dislikes_recipient,
         "the reply is the server's reason: check recipient and sender, and whether this host may "
         "send here"},
    Hint{is_doubtful,
         "find out whether it arrived before you send it again; --timeout-end gives the server "
         "more time"},
    Hint{is_in_pieces, "those pieces cannot be called back; sending again sends all of them"},
    Hint{is_tried_again, "send again; the --timeout options give a slow server more time"},
    Hint{is_told_already, ""},
};

}  // namespace

std::string hint(const Delivery& delivery) {
    for (const Hint& row : kHints) {
        if (row.fits(delivery)) return row.words;
    }
    const bool is_remark = delivery.is_sent() && delivery.is_unauthenticated();
    return is_remark ? ovrmail::Outcome(MAIL_SENT_UNAUTHENTICATED, "").advice()
                     : delivery.outcome.advice();
}

}  // namespace ovrm_send

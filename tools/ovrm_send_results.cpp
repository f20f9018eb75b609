// ovrm_send_results.cpp - the sentence and the exit status of each result.
//
// The result and its detail come from the library; which command, which recipient and how far, from
// the mail log. Where that is switched off, the sentences of ovrmail_outcome.hpp are said instead.
#include "ovrm_send_results.hpp"

#include <sysexits.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "log/entry.hpp"
#include "ovrm_send_places.hpp"
#include "ovrm_send_server.hpp"
#include "ovrm_send_show.hpp"

namespace ovrm_send {
namespace {

using ovrmail::Outcome;

struct Row {
    std::int32_t result;
    int exit_status;
};
constexpr std::array kRows{
    Row{MAIL_SENT, EX_OK},
    Row{MAIL_SENT_UNCONVERTED, EX_OK},
    Row{MAIL_SENT_UNAUTHENTICATED, EX_OK},
    Row{MAIL_E_ARGUMENT, EX_USAGE},
    Row{MAIL_E_MEMORY, EX_OSERR},
    Row{MAIL_E_WORK_FILE, EX_CANTCREAT},
    Row{MAIL_E_TIMEOUT, EX_TEMPFAIL},
    Row{MAIL_E_RECIPIENT, EX_DATAERR},
    Row{MAIL_E_REJECTED, EX_UNAVAILABLE},
    Row{MAIL_E_SYSTEM, EX_OSERR},
    Row{MAIL_E_ATTACHMENT, EX_NOINPUT},
    Row{MAIL_E_BUSY, EX_TEMPFAIL},
    Row{MAIL_E_CONNECT, EX_NOHOST},
    Row{MAIL_E_POP_REFUSED, EX_NOPERM},
    Row{MAIL_E_POP_SYSTEM, EX_OSERR},
    Row{MAIL_E_POP_TIMEOUT, EX_TEMPFAIL},
    Row{MAIL_E_POP_CONNECT, EX_NOHOST},
    Row{MAIL_E_INTERNAL, EX_SOFTWARE},
    Row{MAIL_E_REJECTED_AUTH_FAILED, EX_NOPERM},
    Row{MAIL_E_REJECTED_NO_AUTH, EX_NOPERM},
};

int exit_status(const Outcome& outcome) {
    if (outcome.result() == MAIL_E_REJECTED && outcome.temporary()) return EX_TEMPFAIL;
    // A problem that was found before the call lies in the text or in a file.
    if (outcome.result() == MAIL_E_ARGUMENT && !outcome.argument().empty()) return EX_DATAERR;
    if (outcome.result() == MAIL_E_WORK_FILE && !outcome.argument().empty()) return EX_NOINPUT;
    for (const Row& row : kRows) {
        if (row.result == outcome.result()) return row.exit_status;
    }
    return EX_SOFTWARE;
}

// What a server refuses at each step, and after what it refuses, falls silent or breaks off.
struct Wording {
    Step step;
    const char* refused;
    const char* after;
};
constexpr std::array kWordings{Wording{Step::kConnect, "the connection", "the connection was made"},
                               Wording{Step::kPop, "the account", "its greeting"},
                               Wording{Step::kGreeting, "the connection", "its greeting"},
                               Wording{Step::kHello, "the name of this host", "EHLO or HELO"},
                               Wording{Step::kAuth, "the account", "AUTH"},
                               Wording{Step::kMail, "the sender", "MAIL FROM"},
                               Wording{Step::kRcpt, "", "RCPT TO"},
                               Wording{Step::kData, "the mail", "DATA"},
                               Wording{Step::kMessage, "the mail", "a part of the message"},
                               Wording{Step::kEnd, "the mail", "the end of the message"},
                               Wording{Step::kReset, "RSET", "RSET"},
                               Wording{Step::kQuit, "QUIT", "QUIT"}};

const Wording& wording_of(Step step) {
    for (const Wording& row : kWordings) {
        if (row.step == step) return row;
    }
    return kWordings.front();
}

std::string point(const Dialogue& dialogue) {
    const bool has_command = dialogue.step == Step::kHello || dialogue.step == Step::kPop;
    if (!has_command || dialogue.command.empty()) return wording_of(dialogue.step).after;
    return dialogue.command == ovrmail::log::kMasked ? "PASS" : dialogue.command;
}

bool is_pop(std::int32_t result) {
    return result <= MAIL_E_POP_REFUSED && result >= MAIL_E_POP_CONNECT;
}

std::string refusal(const Delivery& delivery) {
    const Dialogue& dialogue = delivery.dialogue;
    const std::string reply = ": " + delivery.outcome.reply();
    const std::string what = wording_of(dialogue.step).refused;
    if (dialogue.step == Step::kGreeting) return "refused " + what + reply;
    std::string text = "refused";
    if (!what.empty()) text += " " + what;
    if (dialogue.step == Step::kMail || dialogue.step == Step::kRcpt)
        text += " " + dialogue.address;
    return text + " after " + point(dialogue) + reply;
}

std::string silence(const Dialogue& dialogue) {
    const std::string time = " for " + std::to_string(dialogue.seconds) + " seconds";
    if (dialogue.step == Step::kMessage) return "took no more of the message" + time;
    return "was silent" + time + " after " + point(dialogue);
}

std::string break_point(const Dialogue& dialogue) {
    if (dialogue.step == Step::kConnect) return "before any reply";
    return "after " + point(dialogue);
}

// What happened, when the log tells it.
std::string failure(const Delivery& delivery) {
    const Dialogue& dialogue = delivery.dialogue;
    const Outcome& outcome = delivery.outcome;
    const std::string server = delivery.server();
    switch (outcome.result()) {
        case MAIL_E_CONNECT:
        case MAIL_E_POP_CONNECT:
            return server + " cannot be reached: " + cause(outcome);
        case MAIL_E_TIMEOUT:
        case MAIL_E_POP_TIMEOUT:
            return server + " " + silence(dialogue);
        case MAIL_E_SYSTEM:
        case MAIL_E_POP_SYSTEM:
            return "the connection to " + server + " broke " + break_point(dialogue) + ": " +
                   (outcome.error() != 0 ? cause(outcome) : "the server closed it");
        case MAIL_E_REJECTED_AUTH_FAILED:
            return "SMTP AUTH failed, and " + server + " " + refusal(delivery);
        case MAIL_E_REJECTED_NO_AUTH:
            return server + " offers none of the mechanisms allowed, and " + refusal(delivery);
        default:
            return server + " " + refusal(delivery);
    }
}

bool is_told_by_log(const Outcome& outcome) {
    // The other case of this result is a host without a name of its own.
    if (outcome.result() == MAIL_E_CONNECT && outcome.error() == 0) return false;
    constexpr std::array kConversation{
        MAIL_E_CONNECT,         MAIL_E_TIMEOUT,     MAIL_E_SYSTEM,
        MAIL_E_REJECTED,        MAIL_E_POP_CONNECT, MAIL_E_POP_TIMEOUT,
        MAIL_E_POP_SYSTEM,      MAIL_E_POP_REFUSED, MAIL_E_REJECTED_AUTH_FAILED,
        MAIL_E_REJECTED_NO_AUTH};
    return std::find(kConversation.begin(), kConversation.end(), outcome.result()) !=
           kConversation.end();
}

std::string told_failure(const Delivery& delivery) {
    const Dialogue& dialogue = delivery.dialogue;
    if (!is_told_by_log(delivery.outcome)) return delivery.outcome.text();
    if (!dialogue.logged) return delivery.server() + ": " + delivery.outcome.text();
    std::string text = (delivery.may_be_sent() ? "" : "not sent: ") + failure(delivery);
    if (delivery.may_be_sent()) text += "; it may or may not have the mail";
    if (dialogue.taken > 0)
        text += "; pieces that it took before that: " + std::to_string(dialogue.taken);
    return text;
}

std::string told_success(const Delivery& delivery) {
    const Dialogue& dialogue = delivery.dialogue;
    const Outcome& outcome = delivery.outcome;
    if (!dialogue.logged || dialogue.receipt.empty()) return outcome.text();
    const std::string server = delivery.server();
    if (delivery.is_unauthenticated() || outcome.remark() != 0) {
        const Outcome remark(outcome.remark() != 0 ? outcome.remark() : MAIL_SENT_UNAUTHENTICATED,
                             "");
        return remark.text() + "; " + server + " said: " + dialogue.receipt;
    }
    std::string text = "sent: " + server + " has the mail";
    if (dialogue.taken > 1) text += " in " + std::to_string(dialogue.taken) + " pieces";
    text += ": " + dialogue.receipt;
    if (!outcome) text += "; then the connection failed: " + cause(outcome);
    return text;
}

}  // namespace

std::string cause(const Outcome& outcome) {
    const std::string_view sentence = ovrmail::detail::meaning_of(outcome.result()).sentence;
    const std::string_view rest = std::string_view(outcome.text()).substr(sentence.size());
    return std::string(rest.substr(std::min(rest.find(' ') + 1, rest.size())));
}

bool Delivery::is_sent() const {
    return bool(outcome) || (!request.server().split_kib && dialogue.taken > 0);
}

bool Delivery::may_be_sent() const {
    if (!outcome.may_have_been_sent()) return false;
    return !dialogue.logged || dialogue.end_unanswered();
}

// A mail in pieces has no result for it.
bool Delivery::is_unauthenticated() const {
    if (outcome.result() == MAIL_SENT_UNAUTHENTICATED) return true;
    return outcome.result() == MAIL_SENT && request.server().account && dialogue.logged &&
           !dialogue.authenticated;
}

std::string Delivery::server() const {
    const ovrmail::Server& server = request.server();
    if (is_pop(outcome.result()) && server.pop_first)
        return "POP3 server " +
               where(server.pop_first->host, server.pop_first->port, Protocol::kPop3);
    return where(server.host, server.port);
}

int report_problem(const Outcome& problem) {
    complain(problem.text() + " [" + std::to_string(problem.result()) + "]");
    return exit_status(problem);
}

int report_delivery(const Delivery& delivery) {
    const Options& options = delivery.request.options();
    const std::string who = options.each ? delivery.to.front().mailbox + ": " : "";
    const std::string end = " [" + std::to_string(delivery.outcome.result()) + "]";
    const bool sent = delivery.is_sent();
    const bool accepted = !delivery.is_unauthenticated() || options.auth_optional;
    const bool all_well = delivery.outcome.result() == MAIL_SENT && accepted;
    const std::string what_to_do = hint(delivery);
    const auto say = sent ? tell : complain;
    if (!all_well || !options.quiet)
        say(who + (sent ? told_success(delivery) : told_failure(delivery)) + end);
    if (!what_to_do.empty()) say("what to do: " + what_to_do);
    if (delivery.dialogue.logged) {
        if (!all_well) say("mail log: " + mail_log_path());
    } else if (options.verbose || is_told_by_log(delivery.outcome)) {
        say("mail log: none, it would tell more; see ovrm-send --check-config");
    }
    if (sent) return accepted ? EX_OK : kExitUnauthenticated;
    return exit_status(delivery.outcome);
}

int worse(int one, int other) {
    const auto badness = [](int status) {
        if (status == EX_OK) return 0;
        if (status == kExitUnauthenticated) return 1;
        return status == EX_TEMPFAIL ? 2 : 3;
    };
    return badness(other) > badness(one) ? other : one;
}

}  // namespace ovrm_send

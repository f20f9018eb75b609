// ovrm_send_dialogue.cpp - reads "HH:MM:SS S: RCPT TO:<ann@example.com>" and its like.
//
// A command is in the log once it was sent, a reply once it was read. The end mark is logged as it
// is: an empty text, and a dot on the next line. Texts of the library hold no other line breaks.
#include "ovrm_send_dialogue.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

#include "log/entry.hpp"

namespace ovrm_send {
namespace {

namespace log = ovrmail::log;

constexpr std::string_view kTimeForm = "00:00:00 ";
constexpr std::string_view kEndMark = "\n.";

struct Verb {
    std::string_view start;
    Step step;
};
constexpr std::array kVerbs{
    Verb{"USER ", Step::kPop},       Verb{"PASS ", Step::kPop},     Verb{"STAT", Step::kPop},
    Verb{"EHLO ", Step::kHello},     Verb{"HELO ", Step::kHello},   Verb{"AUTH ", Step::kAuth},
    Verb{"MAIL FROM:", Step::kMail}, Verb{"RCPT TO:", Step::kRcpt}, Verb{"DATA", Step::kData},
    Verb{kEndMark, Step::kEnd},      Verb{"RSET", Step::kReset},    Verb{"QUIT", Step::kQuit}};

// A verb that takes no argument is the whole command.
bool begins_with(std::string_view command, std::string_view verb) {
    const bool has_argument = verb.ends_with(' ') || verb.ends_with(':');
    return has_argument ? command.starts_with(verb) : command == verb;
}

bool is_entry(std::string_view line) {
    return line.size() >= kTimeForm.size() &&
           std::equal(kTimeForm.begin(), kTimeForm.end(), line.begin(), [](char form, char c) {
               return form == '0' ? c >= '0' && c <= '9' : c == form;
           });
}

// "RCPT TO:<ann@example.com>": what stands between the brackets.
std::string address_in(std::string_view command) {
    const std::size_t open = command.find(":<");
    if (open == std::string_view::npos || !command.ends_with('>')) return {};
    return std::string(command.substr(open + 2, command.size() - open - 3));
}

// Entries without their time; a line that is none belongs to the one before. Banners are left out.
std::vector<std::string> entries_of(const std::vector<std::string>& lines) {
    std::vector<std::string> entries;
    for (const std::string& line : lines) {
        if (is_entry(line)) {
            entries.push_back(line.substr(kTimeForm.size()));
        } else if (line.starts_with('.') && !entries.empty()) {
            entries.back().append("\n").append(line);
        }
    }
    return entries;
}

}  // namespace

Dialogue::Dialogue(const std::vector<std::string>& log_lines) : logged(!log_lines.empty()) {
    using Take = void (Dialogue::*)(const std::string&);
    constexpr std::array<Take, log::kLabels.size()> kTakers{
        nullptr, &Dialogue::on_sent, &Dialogue::on_received, &Dialogue::on_note};
    for (const std::string& entry : entries_of(log_lines)) {
        for (std::size_t level = log::kSent; level < kTakers.size(); ++level) {
            const std::string label = std::string(log::kLabels[level]) + " ";
            if (entry.starts_with(label)) (this->*kTakers[level])(entry.substr(label.size()));
        }
    }
}

// A text that is no command goes on with AUTH or POP3: the answers of an account, some masked.
void Dialogue::on_sent(const std::string& text) {
    const bool quits_pop = step == Step::kPop && text == "QUIT";
    for (const Verb& verb : kVerbs) {
        if (begins_with(text, verb.start) && !quits_pop) step = verb.step;
    }
    if (step == Step::kMail || step == Step::kRcpt) address = address_in(text);
    command = text;
    reply.clear();
}

void Dialogue::on_received(const std::string& text) {
    const bool is_pop = text.starts_with("+OK") || text.starts_with("-ERR");
    if (is_pop && step == Step::kConnect) step = Step::kPop;
    const bool was_pop = step == Step::kPop && !is_pop && (command == "QUIT");
    if (step == Step::kConnect || was_pop) step = Step::kGreeting;
    reply = text;
    if (step == Step::kAuth) authenticated = text.starts_with('2');
    if (step == Step::kData && text.starts_with('3')) {
        step = Step::kMessage;
        reply.clear();
    }
    if (step == Step::kEnd && text.starts_with('2')) {
        ++taken;
        receipt = text;
    }
}

// "ERROR: SMTP TIMEOUT (timer=300) recv"
void Dialogue::on_note(const std::string& text) {
    constexpr std::string_view kTimer = " TIMEOUT (timer=";
    const std::size_t at = text.find(kTimer);
    if (!text.starts_with("ERROR: ") || at == std::string::npos) return;
    std::from_chars(text.data() + at + kTimer.size(), text.data() + text.size(), seconds);
}

}  // namespace ovrm_send

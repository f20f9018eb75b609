// ovrmail_outcome.hpp - what became of a mail, in words: the part of ovrmail.hpp that explains the
// results of the library to programs and to people.
#ifndef OVRMAIL_OUTCOME_HPP
#define OVRMAIL_OUTCOME_HPP

#include <netdb.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "mail_types.h"

namespace ovrmail {

// What became of a mail.
class [[nodiscard]] Outcome {
public:
    // A result of OvRm_SendEMail.
    //   result       a code of mail_types.h
    //   detail_text  what the detail buffer holds; may be empty
    Outcome(std::int32_t result, std::string_view detail_text);

    // A problem found before the library was called: nothing was sent.
    //   result    a negative code of mail_types.h
    //   argument  the argument, field or file that cannot be used
    //   why       what is wrong with it, and its limit
    //   error     errno, 0 when no system call failed
    Outcome(std::int32_t result, std::string argument, std::string_view why, int error = 0);

    // Whether the server has the mail.
    explicit operator bool() const noexcept { return result_ >= MAIL_SENT; }

    // A code of mail_types.h, MAIL_SENT or MAIL_E_...
    [[nodiscard]] std::int32_t result() const noexcept { return result_; }

    // What is to be said about a mail that was sent: MAIL_SENT_UNCONVERTED (1),
    // MAIL_SENT_UNAUTHENTICATED (2), or 0 for nothing. 0 when it was not sent.
    [[nodiscard]] std::int32_t remark() const noexcept { return std::max(result_, 0); }

    // One sentence for people: what happened, with the argument or file and its limit, the reply of
    // the server, or the system's words for its error. No line end, no control characters.
    [[nodiscard]] const std::string& text() const noexcept { return text_; }

    // What can be done about it; empty when there is nothing to add to the sentence.
    [[nodiscard]] const char* advice() const noexcept { return advice_; }

    // The last reply of a server that refused, up to 255 bytes without line end; else empty.
    [[nodiscard]] const std::string& reply() const noexcept { return reply_; }

    // The argument, field or file that was found unusable before the call; else empty.
    [[nodiscard]] const std::string& argument() const noexcept { return argument_; }

    // errno; after MAIL_E_CONNECT and MAIL_E_POP_CONNECT also h_errno (1 to 4); 0 for none.
    [[nodiscard]] int error() const noexcept { return error_; }

    // Whether the same call may succeed later: a 4yz reply, a time-out, a lost connection, a server
    // that cannot be reached, another send running, no memory, a full disk.
    [[nodiscard]] bool temporary() const noexcept { return temporary_; }

    // Whether the server may have the mail although this is a failure (MAIL_E_TIMEOUT,
    // MAIL_E_SYSTEM): sending again may deliver it twice. Pieces of a mail that was split may have
    // arrived whatever the failure.
    [[nodiscard]] bool may_have_been_sent() const noexcept { return may_have_been_sent_; }

private:
    std::int32_t result_;
    int error_ = 0;
    bool temporary_ = false;
    bool may_have_been_sent_ = false;
    const char* advice_ = "";
    std::string reply_;
    std::string argument_;
    std::string text_;
};

namespace detail {

// How the sentence of a result goes on, and what else its detail buffer tells.
enum class Detail { kNone, kReply, kSystem, kLookup };
// Whether the same call may succeed later; if it depends, on what.
enum class Later { kNo, kYes, kIf4yz, kIfShortage, kIfNameMayExist };

struct Meaning {
    std::int32_t result;
    Detail detail;
    Later later;
    bool may_have_been_sent;
    const char* sentence;
    const char* advice;
};

// What each result means, to every user of the library.
inline constexpr std::array kMeanings{
    Meaning{MAIL_SENT, Detail::kNone, Later::kNo, false, "sent: the server has the mail", ""},
    Meaning{MAIL_SENT_UNCONVERTED, Detail::kNone, Later::kNo, false,
            "sent, but the conversion of subject or text failed; both may be incomplete",
            "look at the mail that arrived, and at the locale of the process"},
    Meaning{MAIL_SENT_UNAUTHENTICATED, Detail::kNone, Later::kNo, false,
            "sent, but without the SMTP AUTH asked for: the server offers none of the mechanisms, "
            "or refused the account",
            "compare the mechanisms with the server's EHLO reply in the mail log, then check user "
            "and password"},
    Meaning{MAIL_E_ARGUMENT, Detail::kNone, Later::kNo, false,
            "not sent: an argument is out of range",
            "the trace in /var/opt/Quorvin/tmp2 names the check that failed (ovrm-trace)"},
    Meaning{MAIL_E_MEMORY, Detail::kNone, Later::kYes, false, "not sent: no memory",
            "free memory, send again"},
    Meaning{MAIL_E_WORK_FILE, Detail::kSystem, Later::kIfShortage, false,
            "not sent: a working file or an attachment could not be made, written or read",
            "check that /var/opt/Quorvin/tmp exists, is writable and has room (ovrm-send "
            "--check-config), and that the attachments are readable files"},
    Meaning{MAIL_E_TIMEOUT, Detail::kNone, Later::kYes, true,
            "the server did not answer in time; it may or may not have the mail",
            "see the last line of the mail log before sending again; raise the time-outs"},
    Meaning{MAIL_E_RECIPIENT, Detail::kNone, Later::kNo, false,
            "not sent: the recipients are not usable",
            "give 1 to 256 bytes of addresses without line breaks"},
    Meaning{MAIL_E_REJECTED, Detail::kReply, Later::kIf4yz, false, "not sent: the server refused",
            "see in the mail log which command it refused; one refused recipient refuses the whole "
            "mail"},
    Meaning{MAIL_E_SYSTEM, Detail::kSystem, Later::kYes, true,
            "the connection failed during the conversation; the server may or may not have the "
            "mail",
            "see the last line of the mail log before sending again"},
    Meaning{MAIL_E_ATTACHMENT, Detail::kNone, Later::kNo, false,
            "not sent: an attachment cannot be examined",
            "check that every attached file exists and its directories can be searched"},
    Meaning{MAIL_E_BUSY, Detail::kNone, Later::kYes, false,
            "not sent: another send is running in this process", "send again when it has ended"},
    Meaning{MAIL_E_CONNECT, Detail::kLookup, Later::kIfNameMayExist, false,
            "not sent: the server cannot be reached",
            "check the server's name and port, the name service, and any firewall between"},
    Meaning{MAIL_E_POP_REFUSED, Detail::kReply, Later::kNo, false,
            "not sent: the POP3 login was refused",
            "check user and password, and the host and port of the POP3 server"},
    Meaning{MAIL_E_POP_SYSTEM, Detail::kSystem, Later::kYes, false,
            "not sent: the connection to the POP3 server failed", "send again; see the mail log"},
    Meaning{MAIL_E_POP_TIMEOUT, Detail::kNone, Later::kYes, false,
            "not sent: the POP3 server did not answer in time",
            "send again, or raise the time-out of the POP3 server"},
    Meaning{MAIL_E_POP_CONNECT, Detail::kLookup, Later::kIfNameMayExist, false,
            "not sent: the POP3 server cannot be reached",
            "check the host and port of the POP3 server and the name service"},
    Meaning{MAIL_E_INTERNAL, Detail::kNone, Later::kNo, false, "not sent: an internal failure",
            "keep the trace in /var/opt/Quorvin/tmp2 (ovrm-trace) and report it"},
    Meaning{MAIL_E_REJECTED_AUTH_FAILED, Detail::kReply, Later::kIf4yz, false,
            "not sent: SMTP AUTH failed, and the server refused the sender or a recipient",
            "check user and password"},
    Meaning{MAIL_E_REJECTED_NO_AUTH, Detail::kReply, Later::kIf4yz, false,
            "not sent: the server offers none of the mechanisms allowed, and refused the sender or "
            "a recipient",
            "compare the mechanisms with the server's EHLO reply in the mail log"},
};
inline constexpr Meaning kUnknownResult{0,
                                        Detail::kNone,
                                        Later::kNo,
                                        false,
                                        "not sent: a result that ovrmail.hpp does not know",
                                        "use the header of the installed library"};

inline const Meaning& meaning_of(std::int32_t result) noexcept {
    const auto found = std::find_if(kMeanings.begin(), kMeanings.end(),
                                    [=](const Meaning& row) { return row.result == result; });
    return found == kMeanings.end() ? kUnknownResult : *found;
}

inline bool is_shortage(int error) noexcept {
    constexpr std::array kShortages{ENOSPC, EDQUOT, ENOMEM, EMFILE, ENFILE};
    return std::find(kShortages.begin(), kShortages.end(), error) != kShortages.end();
}

// The resolver's codes share the field with errno; below 5 only they occur in practice.
inline bool is_resolver_code(int error) noexcept { return error >= 1 && error <= NO_DATA; }

inline bool is_temporary(Later later, std::string_view reply, int error) noexcept {
    switch (later) {
        case Later::kNo:
            return false;
        case Later::kYes:
            return true;
        case Later::kIf4yz:  // RFC 5321 4.2.1
            return reply.substr(0, 1) == "4";
        case Later::kIfShortage:
            return is_shortage(error);
        case Later::kIfNameMayExist:
            return !is_resolver_code(error) || error == TRY_AGAIN;
    }
    return false;
}

inline std::string system_words(int error) {
    return std::string(std::strerror(error)) + " (" + std::to_string(error) + ")";
}

inline std::string_view without_line_end(std::string_view text) noexcept {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
    return text;
}

// A reply or a file name must not give orders to the terminal that shows it.
inline void hide_control_characters(std::string& text) noexcept {
    const auto is_control = [](char c) {
        return static_cast<unsigned char>(c) < 0x20 || c == '\x7F';
    };
    std::replace_if(text.begin(), text.end(), is_control, '?');
}

}  // namespace detail

inline Outcome::Outcome(std::int32_t result, std::string_view detail_text) : result_(result) {
    const detail::Meaning& meaning = detail::meaning_of(result);
    const std::string_view said = detail::without_line_end(detail_text);
    text_ = meaning.sentence;
    if (meaning.detail == detail::Detail::kReply) {
        reply_ = said;
        if (!said.empty()) text_ += "; it said: " + reply_;
    } else if (meaning.detail != detail::Detail::kNone) {
        std::from_chars(said.data(), said.data() + said.size(), error_);
        const bool is_lookup =
            meaning.detail == detail::Detail::kLookup && detail::is_resolver_code(error_);
        if (is_lookup) {
            text_ += std::string(": ") + ::hstrerror(error_) + " (" + std::to_string(error_) + ")";
        } else if (error_ != 0) {
            text_ += ": " + detail::system_words(error_);
        }
    }
    detail::hide_control_characters(text_);
    advice_ = meaning.advice;
    temporary_ = detail::is_temporary(meaning.later, reply_, error_);
    const bool no_socket = error_ == EMFILE || error_ == ENFILE;  // there never was a connection
    may_have_been_sent_ = meaning.may_have_been_sent && !no_socket;
}

inline Outcome::Outcome(std::int32_t result, std::string argument, std::string_view why, int error)
    : result_(result),
      error_(error),
      temporary_(detail::is_temporary(detail::meaning_of(result).later, {}, error)),
      argument_(std::move(argument)),
      text_("not sent: " + argument_ + ": " + std::string(why)) {
    detail::hide_control_characters(text_);
}

namespace detail {

// What was found before a call; nothing: no problem.
using Problem = std::optional<Outcome>;

inline std::string over_limit(std::size_t size, std::size_t most, std::string_view how = {}) {
    return std::to_string(size) + " bytes" + std::string(how) + ", the limit is " +
           std::to_string(most);
}

struct TextLimit {
    std::string_view argument;
    std::string_view text;  // never shown: it may be a password
    std::size_t least;
    std::size_t most;  // bytes
    std::int32_t result = MAIL_E_ARGUMENT;
};

struct NumberLimit {
    std::string_view argument;
    std::int64_t value;
    std::int64_t least;
    std::int64_t most;
    std::string_view unit;
};

inline Problem check_limit(const TextLimit& row) {
    std::string why;
    if (row.text.size() < row.least) why = "is empty";
    if (row.text.size() > row.most) why = over_limit(row.text.size(), row.most);
    if (row.text.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos)
        why = "holds a line break or NUL";
    if (why.empty()) return std::nullopt;
    return Outcome(row.result, std::string(row.argument), why);
}

inline Problem check_limit(const NumberLimit& row) {
    if (row.value >= row.least && row.value <= row.most) return std::nullopt;
    const std::string why = std::to_string(row.value) + std::string(row.unit) +
                            ", the limits are " + std::to_string(row.least) + " and " +
                            std::to_string(row.most);
    return Outcome(MAIL_E_ARGUMENT, std::string(row.argument), why);
}

template <class Limit>
Problem first_problem(std::initializer_list<Limit> limits) {
    for (const Limit& row : limits) {
        if (Problem problem = check_limit(row)) return problem;
    }
    return std::nullopt;
}

}  // namespace detail
}  // namespace ovrmail

#endif

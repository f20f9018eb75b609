// ovrm_send_results.cpp - one row per result code: sentence, what to do, exit status.
#include "ovrm_send_results.hpp"

#include <netdb.h>
#include <sysexits.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <iostream>
#include <string>

#include "mail_types.h"

namespace ovrm_send {
namespace {

enum class Detail { kNone, kReply, kSystem, kLookup };

struct Row {
    std::int32_t result;
    int exit_status;
    Detail detail;
    const char* sentence;
    const char* advice; /* null: nothing to do */
};

constexpr std::array kRows{
    Row{MAIL_SENT, EX_OK, Detail::kNone, "sent: the server has the mail", nullptr},
    Row{MAIL_SENT_UNCONVERTED, EX_OK, Detail::kNone,
        "sent, but the conversion of subject or text failed; both may be incomplete",
        "look at the mail that arrived, and at the locale of this command"},
    Row{MAIL_SENT_UNAUTHENTICATED, EX_OK, Detail::kNone,
        "sent, but without the SMTP AUTH asked for: the server offers none of the mechanisms, or "
        "refused the account",
        "compare --auth with the server's EHLO reply (--verbose), then check user and password"},
    Row{MAIL_E_ARGUMENT, EX_USAGE, Detail::kNone, "not sent: an argument is out of range",
        "the trace in /var/opt/Quorvin/tmp2 names the check that failed (ovrm-trace)"},
    Row{MAIL_E_MEMORY, EX_OSERR, Detail::kNone, "not sent: no memory", "free memory, send again"},
    Row{MAIL_E_WORK_FILE, EX_CANTCREAT, Detail::kSystem,
        "not sent: a working file or an attachment could not be made, written or read",
        "check that /var/opt/Quorvin/tmp exists, is writable and has room (--check-config), and "
        "that the attachments are readable files"},
    Row{MAIL_E_TIMEOUT, EX_TEMPFAIL, Detail::kNone,
        "the server did not answer in time; it may or may not have the mail",
        "see the last line of the log (--verbose) before sending again; raise --timeout-..."},
    Row{MAIL_E_RECIPIENT, EX_DATAERR, Detail::kNone, "not sent: the recipients are not usable",
        "give --to 1 to 256 characters without line breaks"},
    Row{MAIL_E_REJECTED, EX_UNAVAILABLE, Detail::kReply, "not sent: the server refused",
        "see which command it refused (--verbose); one refused recipient refuses the whole mail"},
    Row{MAIL_E_SYSTEM, EX_OSERR, Detail::kSystem,
        "the connection failed during the conversation; the server may or may not have the mail",
        "see the last line of the log (--verbose) before sending again"},
    Row{MAIL_E_ATTACHMENT, EX_NOINPUT, Detail::kNone, "not sent: an attachment cannot be examined",
        "check that every attached file exists and its directories can be searched"},
    Row{MAIL_E_BUSY, EX_TEMPFAIL, Detail::kNone,
        "not sent: another send is running in this process", "send again when it has ended"},
    Row{MAIL_E_CONNECT, EX_NOHOST, Detail::kLookup, "not sent: the server cannot be reached",
        "check --server and --port, the name service, and any firewall between"},
    Row{MAIL_E_POP_REFUSED, EX_NOPERM, Detail::kReply, "not sent: the POP3 login was refused",
        "check user and password, and the host and port of --pop-before"},
    Row{MAIL_E_POP_SYSTEM, EX_OSERR, Detail::kSystem,
        "not sent: the connection to the POP3 server failed",
        "send again; see the log (--verbose)"},
    Row{MAIL_E_POP_TIMEOUT, EX_TEMPFAIL, Detail::kNone,
        "not sent: the POP3 server did not answer in time", "send again, or raise --pop-timeout"},
    Row{MAIL_E_POP_CONNECT, EX_NOHOST, Detail::kLookup,
        "not sent: the POP3 server cannot be reached",
        "check the host and port of --pop-before and the name service"},
    Row{MAIL_E_INTERNAL, EX_SOFTWARE, Detail::kNone, "not sent: an internal failure",
        "keep the trace in /var/opt/Quorvin/tmp2 (ovrm-trace) and report it"},
    Row{MAIL_E_REJECTED_AUTH_FAILED, EX_NOPERM, Detail::kReply,
        "not sent: SMTP AUTH failed, and the server refused the sender or a recipient",
        "check user and password"},
    Row{MAIL_E_REJECTED_NO_AUTH, EX_NOPERM, Detail::kReply,
        "not sent: the server offers none of the mechanisms of --auth, and refused the sender or a "
        "recipient",
        "compare --auth with the server's EHLO reply (--verbose)"},
};
constexpr Row kUnknown{0, EX_SOFTWARE, Detail::kNone,
                       "not sent: a result this command does not know",
                       "use the ovrm-send of the installed library"};

std::string explain(Detail kind, std::string_view detail) {
    if (kind == Detail::kNone || detail.empty()) return {};
    if (kind == Detail::kReply) return "; it said: " + std::string(detail);
    int code = 0;
    std::from_chars(detail.data(), detail.data() + detail.size(), code);
    if (code == 0) return {};
    // The resolver's codes share the field with errno; below 5 only they occur in practice.
    const bool resolver = kind == Detail::kLookup && code <= NO_DATA;
    return std::string(": ") + (resolver ? hstrerror(code) : std::strerror(code)) + " (" +
           std::to_string(code) + ")";
}

std::string_view without_line_end(std::string_view text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
    return text;
}

// A refusal with a reply of the 4xx class is one to repeat later (RFC 5321 4.2.1).
int exit_status(const Row& row, std::string_view detail) {
    const bool later = row.result == MAIL_E_REJECTED && detail.substr(0, 1) == "4";
    return later ? EX_TEMPFAIL : row.exit_status;
}

}  // namespace

int report_result(std::int32_t result, std::string_view detail, bool quiet) {
    detail = without_line_end(detail);
    const auto* found = std::find_if(kRows.begin(), kRows.end(),
                                     [&](const Row& row) { return row.result == result; });
    const Row& row = found == kRows.end() ? kUnknown : *found;
    if (quiet && result == MAIL_SENT) return row.exit_status;
    std::ostream& out = result < 0 ? std::cerr : std::cout;
    out << "ovrm-send: " << row.sentence << explain(row.detail, detail) << " [" << result << "]\n";
    if (row.advice != nullptr) out << "ovrm-send: what to do: " << row.advice << "\n";
    return exit_status(row, detail);
}

}  // namespace ovrm_send

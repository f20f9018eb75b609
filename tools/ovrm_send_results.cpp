// ovrm_send_results.cpp - the exit status of each result; its sentence is the header's.
#include "ovrm_send_results.hpp"

#include <sysexits.h>

#include <algorithm>
#include <array>
#include <iostream>

#include "ovrmail_text.hpp"

namespace ovrm_send {
namespace {

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

int exit_status(const ovrmail::Outcome& outcome) {
    if (outcome.result() == MAIL_E_REJECTED && outcome.temporary()) return EX_TEMPFAIL;
    // A problem that was found before the call lies in the text or in a file.
    if (outcome.result() == MAIL_E_ARGUMENT && !outcome.argument().empty()) return EX_DATAERR;
    if (outcome.result() == MAIL_E_WORK_FILE && !outcome.argument().empty()) return EX_NOINPUT;
    const auto* found = std::find_if(
        kRows.begin(), kRows.end(), [&](const Row& row) { return row.result == outcome.result(); });
    return found == kRows.end() ? EX_SOFTWARE : found->exit_status;
}

}  // namespace

int report_outcome(const ovrmail::Outcome& outcome, bool quiet) {
    if (quiet && outcome.result() == MAIL_SENT) return EX_OK;
    std::ostream& out = outcome ? std::cout : std::cerr;
    out << "ovrm-send: " << outcome.text() << " [" << outcome.result() << "]\n";
    if (*outcome.advice() != '\0') out << "ovrm-send: what to do: " << outcome.advice() << "\n";
    return exit_status(outcome);
}

std::size_t report_unsendable(std::string_view what, const std::string& utf8) {
    const ovrmail::Converted text = ovrmail::to_library_text(utf8);
    for (const ovrmail::Unsendable& character : text.unsendable) {
        std::cerr << "ovrm-send: " << what << ", " << character.text() << "\n";
    }
    if (!text.has_converter && !text.unsendable.empty())
        std::cerr << "ovrm-send: this system has no conversion from UTF-8 to Shift_JIS\n";
    return text.unsendable.size();
}

}  // namespace ovrm_send

// ovrm_send_results.hpp - what became of a send: to the person in sentences, to the script as an
// exit status.
#pragma once

#include <string>

#include "ovrm_send_dialogue.hpp"
#include "ovrm_send_inspect.hpp"
#include "ovrm_send_request.hpp"
#include "ovrmail_outcome.hpp"

namespace ovrm_send {

inline constexpr int kExitUnauthenticated = 76; /* sent without the SMTP AUTH asked for */

// A send that has ended, and what is known of it.
struct Delivery {
    const Request& request;
    const Addresses& to;
    const ovrmail::Outcome& outcome;
    const Dialogue& dialogue;
    Findings findings;

    // The server has the mail, also where the call failed only after that.
    [[nodiscard]] bool is_sent() const;
    [[nodiscard]] bool may_be_sent() const;
    // SMTP AUTH was asked for and did not take place.
    [[nodiscard]] bool is_unauthenticated() const;
    [[nodiscard]] std::string server() const;
};

// Says what was found before a send. Returns the exit status.
int report_problem(const ovrmail::Outcome& problem);

// Says on standard output (the mail went out) or standard error (it did not) what became of it,
// what to do, and where the mail log is. Returns the exit status.
int report_delivery(const Delivery& delivery);

// The worse of two exit statuses: a failure that lasts, one that may pass, a remark, success.
int worse(int one, int other);

// What can be done about it, as the case is; empty when there is nothing to add.
std::string hint(const Delivery& delivery);

// The system's words for an outcome's error, or the server's reply; empty when there are none.
std::string cause(const ovrmail::Outcome& outcome);

}  // namespace ovrm_send

// ovrm_send_results.hpp - what an outcome means to the person, and the script, that sent the mail.
#pragma once

#include <string>
#include <string_view>

#include "ovrmail_outcome.hpp"

namespace ovrm_send {

// Says on standard output (the mail went out) or standard error (it did not) what became of it and
// what to do. Returns the exit status.
int report_outcome(const ovrmail::Outcome& outcome, bool quiet);

// Names on standard error every character of the text that a mail cannot carry, with its place.
// Returns how many there are.
std::size_t report_unsendable(std::string_view what, const std::string& utf8);

}  // namespace ovrm_send

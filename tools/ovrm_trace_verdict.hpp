// ovrm_trace_verdict.hpp - what became of a call, in one sentence.
#pragma once

#include <string>

#include "ovrm_trace_call.hpp"

namespace ovrm_trace {

// "RCPT TO:<ann@example.com> was refused: 550 5.1.1 user unknown; result -6". Made of the trace
// points, and of the entries of the mail log where they are woven in. What neither holds is not
// guessed. Printable ASCII.
std::string verdict(const Call& call);

}  // namespace ovrm_trace

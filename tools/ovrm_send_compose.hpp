// ovrm_send_compose.hpp - --dry-run: the message, or its pieces, without a connection.
#pragma once

#include "ovrm_send_options.hpp"
#include "ovrm_send_request.hpp"

namespace ovrm_send {

// Composes in a temporary directory with the library's own functions, prints the bytes that would
// follow DATA (lines end in CR LF, leading dots are doubled) on standard output and the warnings
// on standard error. Returns the exit status.
int dry_run(const Options& options, const Request& request);

}  // namespace ovrm_send

// ovrm_send_compose.hpp - the message, or its pieces, without a connection.
#pragma once

#include "ovrm_send_files.hpp"
#include "ovrm_send_inspect.hpp"
#include "ovrm_send_request.hpp"

namespace ovrm_send {

// Composes a mail in the temporary directory with the library's own functions, prints the bytes
// that would follow DATA (lines end in CR LF, leading dots are doubled) on standard output and the
// warnings on standard error. Returns the exit status.
int print_mail(const Request& request, const ovrmail::Mail& mail,
               const TemporaryDirectory& directory);

// The same for a message that is composed here, in lines that end in LF.
int print_message(const std::string& message);

// Only the warnings, without the contents of attachments. Where the mail cannot be composed there
// are none: the send will say why.
Findings inspect_mail(const Request& request, const ovrmail::Mail& mail,
                      const TemporaryDirectory& directory);

}  // namespace ovrm_send

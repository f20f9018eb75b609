// ovrm_send_show.hpp - the lines that the command prints. What comes from a server, a file or a
// name can neither steer the terminal nor look like a line of the command: it is escaped on the way
// out, and everything goes this way.
#pragma once

#include <string>
#include <string_view>

namespace ovrm_send {

// The text with \xNN for each byte of a control character, of a character that is not visible or
// changes the direction of writing, and of what is no UTF-8.
std::string shown(std::string_view text);

// Whether all of it is UTF-8.
bool is_utf8(std::string_view text);

// Each prints one line, at once.
void print(std::string_view line);     // on standard output, as it is but for shown()
void tell(std::string_view line);      // "ovrm-send: LINE" on standard output
void complain(std::string_view line);  // "ovrm-send: LINE" on standard error
void warn(std::string_view line);      // "ovrm-send: warning: LINE" on standard error

// From now on warn() says nothing.
void hold_warnings();

}  // namespace ovrm_send

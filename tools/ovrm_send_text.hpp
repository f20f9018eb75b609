// ovrm_send_text.hpp - UTF-8 from the terminal to the Shift_JIS that the library sends.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ovrm_send {

// Converts a text. A character that a mail in ISO-2022-JP cannot carry is named on standard error
// with its place ("body, line 3, character 7: ..."); it becomes "?" when replace is set, otherwise
// the result is empty.
std::optional<std::string> to_shift_jis(std::string_view what, std::string_view utf8, bool replace);

// The other way round, for a line of the mail log; bytes that are no Shift_JIS stay as they are.
std::string to_utf8(const std::string& line);

}  // namespace ovrm_send

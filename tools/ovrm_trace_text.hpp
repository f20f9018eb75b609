// ovrm_trace_text.hpp - bytes from rings and logs as text that a terminal or a JSON reader may see.
#pragma once

#include <string>
#include <string_view>

namespace ovrm_trace {

// Printable ASCII stays; CR and LF become \r and \n, other bytes \xNN.
std::string escaped(std::string_view bytes);

// The same, but Japanese text becomes UTF-8: Shift_JIS, or EUC-JP where the bytes are no Shift_JIS
// or would be half-width katakana.
std::string decoded(std::string_view bytes);

// Two digits for each byte, each pair between `before` and `after`.
std::string hex(std::string_view bytes, std::string_view before = "", std::string_view after = "");

// Printable ASCII stays, other bytes become dots.
std::string ascii(std::string_view bytes);

// A JSON string. Bytes beyond ASCII stand as the characters U+0080 to U+00FF.
std::string quoted(std::string_view bytes);

// A JSON string of what decoded() or escaped() has made.
std::string quoted_text(std::string_view text);

}  // namespace ovrm_trace

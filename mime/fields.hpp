// fields.hpp - header fields that a whole mail and a partial piece have in common. Every function
// returns false once the sink has failed.
#pragma once

#include <string_view>

#include "mime/text_sink.hpp"

namespace ovrmail::mime {

// A text argument of an exported function: null counts as empty.
constexpr std::string_view text_or_empty(const char* text) noexcept {
    return text != nullptr ? text : "";
}

bool put_date(TextSink out) noexcept;
bool put_line(TextSink out, std::string_view name, std::string_view value,
              std::string_view end = "\r\n") noexcept;
bool put_recipients(TextSink out, std::string_view to) noexcept;
bool put_message_id(TextSink out) noexcept;

// Puts the value of the Subject field: folded and, where it holds Japanese, encoded.
bool put_subject(TextSink out, std::string_view subject) noexcept;

}  // namespace ovrmail::mime

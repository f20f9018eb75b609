// text_part.hpp - the text part of a message, from the staged body file.
#pragma once

#include "common/block_io.hpp"
#include "mime/result.hpp"
#include "mime/scratch.hpp"

namespace ovrmail::mime {

// Looks for a Shift_JIS lead byte in the body. False when reading failed.
bool scan_charset(InputWindow& body, bool& japanese) noexcept;

// Looks for `text`, of up to half a block, in the body from its position on. False when reading
// failed.
bool find_text(InputWindow& body, std::string_view text, bool& found) noexcept;

// Copies the body, from its position on, line by line: dots doubled, overlong lines broken,
// Japanese converted. kOk, kReadFailed with errno, or kWriteFailed.
Result copy_text(InputWindow& body, bool japanese, common::BlockWriter& out) noexcept;

}  // namespace ovrmail::mime

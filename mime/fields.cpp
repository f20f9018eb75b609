// fields.cpp - header fields that whole mails and pieces have in common; see fields.hpp. Date and
// Message-Id are in identity.cpp, Subject is in subject.cpp.
//
// Called while the header of a mail or a piece is made. The To field is folded, one address on each
// line (RFC 822 section 3.1.1). No state.
#include "mime/fields.hpp"

namespace ovrmail::mime {

bool put_line(TextSink out, std::string_view name, std::string_view value,
              std::string_view end) noexcept {
    return out.put(name) && out.put(value) && out.put(end);
}

// Kept: each address keeps its comma and its leading blanks; a list that ends in a comma gives a
// last continuation line of four blanks. Existing callers rely on their lists being sent unchanged.
bool put_recipients(TextSink out, std::string_view to) noexcept {
    std::string_view name = "To: ";
    for (;;) {
        const std::size_t comma = to.find(',');
        const std::size_t size = comma == to.npos ? to.size() : comma + 1;
        if (!put_line(out, name, to.substr(0, size))) return false;
        if (comma == to.npos) return true;
        to.remove_prefix(size);
        name = "    ";
    }
}

}  // namespace ovrmail::mime

// ovrm_send_inspect.hpp - what receivers dislike in a message, found before it is sent.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

namespace ovrm_send {

// Copies a message in wire form (lines ending in CR LF) from in to out and warns on standard error
// about lines over 998 bytes, 8-bit bytes in header fields, encoded words glued to other text,
// and, where dots are not doubled (a prepared message), lines that start with a dot, and bare CR.
class Inspector {
public:
    explicit Inspector(bool prepared) : prepared_(prepared) {}
    void copy(std::istream& in, std::ostream& out);

private:
    void look_at(std::string_view line);
    void look_at_header(std::string_view line);
    void look_at_prepared(std::string_view line);
    void warn(const std::string& what) const;

    bool prepared_;
    bool in_header_ = true;
    std::size_t number_ = 0;
};

// Warns when this host's name, which EHLO and the Message-Id show, has no domain.
void inspect_host_name();

}  // namespace ovrm_send

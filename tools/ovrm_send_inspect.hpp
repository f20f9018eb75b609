// ovrm_send_inspect.hpp - what receivers dislike in a mail, found before it is sent.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "ovrmail.hpp"

namespace ovrm_send {

// What a refusal may be about.
struct Findings {
    bool long_lines = false;
    bool has_8bit = false;
};

// Reads a message in wire form (lines ending in CR LF) and warns about lines over 998 bytes, 8-bit
// bytes in the header, encoded words glued to other text, and, where dots are not doubled (a
// prepared message), lines that start with a dot, and bare CR.
class Inspector {
public:
    explicit Inspector(bool prepared) : prepared_(prepared) {}

    void read(std::istream& in);
    // The same, and the message goes to standard output: as it is, but escaped on a terminal.
    void print(std::istream& in);

    [[nodiscard]] Findings findings() const { return findings_; }

private:
    void look_at(std::string_view line);
    void look_at_header(std::string_view line);
    void look_at_prepared(std::string_view line);
    void warn_of_line(const std::string& what) const;

    bool prepared_;
    bool in_header_ = true;
    std::size_t number_ = 0;
    Findings findings_;
};

// Warn of names that the library writes into the mail as they are, and of a Date field whose offset
// is not the zone's, as the library knows whole hours of standard time alone.
void inspect_names(const std::vector<ovrmail::Attachment>& attachments, Findings& findings);
void inspect_date();

// Where this host's name, which EHLO and the Message-Id show, has no domain.
std::vector<std::string> host_name_remarks();

}  // namespace ovrm_send

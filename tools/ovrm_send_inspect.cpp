// ovrm_send_inspect.cpp - the warnings of --dry-run.
#include "ovrm_send_inspect.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <iostream>

#include "mime.h"

namespace ovrm_send {
namespace {

constexpr std::size_t kMaxLine = 998; /* RFC 5322 2.1.1, without CR LF */
constexpr std::string_view kDelimiter = "-----------------OvWexl";
constexpr std::string_view kEncodedStart = "=?ISO-2022-JP?B?";
constexpr std::string_view kEncodedEnd = "?=";

bool has_8bit(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

bool is_blank(char c) { return c == ' ' || c == '\t'; }

// RFC 2047 5: blanks must part an encoded word from what stands beside it.
bool has_glued_word(std::string_view line) {
    for (std::size_t at = line.find(kEncodedStart); at != std::string_view::npos;
         at = line.find(kEncodedStart, at)) {
        if (at > 0 && !is_blank(line[at - 1])) return true;
        at = line.find(kEncodedEnd, at + kEncodedStart.size());
        if (at == std::string_view::npos) return false;
        at += kEncodedEnd.size();
        if (at < line.size() && !is_blank(line[at])) return true;
    }
    return false;
}

}  // namespace

void Inspector::warn(const std::string& what) const {
    std::cerr << "ovrm-send: warning: line " << number_ << ": " << what << "\n";
}

void Inspector::copy(std::istream& in, std::ostream& out) {
    std::string line;
    while (std::getline(in, line)) {
        out << line;
        if (!in.eof()) out << '\n';
        ++number_;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        look_at(line);
    }
}

void Inspector::look_at(std::string_view line) {
    if (line.size() > kMaxLine) {
        warn(std::to_string(line.size()) + " bytes; more than 998 may be cut or refused");
    }
    if (prepared_) look_at_prepared(line);
    // A part of a multipart message has a header of its own behind its delimiter.
    if (line.substr(0, kDelimiter.size()) == kDelimiter && line.substr(line.size() - 2) != "--") {
        in_header_ = true;
    } else if (line.empty()) {
        in_header_ = false;
    } else if (in_header_) {
        look_at_header(line);
    }
}

void Inspector::look_at_header(std::string_view line) {
    if (has_8bit(line)) {
        warn("8-bit text in a header field: " + std::string(line.substr(0, line.find(':'))));
    }
    if (has_glued_word(line)) {
        warn("an encoded word stands beside other text without a blank; some readers show it raw");
    }
}

void Inspector::look_at_prepared(std::string_view line) {
    if (line == ".") {
        warn("a lone \".\" ends the mail here; double it in the prepared file");
    } else if (!line.empty() && line[0] == '.' && line.substr(0, 2) != "..") {
        warn("the server takes the \".\" at the start of this line away; double it");
    }
    if (!line.empty() && line.back() == '\r') {
        warn("CR before the line end: the prepared file must have plain LF line ends");
        prepared_ = false; /* one word about it is enough */
    }
}

void inspect_host_name() {
    std::array<char, 257> host{};
    gethostname(host.data(), host.size() - 1);
    if (std::string_view(host.data()).find('.') == std::string_view::npos) {
        std::cerr << "ovrm-send: warning: EHLO will name this host \"" << host.data()
                  << "\", without a domain; some servers refuse that\n";
    }
    std::array<char, 1024> line{};
    SMTP_MakeMsgId(line.data());
    const std::string_view id(line.data());
    const std::size_t at = id.find('@');
    if (at != std::string_view::npos && id.find('.', at) == std::string_view::npos) {
        std::cerr << "ovrm-send: warning: the Message-Id names this host without a domain; add a "
                     "\"domain\" line to /etc/resolv.conf\n";
    }
}

}  // namespace ovrm_send

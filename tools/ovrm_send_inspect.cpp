// ovrm_send_inspect.cpp - warnings about a mail, before it is sent and in a dry run.
//
// Most look at the composed lines, some at what the library will put into them: names of files go
// into the header as they are, and the Date field has the offset that SMTP_makeDate gives it.
#include "ovrm_send_inspect.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <iostream>

#include "mime.h"
#include "ovrm_send_show.hpp"

namespace ovrm_send {
namespace {

constexpr std::size_t kMaxLine = 998; /* RFC 5322 2.1.1, without CR LF */
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

void Inspector::warn_of_line(const std::string& what) const {
    warn("line " + std::to_string(number_) + ": " + what);
}

void Inspector::read(std::istream& in) {
    for (std::string line; std::getline(in, line);) look_at(line);
}

void Inspector::print(std::istream& in) {
    const bool is_terminal = isatty(STDOUT_FILENO) != 0;
    for (std::string line; std::getline(in, line);) {
        std::cout << (is_terminal ? shown(line.substr(0, line.rfind('\r'))) : line);
        if (!in.eof()) std::cout << '\n';
        look_at(line);
    }
}

void Inspector::look_at(std::string_view line) {
    ++number_;
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.size() > kMaxLine) {
        warn_of_line(std::to_string(line.size()) + " bytes; more than 998 may be cut or refused");
        findings_.long_lines = true;
    }
    if (has_8bit(line)) findings_.has_8bit = true;
    if (prepared_) look_at_prepared(line);
    if (line.empty()) in_header_ = false;
    if (in_header_) look_at_header(line);
}

void Inspector::look_at_header(std::string_view line) {
    if (has_8bit(line)) {
        warn_of_line("8-bit text in a header field: " +
                     std::string(line.substr(0, line.find(':'))));
    }
    if (has_glued_word(line)) {
        warn_of_line(
            "an encoded word stands beside other text without a blank; some readers show it raw");
    }
}

void Inspector::look_at_prepared(std::string_view line) {
    if (line == ".") {
        warn_of_line("a lone \".\" ends the mail here; double it in the prepared file");
    } else if (line.starts_with('.') && !line.starts_with("..")) {
        warn_of_line("the server takes the \".\" at the start of this line away; double it");
    }
    if (line.ends_with('\r')) {
        warn_of_line("CR before the line end: the prepared file must have plain LF line ends");
        prepared_ = false; /* one word about it is enough */
    }
}

void inspect_names(const std::vector<ovrmail::Attachment>& attachments, Findings& findings) {
    struct Trouble {
        bool (*is_met)(std::string_view name);
        const char* words;
    };
    constexpr std::array kTroubles{
        Trouble{[](std::string_view name) { return name.find('"') != name.npos; },
                "a quote ends the name early"},
        Trouble{[](std::string_view name) { return name.find(';') != name.npos; },
                "some readers end the name at \";\""},
        Trouble{[](std::string_view name) { return name.rfind(':') + 1 > 1; },
                "what stands before \":\" is cut off"},
        Trouble{has_8bit, "8-bit text in a header field"}};
    for (const ovrmail::Attachment& attachment : attachments) {
        const std::string name = attachment.path.substr(attachment.path.rfind('/') + 1);
        if (has_8bit(name)) findings.has_8bit = true;
        for (const Trouble& trouble : kTroubles) {
            if (trouble.is_met(name))
                warn("name of " + attachment.path + ": " + trouble.words +
                     "; --utf8 writes it right");
        }
    }
}

void inspect_date() {
    std::array<char, 32> date{};
    SMTP_makeDate(date.data());
    std::string told(date.data());
    told.erase(0, told.rfind(' ') + 1);
    if (told == "-0000") told = "+0000";
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 8> zone{};
    std::strftime(zone.data(), zone.size(), "%z", &local);
    if (told != zone.data())
        warn("the Date field says " + told + ", but the zone is " + zone.data() +
             ": the library knows whole hours of standard time alone; --utf8 writes it right");
}

std::vector<std::string> host_name_remarks() {
    std::vector<std::string> remarks;
    std::array<char, 257> host{};
    gethostname(host.data(), host.size() - 1);
    if (std::string_view(host.data()).find('.') == std::string_view::npos)
        remarks.push_back(std::string("EHLO will name this host \"") + host.data() +
                          "\", without a domain; some servers refuse that");
    std::array<char, 1024> line{};
    SMTP_MakeMsgId(line.data());
    const std::string_view id(line.data());
    const std::size_t at = id.find('@');
    if (at != std::string_view::npos && id.find('.', at) == std::string_view::npos)
        remarks.emplace_back(
            "the Message-Id names this host without a domain; add a \"domain\" line to "
            "/etc/resolv.conf");
    return remarks;
}

}  // namespace ovrm_send

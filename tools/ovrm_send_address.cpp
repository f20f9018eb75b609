// ovrm_send_address.cpp - takes "Name <mailbox>" apart, or says why it does not.
//
// Nothing is repaired: the library and its servers take a mailbox as it stands, so a blank, a
// bracket or a comma that means something else than it seems would send the mail elsewhere. Quoted
// strings are masked first; commas, brackets and blanks are looked for in the masked text.
#include "ovrm_send_address.hpp"

#include <algorithm>

namespace ovrm_send {
namespace {

constexpr char kMask = 'q';

bool is_control(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

// The text with the mask for each byte of a quoted string. False when a quote is left open.
bool mask_quoted(std::string_view text, std::string& out) {
    out = text;
    bool inside = false;
    for (std::size_t i = 0; i < out.size(); ++i) {
        const bool is_quote = out[i] == '"';
        if (inside && out[i] == '\\' && i + 1 < out.size()) out[i++] = kMask;
        if (inside || is_quote) out[i] = kMask;
        if (is_quote) inside = !inside;
    }
    return !inside;
}

// Without the blanks at both ends; the mask keeps in step.
void trim(std::string_view& text, std::string_view& mask) {
    const std::size_t first = std::min(mask.find_first_not_of(' '), mask.size());
    const std::size_t end = mask.find_last_not_of(' ') + 1;
    text = text.substr(first, std::max(end, first) - first);
    mask = mask.substr(first, std::max(end, first) - first);
}

std::string unquoted(std::string_view name) {
    std::string out;
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == '\\' && i + 1 < name.size()) {
            out += name[++i];
        } else if (name[i] != '"') {
            out += name[i];
        }
    }
    return out;
}

std::string judge_mailbox(std::string_view mailbox, std::string_view mask) {
    if (mailbox.empty()) return "is empty; an address has 1 to 256 bytes";
    if (mask.find(' ') != std::string_view::npos) return "holds a blank outside quotes";
    if (mailbox.find_first_of("<>") != std::string_view::npos)
        return "\"<\" or \">\" stands where none belongs";
    if (mailbox.find(',') != std::string_view::npos)
        return "holds a comma in quotes, at which the library would cut it";
    if (std::any_of(mailbox.begin(), mailbox.end(), [](char c) { return (c & 0x80) != 0; }))
        return "is not ASCII, which needs SMTPUTF8: the library does not speak it";
    return {};
}

// Takes one element of a list apart.
std::string read_address(std::string_view text, std::string_view mask, Address& out) {
    trim(text, mask);
    const std::size_t open = mask.find('<');
    if (open == std::string_view::npos) {
        out.mailbox = text;
        return judge_mailbox(text, mask);
    }
    if (mask.back() != '>') return "does not end with the \">\" that belongs to its \"<\"";
    std::string_view name = text.substr(0, open);
    std::string_view name_mask = mask.substr(0, open);
    trim(name, name_mask);
    if (name_mask.find_first_of("()>[]:;@\\") != std::string_view::npos)
        return "the name before \"<\" holds a character that must stand in quotes";
    out.name = unquoted(name);
    const std::size_t size = text.size() - open - 2;
    out.mailbox = text.substr(open + 1, size);
    return judge_mailbox(out.mailbox, mask.substr(open + 1, size));
}

}  // namespace

std::string read_addresses(std::string_view list, Addresses& out) {
    if (std::any_of(list.begin(), list.end(), is_control))
        return "holds a control character, such as a line break";
    std::string masked;
    if (!mask_quoted(list, masked)) return "a quote is not closed";
    std::string_view mask = masked;
    for (;;) {
        const std::size_t size = std::min(mask.find(','), mask.size());
        const std::string_view element = list.substr(0, size);
        Address& address = out.emplace_back();
        const std::string why = read_address(element, mask.substr(0, size), address);
        if (!why.empty()) return std::string("\"").append(element).append("\": ") + why;
        if (size == mask.size()) return {};
        list.remove_prefix(size + 1);
        mask.remove_prefix(size + 1);
    }
}

std::vector<std::string> mailboxes(const Addresses& addresses) {
    std::vector<std::string> list;
    for (const Address& address : addresses) list.push_back(address.mailbox);
    return list;
}

}  // namespace ovrm_send

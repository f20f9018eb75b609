// ovrm_send_request.cpp - reads what the options name (texts, password), and makes a mail and a
// server of it.
#include "ovrm_send_request.hpp"

#include <sysexits.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "ovrm_send_files.hpp"
#include "ovrm_send_password.hpp"
#include "ovrm_send_results.hpp"
#include "ovrm_send_show.hpp"

namespace ovrm_send {
namespace {

// LF at the end of each line, as the library and GMime take it.
void settle_line_ends(const char* what, std::string& text) {
    for (std::size_t at = text.find('\r'); at != std::string::npos; at = text.find('\r', at + 1)) {
        if (at + 1 < text.size() && text[at + 1] == '\n') continue;
        warn(std::string(what) + ": a CR without LF is sent as a line end");
        break;
    }
    text = ovrmail::detail::with_plain_line_ends(text);
}

// Names every character of the text that cannot be sent, with its place. Returns how many.
//   any  whether all that is UTF-8 can be sent
std::size_t report_unsendable(const char* what, const std::string& utf8, bool any) {
    const ovrmail::Converted text = ovrmail::to_library_text(utf8);
    std::size_t count = 0;
    for (const ovrmail::Unsendable& character : text.unsendable) {
        if (any && is_utf8(character.bytes)) continue;
        complain(std::string(what) + ", " + character.text() + (any ? " (not UTF-8)" : ""));
        ++count;
    }
    if (!any && !text.has_converter && count != 0)
        complain("this system has no conversion from UTF-8 to Shift_JIS");
    return count;
}

}  // namespace

Request::Request(const Options& options) : options_(options) {
    exit_status_ = read_texts();
    // The library ends the text with a line break of its own.
    if (!options.composed_here() && letter_.text.ends_with('\n')) letter_.text.pop_back();
    if (exit_status_ == EX_OK) exit_status_ = judge_characters();
    if (exit_status_ == EX_OK) exit_status_ = check_mails();
    if (exit_status_ == EX_OK && !options.dry_run) exit_status_ = read_server();
}

Request::~Request() {
    if (server_.account) wipe(server_.account->password);
    if (server_.pop_first) wipe(server_.pop_first->password);
}

bool Request::read_text(const std::string& path, const char* what, std::string& out) const {
    if (const int error = read_file(path, out); error != 0) {
        complain((path == "-" ? "standard input" : path) + ": " + std::strerror(error));
        return false;
    }
    settle_line_ends(what, out);
    return true;
}

int Request::read_texts() {
    if (options_.html_file && !read_text(*options_.html_file, "HTML", letter_.html.emplace()))
        return EX_NOINPUT;
    if (options_.body) {
        letter_.text = *options_.body;
        settle_line_ends("body", letter_.text);
        return EX_OK;
    }
    if (options_.body_file)
        return read_text(*options_.body_file, "body", letter_.text) ? EX_OK : EX_NOINPUT;
    if (options_.html_file || !options_.prepared.empty()) return EX_OK;
    if (isatty(STDIN_FILENO) != 0) {
        complain("the text is missing: give --body or --body-file, or pipe it in");
        return EX_USAGE;
    }
    return read_text("-", "body", letter_.text) ? EX_OK : EX_NOINPUT;
}

int Request::judge_characters() const {
    const bool any = options_.composed_here();
    std::size_t count = report_unsendable("subject", options_.subject, any) +
                        report_unsendable("body", letter_.text, any);
    if (letter_.html) count += report_unsendable("HTML", *letter_.html, any);
    if (count == 0 || (options_.replace && !any)) return EX_OK;
    if (!any) complain("--utf8 sends any characters, --replace sends \"?\" in their place");
    return EX_DATAERR;
}

ovrmail::Mail Request::mail(const Addresses& to) const {
    ovrmail::Mail mail{options_.from.front().mailbox, mailboxes(to), options_.subject, letter_.text,
                       options_.attachments};
    if (options_.replace) mail.replace_unsendable();
    if (!options_.prepared.empty())
        mail.prepared = ovrmail::Prepared{options_.prepared, options_.prepared_header};
    return mail;
}

// Of a message that is composed here, only addresses and files have limits.
int Request::check_mails() const {
    ovrmail::Mail whole = mail(options_.to);
    if (options_.composed_here()) whole.subject = whole.body = "";
    if (options_.each) whole.recipients.resize(1); /* each was measured alone with its option */
    const auto problem = ovrmail::check(whole);
    if (!problem) return EX_OK;
    const int status = report_problem(*problem);
    if (problem->argument() == "subject" || problem->argument() == "body")
        complain("--utf8 sends texts of any length");
    return status;
}

int Request::read_server() {
    server_.host = options_.server;
    server_.port = options_.port;
    server_.time_outs = options_.time_outs;
    server_.split_kib = options_.split_kb;
    std::string* password = nullptr;
    if (options_.pop) {
        server_.pop_first = options_.pop;
        server_.pop_first->user = options_.user;
        password = &server_.pop_first->password;
    } else if (options_.mechanisms != 0) {
        server_.account = {options_.user, {}, options_.mechanisms};
        password = &server_.account->password;
    }
    if (password != nullptr && !read_password(options_, *password)) return EX_CONFIG;
    warn_of_clear_password(options_);
    const auto problem = ovrmail::check(server_);
    if (!problem) return EX_OK;
    report_problem(*problem);
    return EX_CONFIG;
}

std::uint64_t Request::estimated_bytes() const {
    std::uint64_t bytes = 2 + ovrmail::to_library_text(letter_.text).bytes.size();
    for (const ovrmail::Attachment& attachment : options_.attachments) {
        std::error_code error;
        const std::uint64_t size = std::filesystem::file_size(attachment.path, error);
        if (!error) bytes += (size * 4 + 2) / 3;
    }
    return bytes;
}

}  // namespace ovrm_send

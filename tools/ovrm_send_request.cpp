// ovrm_send_request.cpp - reads what the options name (text, password, attachments) and lays it
// out as the library's records.
#include "ovrm_send_request.hpp"

#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

#include "ovrm_send_text.hpp"

namespace ovrm_send {
namespace {

bool complain(const std::string& what, const char* why) {
    std::cerr << "ovrm-send: " << what << ": " << why << "\n";
    return false;
}

bool read_all(const std::string& path, std::string& out) {
    if (path == "-") {
        out.assign(std::istreambuf_iterator<char>(std::cin), {});
        return true;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) return complain(path, std::strerror(errno));
    out.assign(std::istreambuf_iterator<char>(file), {});
    return !file.bad() || complain(path, "cannot be read");
}

// The library ends the text with a line break of its own.
void drop_last_line_end(std::string& text) {
    if (!text.empty() && text.back() == '\n') text.pop_back();
    if (!text.empty() && text.back() == '\r') text.pop_back();
}

bool fits(const char* what, const std::string& text, std::size_t limit) {
    if (text.size() <= limit) return true;
    std::cerr << "ovrm-send: " << what << ": " << text.size()
              << " bytes once converted, the limit is " << limit << "\n";
    return false;
}

bool read_password(const Options& options, std::string& password) {
    if (options.password_variable) {
        const char* value = std::getenv(options.password_variable->c_str());
        if (value == nullptr) return complain(*options.password_variable, "not in the environment");
        password = value;
        return true;
    }
    struct stat status {};
    if (stat(options.password_file->c_str(), &status) == 0 && (status.st_mode & 077) != 0) {
        std::cerr << "ovrm-send: warning: " << *options.password_file
                  << " can be read by others than its owner\n";
    }
    std::ifstream file(*options.password_file, std::ios::binary);
    if (!file) return complain(*options.password_file, std::strerror(errno));
    password.reserve(std::size_t{MAIL_ACCOUNT_MAX} * 4);
    std::getline(file, password);
    if (!password.empty() && password.back() == '\r') password.pop_back();
    return true;
}

template <std::size_t Size>
void store(char (&field)[Size], const std::string& text) {
    text.copy(field, Size - 1);
}

}  // namespace

Request::Request(const Options& options) : options_(options) {
    if (!read_texts()) {
        exit_status_ = EX_DATAERR;
    } else if (!list_parts()) {
        exit_status_ = EX_NOINPUT;
    } else if (!options.dry_run && !options.user.empty() && !read_account()) {
        exit_status_ = EX_CONFIG;
    }
}

Request::~Request() {
    explicit_bzero(&smtp_account_, sizeof smtp_account_);
    explicit_bzero(&pop_account_, sizeof pop_account_);
}

bool Request::read_texts() {
    const auto converted = to_shift_jis("subject", options_.subject, options_.replace);
    std::optional<std::string> text = options_.body;
    if (options_.body_file && !read_all(*options_.body_file, text.emplace())) return false;
    if (text) {
        drop_last_line_end(*text);
        body_ = to_shift_jis("body", *text, options_.replace);
        if (!body_) return false;
    }
    if (!converted) return false;
    subject_ = *converted;
    return fits("subject", subject_, MAIL_SUBJECT_MAX) &&
           (!body_ || fits("body", *body_, MAIL_BODY_MAX));
}

bool Request::list_parts() {
    parts_.push_back({MAIL_KIND_BODY, 0, body_ ? body_->c_str() : nullptr});
    estimated_bytes_ = 2 + (body_ ? body_->size() : 0);
    for (const Attachment& attachment : options_.attachments) {
        struct stat status {};
        if (stat(attachment.path.c_str(), &status) != 0) {
            return complain(attachment.path, std::strerror(errno));
        }
        if (!S_ISREG(status.st_mode)) return complain(attachment.path, "not a file");
        const std::uint32_t kind =
            attachment.temporary ? MAIL_KIND_ATTACHMENT_TEMP : MAIL_KIND_ATTACHMENT;
        parts_.push_back({kind, 0, attachment.path.c_str()});
        estimated_bytes_ += (static_cast<std::uint64_t>(status.st_size) * 4 + 2) / 3;
    }
    if (!options_.prepared.empty()) {
        parts_.push_back({MAIL_KIND_PREPARED, 0, options_.prepared.c_str()});
    }
    if (!options_.prepared_header.empty()) {
        parts_.push_back({MAIL_KIND_PREPARED_HEADER, 0, options_.prepared_header.c_str()});
    }
    return true;
}

bool Request::read_account() {
    std::string password;
    bool usable = read_password(options_, password);
    if (usable && password.size() > MAIL_ACCOUNT_MAX) {
        usable = complain("password", "longer than 64 bytes");
    }
    if (usable && options_.pop) {
        pop_account_.ulPort = options_.pop->port;
        pop_account_.lWaitMs = options_.pop->wait_ms;
        pop_account_.usTimeOut = options_.pop->time_out;
        store(pop_account_.szHost, options_.pop->host);
        store(pop_account_.szUser, options_.user);
        store(pop_account_.szPassword, password);
        auth_ = {MAIL_AUTH_POP_BEFORE_SMTP, 0, &pop_account_};
    } else if (usable) {
        smtp_account_.ulMechanisms = options_.mechanisms;
        store(smtp_account_.szUser, options_.user);
        store(smtp_account_.szPassword, password);
        auth_ = {MAIL_AUTH_SMTP, 0, &smtp_account_};
    }
    explicit_bzero(password.data(), password.size());
    return usable;
}

}  // namespace ovrm_send

// ovrm_send_request.cpp - reads what the options name (text, password) and makes a mail and a
// server of it.
#include "ovrm_send_request.hpp"

#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "ovrm_send_results.hpp"

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
    password.reserve(std::size_t{4} * MAIL_ACCOUNT_MAX);
    std::getline(file, password);
    if (!password.empty() && password.back() == '\r') password.pop_back();
    return true;
}

void wipe(std::string& secret) { explicit_bzero(secret.data(), secret.size()); }

std::vector<std::string> split_at_commas(const std::string& list) {
    std::vector<std::string> elements;
    std::istringstream in(list + ',');
    for (std::string element; std::getline(in, element, ',');) elements.push_back(element);
    return elements;
}

}  // namespace

Request::Request(const Options& options) : options_(options) {
    mail_.sender = options.from;
    mail_.recipients = split_at_commas(options.to);
    mail_.subject = options.subject;
    if (options.replace) mail_.replace_unsendable();
    list_parts();
    if (!read_texts()) {
        exit_status_ = EX_DATAERR;
    } else if (const auto problem = ovrmail::check(mail_)) {
        exit_status_ = report_outcome(*problem, false);
    } else if (!options.dry_run) {
        exit_status_ = read_server();
    }
}

Request::~Request() {
    if (server_.account) wipe(server_.account->password);
    if (server_.pop_first) wipe(server_.pop_first->password);
}

bool Request::read_texts() {
    std::optional<std::string> text = options_.body;
    if (options_.body_file && !read_all(*options_.body_file, text.emplace())) return false;
    if (text) drop_last_line_end(*text);
    mail_.body = text.value_or("");
    const std::size_t unsendable =
        report_unsendable("subject", mail_.subject) + report_unsendable("body", mail_.body);
    return unsendable == 0 || options_.replace;
}

void Request::list_parts() {
    mail_.attachments = options_.attachments;
    if (!options_.prepared.empty())
        mail_.prepared = ovrmail::Prepared{options_.prepared, options_.prepared_header};
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
    const auto problem = ovrmail::check(server_);
    if (!problem) return EX_OK;
    report_outcome(*problem, false);
    return EX_CONFIG;
}

std::uint64_t Request::estimated_bytes() const {
    std::uint64_t bytes = 2 + ovrmail::to_library_text(mail_.body).bytes.size();
    for (const ovrmail::Attachment& attachment : mail_.attachments) {
        std::error_code error;
        const std::uint64_t size = std::filesystem::file_size(attachment.path, error);
        if (!error) bytes += (size * 4 + 2) / 3;
    }
    return bytes;
}

}  // namespace ovrm_send

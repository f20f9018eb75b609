// ovrm_send_request.hpp - what is to be sent, read and checked: texts, files, server, password.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ovrm_send_message.hpp"
#include "ovrm_send_options.hpp"
#include "ovrmail.hpp"

namespace ovrm_send {

// Wipes the password at its end.
class Request {
public:
    // Reads texts and password, checks everything. On failure the reason has been given and
    // exit_status() says how to end.
    explicit Request(const Options& options);
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    [[nodiscard]] int exit_status() const { return exit_status_; } /* 0: usable */
    [[nodiscard]] const Options& options() const { return options_; }
    [[nodiscard]] const Letter& letter() const { return letter_; }
    [[nodiscard]] const ovrmail::Server& server() const { return server_; }
    /* for the library to compose */
    [[nodiscard]] ovrmail::Mail mail(const Addresses& to) const;
    /* bytes of text and attachments in base64, without headers */
    [[nodiscard]] std::uint64_t estimated_bytes() const;

private:
    int read_texts();
    bool read_text(const std::string& path, const char* what, std::string& out) const;
    [[nodiscard]] int judge_characters() const;
    [[nodiscard]] int check_mails() const;
    int read_server();

    const Options& options_;
    int exit_status_ = 0;
    Letter letter_;
    ovrmail::Server server_;
};

}  // namespace ovrm_send

// ovrm_send_request.hpp - the mail and the server that the options name.
#pragma once

#include <cstdint>
#include <string>

#include "ovrm_send_options.hpp"
#include "ovrmail.hpp"

namespace ovrm_send {

inline constexpr std::uint64_t kBlock = 1024;

// Wipes the password at its end.
class Request {
public:
    // Reads body and password, checks the mail. On failure the reason has been given and
    // exit_status() says how to end.
    explicit Request(const Options& options);
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    [[nodiscard]] int exit_status() const { return exit_status_; } /* 0: usable */
    [[nodiscard]] const ovrmail::Mail& mail() const { return mail_; }
    [[nodiscard]] const ovrmail::Server& server() const { return server_; }
    /* bytes of text and attachments in base64, without headers */
    [[nodiscard]] std::uint64_t estimated_bytes() const;

private:
    bool read_texts();
    void list_parts();
    int read_server();

    const Options& options_;
    int exit_status_ = 0;
    ovrmail::Mail mail_;
    ovrmail::Server server_;
};

}  // namespace ovrm_send

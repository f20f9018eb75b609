// ovrm_send_request.hpp - the options in the form the library takes them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "mail_types.h"
#include "ovrm_send_options.hpp"

namespace ovrm_send {

inline constexpr std::uint64_t kBlock = 1024;

// Owns everything its entries point to; wipes the password at its end.
class Request {
public:
    // Reads body and password, converts the texts. On failure the reason has been given and
    // exit_status() says how to end.
    explicit Request(const Options& options);
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    [[nodiscard]] int exit_status() const { return exit_status_; } /* 0: usable */
    [[nodiscard]] const std::string& subject() const { return subject_; }
    [[nodiscard]] const std::optional<std::string>& body() const { return body_; }
    [[nodiscard]] const std::vector<MailEntry>& parts() const { return parts_; }
    [[nodiscard]] const MailEntry* auth() const { return auth_.kind != 0 ? &auth_ : nullptr; }
    [[nodiscard]] std::uint64_t estimated_bytes() const { return estimated_bytes_; }

private:
    bool read_texts();
    bool read_account();
    bool list_parts();

    const Options& options_;
    int exit_status_ = 0;
    std::string subject_;
    std::optional<std::string> body_;
    std::vector<MailEntry> parts_;
    MailEntry auth_{};
    MailAuthAccount smtp_account_{};
    MailPopAccount pop_account_{};
    std::uint64_t estimated_bytes_ = 0; /* text and attachments in base64, without headers */
};

}  // namespace ovrm_send

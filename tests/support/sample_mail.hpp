// sample_mail.hpp - a send request with good values; a test changes what it is about.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "mail_api.h"

namespace support {

inline constexpr const char* kWorkDir = "/var/opt/Quorvin/tmp";
inline constexpr const char* kLogDir = "/var/opt/Quorvin/log";
inline constexpr const char* kTraceDir = "/var/opt/Quorvin/tmp2";

struct SampleMail {
    std::string to = "ann@example.test";
    std::string from = "bob@example.test";
    std::string subject = "Hello";
    std::string body = "one\ntwo\n";
    std::string server = "a.invalid";  // no real server is ever reached
    std::string work_dir = kWorkDir;

    MailEntry recipient{MAIL_KIND_RECIPIENT, 0, nullptr};  // value: `to` unless set
    std::uint32_t recipient_count = 1;
    bool has_body = true;
    std::vector<MailEntry> attachments;  // the part list from entry 1 on
    std::uint32_t partial = 0;
    MailSplitOption split{10, 0};
    MailTimeout time_out = MAIL_TIMEOUT_DEFAULTS;
    MailAuthAccount account{MAIL_MECH_PLAIN, "user", "secret"};
    MailPopAccount pop{0, 0, "user", "secret", "a.invalid", 60};
    MailEntry auth{0, 0, nullptr};  // kind 0: no option
    std::array<char, 256> detail{'u', 'n', 't', 'o', 'u', 'c', 'h', 'e', 'd'};

    void use_auth() { auth = {MAIL_AUTH_SMTP, 0, &account}; }
    void use_pop() { auth = {MAIL_AUTH_POP_BEFORE_SMTP, 0, &pop}; }

    // The two entries of the library, called under a fault::Watch.
    std::int32_t send();
    std::int32_t send_parts();

private:
    std::vector<MailEntry> parts() const;
    MailEntry first_recipient() const;
    const MailEntry* auth_option() const { return auth.kind != 0 ? &auth : nullptr; }
};

// Log and trace off (trc_conf says so), or on with the levels given.
void set_logs(int log_number, int trace_level);
std::vector<std::string> files_in(const std::string& directory);
std::string log_path();
// The mail log of this process, without its time stamps and banners.
std::vector<std::string> log_lines();

}  // namespace support

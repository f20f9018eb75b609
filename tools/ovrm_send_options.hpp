// ovrm_send_options.hpp - what the command line of ovrm-send may say, and what it said.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ovrm_send_address.hpp"
#include "ovrmail.hpp"

namespace ovrm_send {

struct Options {
    std::string server;
    int port = 0;
    Addresses from; /* one */
    Addresses to;
    bool each = false; /* a mail to each recipient */
    std::string subject;
    std::optional<std::string> body;
    std::optional<std::string> body_file; /* "-": standard input */
    std::optional<std::string> html_file;
    bool utf8 = false;
    bool replace = false;
    std::vector<ovrmail::Attachment> attachments;
    std::optional<int> split_kb;
    ovrmail::TimeOuts time_outs;
    std::uint32_t mechanisms = 0; /* MAIL_MECH_ bits; 0: no SMTP AUTH */
    bool auth_optional = false;
    std::optional<ovrmail::PopFirst> pop; /* without the account */
    std::string user;
    std::optional<std::string> password_file;
    std::optional<std::string> password_variable;
    std::string prepared;
    std::string prepared_header;
    bool prepared_raw = false;
    bool dry_run = false;
    bool check_config = false;
    bool verbose = false;
    bool quiet = false;

    /* whether the mail is composed here, and not by the library */
    [[nodiscard]] bool composed_here() const { return utf8 || html_file.has_value(); }
    [[nodiscard]] bool has_password() const { return password_file || password_variable; }
};

// Reads and checks the command line. Returns the exit status when there is nothing more to do
// (--help, --version, or a mistake, which has been explained on standard error).
std::optional<int> parse_command_line(int argc, char** argv, Options& options);

// Whether the options go together and none is missing; what is wrong is said on standard error.
bool is_complete(const Options& options);

}  // namespace ovrm_send

// ovrm_send_options.hpp - what the command line of ovrm-send may say, and what it said.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ovrmail.hpp"

namespace ovrm_send {

struct Options {
    std::string server;
    int port = 0;
    std::string from;
    std::string to; /* comma-separated, as the library takes it */
    std::string subject;
    std::optional<std::string> body;
    std::optional<std::string> body_file; /* "-": standard input */
    std::vector<ovrmail::Attachment> attachments;
    std::optional<int> split_kb;
    ovrmail::TimeOuts time_outs;
    std::uint32_t mechanisms = 0;         /* MAIL_MECH_ bits; 0: no SMTP AUTH */
    std::optional<ovrmail::PopFirst> pop; /* without the account */
    std::string user;
    std::optional<std::string> password_file;
    std::optional<std::string> password_variable;
    std::string prepared;
    std::string prepared_header;
    bool replace = false;
    bool dry_run = false;
    bool check_config = false;
    bool verbose = false;
    bool quiet = false;
};

// Reads and checks the command line. Returns the exit status when there is nothing more to do
// (--help, --version, or a mistake, which has been explained on standard error).
std::optional<int> parse_command_line(int argc, char** argv, Options& options);

}  // namespace ovrm_send

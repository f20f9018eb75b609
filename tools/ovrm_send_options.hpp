// ovrm_send_options.hpp - what the command line of ovrm-send may say, and what it said.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "mail_types.h"

namespace ovrm_send {

struct Attachment {
    std::string path;
    bool temporary; /* deleted by the library after a successful send */
};

struct PopBefore {
    std::string host;
    std::uint32_t port = 0;
    std::int32_t wait_ms = 0;
    std::uint16_t time_out = 60; /* seconds */
};

struct Options {
    std::string server;
    std::uint32_t port = 0;
    std::string from;
    std::string to; /* comma-separated, as the library takes it */
    std::string subject;
    std::optional<std::string> body;
    std::optional<std::string> body_file; /* "-": standard input */
    std::vector<Attachment> attachments;
    std::optional<std::int32_t> split_kb;
    std::optional<MailTimeout> time_out;
    std::uint32_t mechanisms = 0; /* MAIL_MECH_ bits; 0: no SMTP AUTH */
    std::optional<PopBefore> pop;
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

// ovrm_send_config.hpp - --check-config: what a send finds on this machine, and at the server.
#pragma once

#include <string>

#include "ovrm_send_options.hpp"

namespace ovrm_send {

// The findings, a line each on standard output.
class Report {
public:
    static void good(const std::string& what);
    static void doubtful(const std::string& what); /* works, but look at it */
    void bad(const std::string& what);
    [[nodiscard]] bool is_clean() const { return is_clean_; }

private:
    bool is_clean_ = true;
};

// Checks everything. Returns 0, or EX_CONFIG when something keeps mail from being sent or a setting
// from having the effect that was meant.
int check_config(const Options& options);

// Every line of the two configuration files, and what the library makes of them.
void check_settings(Report& report);

// The server that the options name: connection, greeting, EHLO. No mail is sent.
void check_server(const Options& options, Report& report);

}  // namespace ovrm_send

// ovrm_send.cpp - sends one mail through the library, by hand or from a script.
//
// The command sends through ovrmail.hpp, as any C++ program may. It sets no locale: the library
// then takes text as Shift_JIS, to which the header converts it.
#include <sysexits.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <string>

#include "ovrm_send_compose.hpp"
#include "ovrm_send_config.hpp"
#include "ovrm_send_options.hpp"
#include "ovrm_send_request.hpp"
#include "ovrm_send_results.hpp"
#include "ovrm_send_watch.hpp"
#include "ovrmail.hpp"

namespace {

using ovrm_send::Options;
using ovrm_send::Request;

constexpr std::uint64_t kBigMail =
    1024 * ovrm_send::kBlock; /* bytes; above it a progress line is shown */

// The mail log of this process: one file, to which an earlier process of the same number may have
// written before.
class LogExcerpt {
public:
    LogExcerpt() : path_("/var/opt/Quorvin/log/rmsmtp" + std::to_string(getpid()) + ".log") {
        std::ifstream file(path_, std::ios::binary | std::ios::ate);
        if (file) before_ = file.tellg();
    }
    void print() const {
        std::ifstream file(path_, std::ios::binary | std::ios::ate);
        if (!file) {
            std::cerr << "ovrm-send: no mail log at " << path_ << "\n";
            return;
        }
        const bool continued = file.tellg() > before_;
        file.seekg(continued ? before_ : std::streampos(0));
        for (std::string line; std::getline(file, line);) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            std::cout << ovrmail::from_library_text(line) << "\n";
        }
    }

private:
    std::string path_;
    std::streampos before_ = 0;
};

int send(const Options& options, const Request& request) {
    const std::uint64_t bytes = request.estimated_bytes();
    const bool progress = !options.quiet && isatty(STDERR_FILENO) != 0 && bytes > kBigMail;
    const LogExcerpt log;
    const ovrmail::Outcome outcome = [&] {
        const ovrm_send::Watch watch(progress ? bytes : 0);
        return ovrmail::send(request.mail(), request.server());
    }();
    if (options.verbose) log.print();
    return ovrm_send::report_outcome(outcome, options.quiet);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (const auto status = ovrm_send::parse_command_line(argc, argv, options)) return *status;
    if (options.check_config) return ovrm_send::check_config();
    const Request request(options);
    if (request.exit_status() != EX_OK) return request.exit_status();
    return options.dry_run ? ovrm_send::dry_run(options, request) : send(options, request);
}

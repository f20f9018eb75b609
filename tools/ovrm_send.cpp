// ovrm_send.cpp - sends one mail through the library, by hand or from a script.
//
// The command calls the library's exported functions only. It sets no locale: the library then
// takes text as Shift_JIS, to which the command has converted it.
#include <sysexits.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <iostream>
#include <string>

#include "mail_api.h"
#include "ovrm_send_compose.hpp"
#include "ovrm_send_config.hpp"
#include "ovrm_send_options.hpp"
#include "ovrm_send_request.hpp"
#include "ovrm_send_results.hpp"
#include "ovrm_send_text.hpp"
#include "ovrm_send_watch.hpp"

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
            std::cout << ovrm_send::to_utf8(line) << "\n";
        }
    }

private:
    std::string path_;
    std::streampos before_ = 0;
};

int send(const Options& options, const Request& request) {
    const MailEntry recipient{MAIL_KIND_RECIPIENT, 0, options.to.c_str()};
    const MailSplitOption split{options.split_kb.value_or(64), options.port};
    const auto& parts = request.parts();
    std::array<char, 256> detail{};
    const bool progress =
        !options.quiet && isatty(STDERR_FILENO) != 0 && request.estimated_bytes() > kBigMail;
    const LogExcerpt log;
    std::int32_t result = 0;
    {
        const ovrm_send::Watch watch(progress ? request.estimated_bytes() : 0);
        result = OvRm_SendEMail(
            &recipient, 1, parts.data(), static_cast<std::uint32_t>(parts.size()),
            options.from.c_str(), request.subject().c_str(), options.server.c_str(),
            options.split_kb ? 1 : 0, &split, options.time_out ? &*options.time_out : nullptr,
            request.auth(), detail.data());
    }
    if (options.verbose) log.print();
    return ovrm_send::report_result(result, detail.data(), options.quiet);
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

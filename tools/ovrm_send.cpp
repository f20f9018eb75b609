// ovrm_send.cpp - sends one mail through the library, by hand or from a script.
//
// The command sends through ovrmail.hpp, as any C++ program may; where the sentence of an outcome
// is not enough, it reads the mail log of its own process. It sets no locale: the library then
// takes text as Shift_JIS, to which the header converts it.
#include <sysexits.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>

#include "ovrm_send_compose.hpp"
#include "ovrm_send_config.hpp"
#include "ovrm_send_log.hpp"
#include "ovrm_send_options.hpp"
#include "ovrm_send_prepared.hpp"
#include "ovrm_send_request.hpp"
#include "ovrm_send_results.hpp"
#include "ovrm_send_show.hpp"
#include "ovrm_send_watch.hpp"
#include "ovrmail.hpp"

namespace {

using namespace ovrm_send;

constexpr std::uint64_t kBigMail = 1 << 20; /* bytes; above it a progress line is shown */

// One run: what is to be sent, and what its sends share.
class Run {
public:
    Run(const Options& options, Watch& watch, const TemporaryDirectory& directory)
        : options_(options), watch_(watch), directory_(directory), request_(options) {}

    // The exit status of the whole.
    int carry_out();

private:
    [[nodiscard]] ovrmail::Mail mail(const Addresses& to) const;
    ovrmail::Outcome call(const Addresses& to) const;
    int send(const Addresses& to) const;
    [[nodiscard]] int send_all() const;
    [[nodiscard]] int dry_run() const;
    void remove_temporary_attachments() const;

    const Options& options_;
    Watch& watch_;
    const TemporaryDirectory& directory_;
    const Request request_;
    std::optional<PreparedCopy> prepared_;
    Findings findings_;
};

int Run::carry_out() {
    if (request_.exit_status() != EX_OK) return request_.exit_status();
    if (!options_.prepared.empty() && !options_.prepared_raw) {
        prepared_.emplace(*request_.mail(options_.to).prepared);
        if (const auto& problem = prepared_->problem()) return report_problem(*problem);
    }
    if (options_.dry_run) return dry_run();
    if (!options_.composed_here())
        findings_ = inspect_mail(request_, mail({options_.to.front()}), directory_);
    return send_all();
}

ovrmail::Mail Run::mail(const Addresses& to) const {
    ovrmail::Mail mail = request_.mail(to);
    if (prepared_) mail.prepared = prepared_->files();
    for (ovrmail::Attachment& attachment : mail.attachments)
        attachment.temporary = false; /* they go when all mails have been sent */
    return mail;
}

int Run::dry_run() const {
    for (const std::string& remark : host_name_remarks()) warn(remark);
    const Addresses to = options_.each ? Addresses{options_.to.front()} : options_.to;
    if (to.size() < options_.to.size())
        complain("shown is the mail to " + to.front().mailbox + ", the first of " +
                 std::to_string(options_.to.size()));
    if (!options_.composed_here()) return print_mail(request_, mail(to), directory_);
    std::string message;
    const auto problem = compose_message(options_, request_.letter(), to, message);
    return problem ? report_problem(*problem) : print_message(message);
}

ovrmail::Outcome Run::call(const Addresses& to) const {
    if (!options_.composed_here()) return ovrmail::send(mail(to), request_.server());
    std::string message;
    if (const auto problem = compose_message(options_, request_.letter(), to, message))
        return *problem;
    return ovrmail::send_message(message, request_.server(), options_.from.front().mailbox,
                                 mailboxes(to));
}

int Run::send(const Addresses& to) const {
    const std::uint64_t bytes = request_.estimated_bytes();
    const bool progress = !options_.quiet && isatty(STDERR_FILENO) != 0 && bytes > kBigMail;
    LogReader log(options_.verbose);
    watch_.begin(log, options_.verbose, progress ? bytes : 0);
    const ovrmail::Outcome outcome = call(to);
    watch_.end();
    log.read();
    return report_delivery({request_, to, outcome, Dialogue(log.lines()), findings_});
}

int Run::send_all() const {
    int status = EX_OK;
    if (!options_.each) {
        status = send(options_.to);
    } else {
        for (const Address& to : options_.to) status = worse(status, send({to}));
    }
    if (status == EX_OK || status == kExitUnauthenticated) remove_temporary_attachments();
    return status;
}

void Run::remove_temporary_attachments() const {
    for (const ovrmail::Attachment& attachment : options_.attachments) {
        if (attachment.temporary && unlink(attachment.path.c_str()) != 0)
            warn(attachment.path + " cannot be deleted: " + std::strerror(errno));
    }
}

}  // namespace

int main(int argc, char** argv) {
    claim_standard_files();
    std::signal(SIGPIPE, SIG_IGN); /* a reader of -v that goes away does not keep the mail back */
    Options options;
    if (const auto status = parse_command_line(argc, argv, options)) return *status;
    if (options.quiet) hold_warnings();
    if (options.check_config) return check_config(options);
    const TemporaryDirectory directory;
    Watch watch(directory.path());
    return Run(options, watch, directory).carry_out();
}

// ovrm_send_rules.cpp - which options need or exclude each other: one table, and all that is broken
// is said at once.
#include <array>

#include "ovrm_send_message.hpp"
#include "ovrm_send_options.hpp"
#include "ovrm_send_show.hpp"

namespace ovrm_send {
namespace {

bool has_account(const Options& o) { return o.mechanisms != 0 || o.pop.has_value(); }
bool is_prepared(const Options& o) { return !o.prepared.empty(); }

struct Rule {
    bool (*is_broken)(const Options& o);
    const char* text;
};
constexpr std::array kRules{
    Rule{[](const Options& o) { return o.server.empty() && !o.dry_run; }, "--server is missing"},
    Rule{[](const Options& o) { return o.from.empty(); }, "--from is missing"},
    Rule{[](const Options& o) { return o.to.empty(); }, "--to is missing"},
    Rule{[](const Options& o) { return o.body && o.body_file; },
         "--body and --body-file exclude each other"},
    Rule{[](const Options& o) { return o.mechanisms != 0 && o.pop; },
         "--auth and --pop-before exclude each other"},
    Rule{[](const Options& o) { return o.pop && o.pop->host.empty(); },
         "--pop-wait, --pop-timeout: no --pop-before"},
    Rule{[](const Options& o) { return has_account(o) && o.user.empty(); },
         "--auth and --pop-before need --user"},
    Rule{[](const Options& o) { return has_account(o) && !o.has_password(); },
         "--auth and --pop-before need --password-file or --password-env"},
    Rule{[](const Options& o) { return !has_account(o) && (o.has_password() || !o.user.empty()); },
         "--user and its password need --auth or --pop-before"},
    Rule{[](const Options& o) { return o.auth_optional && o.mechanisms == 0; },
         "--auth-optional needs --auth"},
    Rule{[](const Options& o) { return o.password_file && o.password_variable; },
         "--password-file and --password-env exclude each other"},
    Rule{[](const Options& o) {
             return is_prepared(o) && (o.body || o.body_file || !o.attachments.empty());
         },
         "--prepared takes neither a body nor attachments"},
    Rule{[](const Options& o) { return is_prepared(o) && o.composed_here(); },
         "--prepared excludes --utf8 and --html"},
    Rule{[](const Options& o) { return (is_prepared(o) || o.composed_here()) && o.split_kb; },
         "--split sends what the library composes: not with --prepared, --utf8 or --html"},
    Rule{[](const Options& o) { return !is_prepared(o) && !o.prepared_header.empty(); },
         "--prepared-header needs --prepared"},
    Rule{[](const Options& o) { return !is_prepared(o) && o.prepared_raw; },
         "--prepared-raw needs --prepared"}};

}  // namespace

bool is_complete(const Options& options) {
    bool is_broken = false;
    const auto refuse = [&](const std::string& why) {
        complain(why);
        is_broken = true;
    };
    for (const Rule& rule : kRules) {
        if (rule.is_broken(options)) refuse(rule.text);
    }
    const std::size_t bytes = ovrmail::detail::joined(mailboxes(options.to)).size();
    if (bytes > MAIL_ADDRESS_MAX && !options.each)
        refuse("--to: " + std::to_string(bytes) +
               " bytes of recipients, the limit of one mail is " +
               std::to_string(MAIL_ADDRESS_MAX) + ": --each sends a mail to each");
    const std::string problem = options.composed_here() ? composer_problem() : "";
    if (!problem.empty()) refuse("--utf8 and --html: " + problem);
    return !is_broken;
}

}  // namespace ovrm_send

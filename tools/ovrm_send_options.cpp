// ovrm_send_options.cpp - the command line: one table gives the parser, --help and the limits.
//
// The limits are those of the library, checked here as well so that a mistake is explained by the
// option's name and not by a bare -1.
#include "ovrm_send_options.hpp"

#include <getopt.h>
#include <sysexits.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <iostream>
#include <limits>
#include <string_view>

#include "ovrm_send_server.hpp"
#include "ovrm_send_show.hpp"

namespace ovrm_send {
namespace {

using ovrmail::PopFirst;
using ovrmail::TimeOuts;

constexpr std::int32_t kMaxPort = 65535;
#ifdef OVRMAIL_WITH_GMIME
#define COMPOSER_NOTE ""
#else
#define COMPOSER_NOTE " (not in this build)"
#endif

struct Row;
using Apply = bool (*)(Options&, const Row&, std::string_view);

struct Row {
    const char* name;
    char letter;          /* 0: long form only */
    const char* argument; /* null: none; in brackets: optional */
    const char* help;
    Apply apply;
};

bool refuse(const Row& row, const std::string& what) {
    complain(std::string("--") + row.name + ": " + what);
    return false;
}

template <typename Number>
bool number(const Row& row, std::string_view text, std::int32_t low, std::int32_t high,
            Number& out) {
    std::int32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || value < low || value > high) {
        return refuse(row, "needs a number from " + std::to_string(low) + " to " +
                               std::to_string(high) + ", not \"" + std::string(text) + "\"");
    }
    out = static_cast<Number>(value);
    return true;
}

bool text_within(const Row& row, std::string_view text, std::size_t limit, std::string& out) {
    if (text.empty() || text.size() > limit) {
        const std::string given = text.empty() ? "none" : std::to_string(text.size());
        return refuse(row, "needs 1 to " + std::to_string(limit) + " bytes, not " + given);
    }
    if (text.find_first_of("\r\n") != std::string_view::npos) {
        return refuse(row, "must not contain a line break");
    }
    out = text;
    return true;
}

template <std::string Options::*Field, std::size_t Limit>
bool set_text(Options& options, const Row& row, std::string_view text) {
    return text_within(row, text, Limit, options.*Field);
}

template <bool Options::*Field>
bool set_flag(Options& options, const Row& /*row*/, std::string_view /*text*/) {
    options.*Field = true;
    return true;
}

template <std::optional<std::string> Options::*Field>
bool set_any(Options& options, const Row& /*row*/, std::string_view text) {
    options.*Field = text;
    return true;
}

template <std::chrono::seconds TimeOuts::*Field>
bool set_time_out(Options& options, const Row& row, std::string_view text) {
    return number(row, text, MAIL_TIMEOUT_MIN, MAIL_TIMEOUT_MAX, options.time_outs.*Field);
}

bool set_port(Options& options, const Row& row, std::string_view text) {
    return number(row, text, 1, kMaxPort, options.port);
}

bool host_name(const Row& row, std::string_view text, std::string& out) {
    if (!text_within(row, text, MAIL_ADDRESS_MAX, out)) return false;
    const std::string problem = host_problem(text);
    return problem.empty() || refuse(row, "\"" + out + "\" " + problem);
}

bool set_server(Options& options, const Row& row, std::string_view text) {
    return host_name(row, text, options.server);
}

bool add_addresses(const Row& row, std::string_view text, Addresses& out) {
    const std::size_t before = out.size();
    if (const std::string why = read_addresses(text, out); !why.empty()) return refuse(row, why);
    for (std::size_t i = before; i < out.size(); ++i) {
        std::string mailbox;
        if (!text_within(row, out[i].mailbox, MAIL_ADDRESS_MAX, mailbox)) return false;
    }
    return true;
}

bool set_sender(Options& options, const Row& row, std::string_view text) {
    options.from.clear();
    if (!add_addresses(row, text, options.from)) return false;
    return options.from.size() == 1 || refuse(row, "takes one address");
}

bool add_recipients(Options& options, const Row& row, std::string_view text) {
    return add_addresses(row, text, options.to);
}

template <bool Temporary>
bool add_attachment(Options& options, const Row& row, std::string_view text) {
    std::string path;
    if (!text_within(row, text, MAIL_PATH_MAX, path)) return false;
    options.attachments.push_back({path, Temporary});
    return true;
}

bool set_split(Options& options, const Row& row, std::string_view text) {
    int size_kb = MAIL_SPLIT_DEFAULT;
    if (!text.empty() && !number(row, text, MAIL_SPLIT_MIN, MAIL_SPLIT_MAX, size_kb)) return false;
    options.split_kb = size_kb;
    return true;
}

bool set_mechanisms(Options& options, const Row& row, std::string_view text) {
    struct Mechanism {
        std::string_view name;
        std::uint32_t bit;
    };
    static constexpr std::array<Mechanism, 4> kKnown{
        {{"cram-md5", MAIL_MECH_CRAM_MD5},
         {"plain", MAIL_MECH_PLAIN},
         {"login", MAIL_MECH_LOGIN},
         {"any", MAIL_MECH_CRAM_MD5 | MAIL_MECH_PLAIN | MAIL_MECH_LOGIN}}};
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t comma = std::min(text.find(',', at), text.size());
        const std::string_view name = text.substr(at, comma - at);
        const auto* known = std::find_if(kKnown.begin(), kKnown.end(),
                                         [&](const Mechanism& k) { return k.name == name; });
        if (known == kKnown.end()) {
            return refuse(
                row, "knows cram-md5, plain, login and any, not \"" + std::string(name) + "\"");
        }
        options.mechanisms |= known->bit;
        at = comma + 1;
    }
    return true;
}

bool set_pop_host(Options& options, const Row& row, std::string_view text) {
    PopFirst& pop = options.pop ? *options.pop : options.pop.emplace();
    const std::size_t colon =
        std::count(text.begin(), text.end(), ':') == 1 ? text.find(':') : std::string_view::npos;
    if (!host_name(row, text.substr(0, colon), pop.host)) return false;
    return colon == std::string_view::npos ||
           number(row, text.substr(colon + 1), 1, kMaxPort, pop.port);
}

bool set_pop_wait(Options& options, const Row& row, std::string_view text) {
    PopFirst& pop = options.pop ? *options.pop : options.pop.emplace();
    return number(row, text, 0, MAIL_POP_WAIT_MAX, pop.wait);
}

bool set_pop_time_out(Options& options, const Row& row, std::string_view text) {
    PopFirst& pop = options.pop ? *options.pop : options.pop.emplace();
    return number(row, text, MAIL_TIMEOUT_MIN, MAIL_TIMEOUT_MAX, pop.time_out);
}

constexpr std::array kRows{
    Row{"server", 'S', "HOST", "SMTP server, name or dotted IPv4 address", set_server},
    Row{"port", 'p', "N", "its port (the \"smtp\" service, else 25)", set_port},
    Row{"from", 'f', "ADDRESS", "sender", set_sender},
    Row{"to", 't', "ADDRESS", "recipient; repeat it or separate with commas", add_recipients},
    Row{"each", 0, nullptr, "send a mail of its own to each recipient", set_flag<&Options::each>},
    Row{"subject", 's', "TEXT", "subject, UTF-8; 64 bytes once converted",
        set_text<&Options::subject, MAIL_PATH_MAX>},
    Row{"body", 'b', "TEXT", "text of the mail, UTF-8; 10238 bytes once converted",
        set_any<&Options::body>},
    Row{"body-file", 'F', "FILE", "read the text from FILE, - for standard input",
        set_any<&Options::body_file>},
    Row{"utf8", 0, nullptr, "any characters" COMPOSER_NOTE, set_flag<&Options::utf8>},
    Row{"html", 0, "FILE", "the text as HTML, UTF-8, from FILE" COMPOSER_NOTE,
        set_any<&Options::html_file>},
    Row{"replace", 0, nullptr, "send \"?\" for characters that cannot be sent",
        set_flag<&Options::replace>},
    Row{"attach", 'a', "FILE", "attach FILE; repeatable", add_attachment<false>},
    Row{"attach-temp", 0, "FILE", "the same; FILE is deleted after a successful send",
        add_attachment<true>},
    Row{"split", 0, "[KB]", "send a larger mail in pieces of 10 to 100 KB (64)", set_split},
    Row{"auth", 0, "LIST", "SMTP AUTH: cram-md5, plain, login, or any", set_mechanisms},
    Row{"auth-optional", 0, nullptr, "a mail sent without the --auth asked for is no failure",
        set_flag<&Options::auth_optional>},
    Row{"pop-before", 0, "HOST[:PORT]", "log in to this POP3 server first", set_pop_host},
    Row{"pop-wait", 0, "MS", "milliseconds to wait after the POP3 session (0)", set_pop_wait},
    Row{"pop-timeout", 0, "SECONDS", "time for one POP3 reply, 60 to 3600 (60)", set_pop_time_out},
    Row{"user", 'u', "NAME", "account for --auth or --pop-before",
        set_text<&Options::user, MAIL_ACCOUNT_MAX>},
    Row{"password-file", 0, "FILE", "its password: the first line of FILE",
        set_any<&Options::password_file>},
    Row{"password-env", 0, "NAME", "its password: environment variable NAME",
        set_any<&Options::password_variable>},
    Row{"prepared", 0, "FILE", "send FILE, already built (S/MIME); see the manual",
        set_text<&Options::prepared, MAIL_PATH_MAX>},
    Row{"prepared-header", 0, "FILE", "with --prepared: header lines to use instead of generated",
        set_text<&Options::prepared_header, MAIL_PATH_MAX>},
    Row{"prepared-raw", 0, nullptr, "with --prepared: the bytes as they are",
        set_flag<&Options::prepared_raw>},
    Row{"timeout-greeting", 0, "SECONDS", "greeting, EHLO, AUTH (300); all: 60 to 3600",
        set_time_out<&TimeOuts::greeting>},
    Row{"timeout-mail", 0, "SECONDS", "MAIL FROM (300)", set_time_out<&TimeOuts::mail>},
    Row{"timeout-rcpt", 0, "SECONDS", "each RCPT TO (300)", set_time_out<&TimeOuts::rcpt>},
    Row{"timeout-data", 0, "SECONDS", "DATA (120)", set_time_out<&TimeOuts::data>},
    Row{"timeout-block", 0, "SECONDS", "each block of the message (180)",
        set_time_out<&TimeOuts::block>},
    Row{"timeout-end", 0, "SECONDS", "the end of the message (600)", set_time_out<&TimeOuts::end>},
    Row{"dry-run", 'n', nullptr, "print the message as it would go out; connect to nothing",
        set_flag<&Options::dry_run>},
    Row{"check-config", 0, nullptr, "check directories and settings, with -S also the server",
        set_flag<&Options::check_config>},
    Row{"verbose", 'v', nullptr, "show the dialogue while it happens", set_flag<&Options::verbose>},
    Row{"quiet", 'q', nullptr, "say nothing when all is well, warn of nothing",
        set_flag<&Options::quiet>},
    Row{"help", 'h', nullptr, "show this text", nullptr},
    Row{"version", 'V', nullptr, "show the version", nullptr},
};

int print_help() {
    std::cout << "Usage: ovrm-send -S HOST -f ADDRESS -t ADDRESS [OPTION]...\n"
                 "Sends one mail through libovrmail.\n\n";
    for (const Row& row : kRows) {
        std::string left = row.letter != 0 ? "  -?, --" : "      --";
        if (row.letter != 0) left[3] = row.letter;
        left.append(row.name);
        if (row.argument != nullptr) {
            const bool optional = row.argument[0] == '[';
            left.append(optional ? "[=" : "=").append(row.argument + (optional ? 1 : 0));
        }
        if (left.size() < 32) left.resize(32, ' ');
        std::cout << left << ' ' << row.help << "\n";
    }
    std::cout
        << "\nWithout -b, -F and --html the text is standard input. Exit status: 0 the server has"
           "\nthe mail; 64 a mistake on the command line; others by result, see ovrm-send(1)."
           "\nA password is never taken from the command line.\n";
    return EX_OK;
}

struct GetoptTable {
    std::array<option, kRows.size() + 1> longs{};
    std::string shorts = ":"; /* a missing value is told from an unknown option */
};

GetoptTable getopt_table() {
    GetoptTable table;
    for (std::size_t i = 0; i < kRows.size(); ++i) {
        const Row& row = kRows[i];
        int needs = no_argument;
        if (row.argument != nullptr) {
            needs = row.argument[0] == '[' ? optional_argument : required_argument;
        }
        table.longs[i] = {row.name, needs, nullptr, std::numeric_limits<char>::max() + 1 + int(i)};
        if (row.letter == 0) continue;
        table.shorts += row.letter;
        if (needs == required_argument) table.shorts += ':';
    }
    return table;
}

const Row* row_of(int found) {
    constexpr int kFirstLong = std::numeric_limits<char>::max() + 1;
    if (found >= kFirstLong) return &kRows[static_cast<std::size_t>(found - kFirstLong)];
    const auto* row =
        std::find_if(kRows.begin(), kRows.end(), [&](const Row& r) { return r.letter == found; });
    return row == kRows.end() ? nullptr : row;
}

int usage_error() {
    complain("try: ovrm-send --help");
    return EX_USAGE;
}

int bad_option(int found, char** argv) {
    const bool is_letter = optopt > 0 && optopt <= std::numeric_limits<char>::max();
    const std::string word =
        is_letter ? std::string("-") + static_cast<char>(optopt) : argv[optind - 1];
    const char* const what = found == ':' ? "\" needs a value" : "\": unknown or ambiguous option";
    complain("\"" + word + what);
    return usage_error();
}

}  // namespace

std::optional<int> parse_command_line(int argc, char** argv, Options& options) {
    const GetoptTable table = getopt_table();
    opterr = 0; /* its messages would show a word as it is */
    int found = 0;
    while ((found = getopt_long(argc, argv, table.shorts.c_str(), table.longs.data(), nullptr)) !=
           -1) {
        const Row* row = row_of(found);
        if (row == nullptr) return bad_option(found, argv);
        if (row->letter == 'h') return print_help();
        if (row->letter == 'V') {
            std::cout << "ovrm-send (ovrmail) " OVRMAIL_VERSION "\n";
            return EX_OK;
        }
        if (!row->apply(options, *row, optarg != nullptr ? optarg : "")) return usage_error();
    }
    if (optind < argc) {
        complain(std::string("unexpected argument \"") + argv[optind] + "\"");
        return usage_error();
    }
    if (!options.check_config && !is_complete(options)) return usage_error();
    return std::nullopt;
}

}  // namespace ovrm_send

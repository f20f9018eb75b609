// ovrm_trace_options.cpp - the command line; see ovrm_trace_options.hpp.
#include "ovrm_trace_options.hpp"

#include <getopt.h>
#include <sysexits.h>

#include <cstdlib>
#include <iostream>

namespace ovrm_trace {
namespace {

constexpr const char* kUsage =
    "usage: ovrm-trace [-jr] [-g PREFIX] [-l LOG] FILE...\n"
    "       ovrm-trace [-jr] [-g PREFIX] [-l LOG] --last\n"
    "       ovrm-trace [-jr] [-g PREFIX] --follow FILE...|--last\n"
    "Says what became of the calls in trace rings, and prints their records, oldest first.\n"
    "  -f, --follow          do not end, print new records; FILE need not be there yet\n"
    "  -g, --grep=PREFIX     only records whose trace point begins with PREFIX\n"
    "  -j, --json            one JSON object a line\n"
    "  -l, --mail-log=LOG    with the entries of this mail log, where they belong\n"
    "  -n, --last            the ring written last, with the mail log of its process\n"
    "  -r, --raw             points and bytes alone: no verdict, no meanings\n"
    "  -h, --help            this text\n"
    "  -V, --version         the version\n"
    "See ovrm-trace(1).\n";

constexpr option kLong[] = {
    {"follow", no_argument, nullptr, 'f'},
    {"grep", required_argument, nullptr, 'g'},
    {"help", no_argument, nullptr, 'h'},
    {"json", no_argument, nullptr, 'j'},
    {"mail-log", required_argument, nullptr, 'l'},
    {"last", no_argument, nullptr, 'n'},
    {"raw", no_argument, nullptr, 'r'},
    {"version", no_argument, nullptr, 'V'},
    {},
};

[[noreturn]] void say_and_end(const char* text) {
    std::cout << text;
    std::exit(EX_OK);
}

[[noreturn]] void refuse(const char* why) {
    std::cerr << "ovrm-trace: " << why << "\n" << kUsage;
    std::exit(EX_USAGE);
}

const char* problem_of(const Options& options) {
    if (options.last && !options.rings.empty()) return "--last names the ring: no FILE beside it";
    if (!options.last && options.rings.empty()) return "FILE or --last is missing";
    if (options.follow && !options.mail_log.empty()) return "a mail log cannot be followed";
    return nullptr;
}

Form form_of(bool json, bool raw) {
    if (json) return raw ? Form::kRawJson : Form::kJson;
    return raw ? Form::kRaw : Form::kPlain;
}

}  // namespace

Options parse_options(int argc, char** argv) {
    Options options;
    bool json = false;
    bool raw = false;
    for (int c = 0; (c = ::getopt_long(argc, argv, "fg:hjl:nrV", kLong, nullptr)) != -1;) {
        switch (c) {
            case 'f':
                options.follow = true;
                break;
            case 'g':
                options.prefix = optarg;
                break;
            case 'h':
                say_and_end(kUsage);
            case 'j':
                json = true;
                break;
            case 'l':
                options.mail_log = optarg;
                break;
            case 'n':
                options.last = true;
                break;
            case 'r':
                raw = true;
                break;
            case 'V':
                say_and_end("ovrm-trace (ovrmail) " OVRMAIL_VERSION "\n");
            default:
                refuse("not an option of ovrm-trace");
        }
    }
    options.form = form_of(json, raw);
    options.rings.assign(argv + optind, argv + argc);
    if (const char* const why = problem_of(options)) refuse(why);
    return options;
}

}  // namespace ovrm_trace

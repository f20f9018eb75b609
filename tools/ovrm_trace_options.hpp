// ovrm_trace_options.hpp - the command line of ovrm-trace.
#pragma once

#include <string>
#include <vector>

#include "ovrm_trace_print.hpp"

namespace ovrm_trace {

struct Options {
    Form form = Form::kPlain;
    bool follow = false;
    bool last = false;
    std::string prefix;    // of the trace points shown
    std::string mail_log;  // empty: none
    std::vector<std::string> rings;
};

// Ends the program for --help and --version, and with EX_USAGE for what is no command line.
Options parse_options(int argc, char** argv);

}  // namespace ovrm_trace

// ovrm_trace_follow.hpp - prints records as they are written, until the program is ended.
#pragma once

#include <vector>

#include "ovrm_trace_options.hpp"
#include "ovrm_trace_report.hpp"
#include "ovrm_trace_source.hpp"

namespace ovrm_trace {

// `sources` are the rings that were read so far. Those that the patterns name later on are read
// from their beginning; with --last, the other rings of sends only from here on.
[[noreturn]] void follow(const Options& options, std::vector<Source> sources, Report& report);

}  // namespace ovrm_trace

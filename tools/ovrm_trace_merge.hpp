// ovrm_trace_merge.hpp - puts the entries of a mail log where they belong among trace records.
#pragma once

#include <vector>

#include "ovrm_trace_call.hpp"

namespace ovrm_trace {

// Weaves the entries into the calls, ring by ring. Returns those that belong to none of them, or
// to one of several that cannot be told apart.
std::vector<LogLine> weave(std::vector<std::vector<Call>>& rings,
                           const std::vector<LogLine>& lines);

}  // namespace ovrm_trace

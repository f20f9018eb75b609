// ovrm_trace_print.hpp - one record or log line as text or as JSON.
#pragma once

#include <ctime>
#include <string>

#include "ovrm_trace_ring.hpp"

namespace ovrm_trace {

// What is shown of a ring or a log: an empty name is left out.
std::string as_text(const Record& record, const std::string& name);
std::string as_text(std::time_t time, const std::string& log_text);

std::string as_json(const Record& record, const std::string& file);
std::string as_json(std::time_t time, const std::string& log_text, const std::string& file);

}  // namespace ovrm_trace

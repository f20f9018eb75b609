// ovrm_trace_words.hpp - the numbers of the library and of the system in words.
#pragma once

#include <cstdint>
#include <string>

#include "ovrm_trace_points.hpp"
#include "ovrm_trace_ring.hpp"

namespace ovrm_trace {

// "13 (Permission denied)", "-23 (refused)", "-6".
std::string number_words(Data data, std::int32_t value);

// "Permission denied (13)", of kErrno, kResolver and kLookup.
std::string error_words(Data data, std::int32_t error);

// Whether the data is what the table says it is.
bool fits(const Meaning& meaning, const Record& record);

// "failed: RCPT TO: -23 (refused)", without the bytes of kText, kSent and kReceived.
std::string record_words(const Meaning& meaning, const Record& record);

}  // namespace ovrm_trace

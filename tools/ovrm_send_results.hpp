// ovrm_send_results.hpp - what a result of the library means to the person who sent the mail.
#pragma once

#include <cstdint>
#include <string_view>

namespace ovrm_send {

// Says in one sentence on standard output (the mail went out) or standard error (it did not) what
// the result means, with the detail the library gave and what to do. Returns the exit status.
int report_result(std::int32_t result, std::string_view detail, bool quiet);

}  // namespace ovrm_send

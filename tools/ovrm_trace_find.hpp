// ovrm_trace_find.hpp - where the rings and the mail logs of the product lie.
#pragma once

#include <string>
#include <vector>

namespace ovrm_trace {

// The rings of sends, as a pattern for matching().
std::string pattern_of_rings();

// The file of that name, else the files that fit it as a pattern of the shell; may be none.
std::vector<std::string> matching(const std::string& pattern);

// The file that was changed last; empty when there is none.
std::string newest(const std::vector<std::string>& files);

// The process in the name of a ring, 0 when it has none.
int process_of_ring(const std::string& ring);

// The other rings of that process beside this one.
std::vector<std::string> siblings_of(const std::string& ring);

// The mail log of a process.
std::string log_of(int process);

}  // namespace ovrm_trace

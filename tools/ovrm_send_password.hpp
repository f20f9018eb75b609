// ovrm_send_password.hpp - passwords: from where they come, and that they go nowhere else.
#pragma once

#include <string>

#include "ovrm_send_options.hpp"

namespace ovrm_send {

// Reads the password that the options name; before that, sees to it that this process leaves no
// core and cannot be looked into by others of its account. False: why not has been said.
bool read_password(const Options& options, std::string& password);

void wipe(std::string& secret);

// Warns where the password may go over a network as it is.
void warn_of_clear_password(const Options& options);

}  // namespace ovrm_send

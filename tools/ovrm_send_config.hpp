// ovrm_send_config.hpp - --check-config: directories and configuration files, as the library will
// take them.
#pragma once

namespace ovrm_send {

// Prints one line per finding. Returns 0, or EX_CONFIG when something keeps mail from being sent
// or a setting from having the effect that was meant.
int check_config();

}  // namespace ovrm_send

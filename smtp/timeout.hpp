// timeout.hpp - budgets of the conversation before a caller sets its own.
#pragma once

#include <cstdint>

#include "mail_types.h"

namespace ovrmail::smtp {

inline constexpr MailTimeout kDefaultBudgets = MAIL_TIMEOUT_DEFAULTS;
inline constexpr std::uint32_t kQuitBudget = 300;

// A step's budget begins: installs it and starts its clock.
void start_budget(std::uint32_t seconds) noexcept;

}  // namespace ovrmail::smtp

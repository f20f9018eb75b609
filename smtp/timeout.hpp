// timeout.hpp - budgets of the conversation before a caller sets its own.
#pragma once

#include <cstdint>

#include "mail_types.h"

namespace ovrmail::smtp {

inline constexpr MailTimeout kDefaultBudgets = MAIL_TIMEOUT_DEFAULTS;
inline constexpr std::uint32_t kQuitBudget = 300;

// Installs the budget of a step and starts its clock.
void start_budget(std::uint32_t seconds) noexcept;

}  // namespace ovrmail::smtp

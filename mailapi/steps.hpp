// steps.hpp - the steps of a send, in the order in which the driver calls them. Each returns 0 or
// the negative result of the call; the failure is then traced, and its detail in the detail buffer.
#pragma once

#include "mailapi/send_job.hpp"

namespace ovrmail::mailapi {

// request_check.cpp
std::int32_t check_request(SendJob& job) noexcept;

// mail_options.cpp: -1 when memory runs out; the setting is then the default
std::int32_t read_mail_options() noexcept;

// auth_check.cpp
std::int32_t check_auth_option(const MailEntry& auth) noexcept;
std::int32_t check_auth_account(const MailAuthAccount& account) noexcept;

// pop_before_smtp.cpp
std::int32_t pop_before_smtp(const MailPopAccount& account,
                             std::span<char, kDetailSize> detail) noexcept;

// text_prepare.cpp
enum class TextCode : std::int32_t { kOther = 0, kEuc = 1, kShiftJis = 2 };
TextCode locale_text_code() noexcept;
std::int32_t prepare_text(SendJob& job) noexcept;

// staging.cpp
std::int32_t stage_body(SendJob& job) noexcept;
std::int32_t decide_split(SendJob& job) noexcept;

// compose.cpp
std::int32_t open_composed(SendJob& job) noexcept;
std::int32_t compose_message(SendJob& job) noexcept;
std::int32_t finish_composed(SendJob& job) noexcept;  // nothing is written to it from here on
std::int32_t count_pieces(SendJob& job) noexcept;

// prepared_message.cpp
std::int32_t send_prepared(SendJob& job) noexcept;

// conversation.cpp
std::int32_t converse(SendJob& job) noexcept;

}  // namespace ovrmail::mailapi

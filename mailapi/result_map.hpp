// result_map.hpp - turns codes of the layers below into results of the interface; detail buffer.
#pragma once

#include <cstdint>

#include "mailapi/send_job.hpp"

namespace ovrmail::mailapi {

inline constexpr std::int32_t kNoMemory = -11;  // of a step of the driver itself

// The one place where codes change layer. An unknown code is traced and becomes MAIL_E_INTERNAL.
std::int32_t map_result(std::int32_t code) noexcept;

// Writes a system error code in decimal to the detail buffer.
void detail_number(std::span<char, kDetailSize> detail, std::uint32_t code) noexcept;

// The result of a failing composition call. For a failing working file the detail buffer gets the
// file error.
std::int32_t composition_failed(const SendJob& job, const char* point, std::int32_t code) noexcept;

}  // namespace ovrmail::mailapi

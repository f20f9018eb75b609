// result_map.hpp - codes of the layers below become results of the interface; the detail buffer.
#pragma once

#include <cstdint>

#include "mailapi/send_job.hpp"

namespace ovrmail::mailapi {

inline constexpr std::int32_t kNoMemory = -11;  // of a step of the driver itself

// The one place where codes change layer. An unknown code is traced and becomes MAIL_E_INTERNAL.
std::int32_t map_result(std::int32_t code) noexcept;

// Detail: a system error code in decimal.
void detail_number(std::span<char, kDetailSize> detail, std::uint32_t code) noexcept;

// A failing staging or composition call: maps its code and, for a working file, leaves the file
// error in the detail buffer.
std::int32_t composition_failed(const SendJob& job, const char* point, std::int32_t code) noexcept;

}  // namespace ovrmail::mailapi

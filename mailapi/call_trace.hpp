// call_trace.hpp - the trace ring of one public call, opened with the settings of "trc_conf".
#pragma once

#include <array>
#include <cstdint>

#include "log/settings.hpp"
#include "mailapi/work_file.hpp"

namespace ovrmail::mailapi {

// Prunes the rings of `name` and opens a new one with the settings of `section` (default: 5 KiB,
// five files). Null when that fails: the call is then not traced.
inline log::TracePtr open_call_trace(const log::Settings& settings, const char* section,
                                     const char* name, std::int32_t default_level) noexcept {
    std::int32_t size_kb = 5;
    std::int32_t level = default_level;
    std::int32_t number = 5;
    log::trace_info(settings, section, &size_kb, &level, &number);
    DeleteOldFiles(0, name, number, static_cast<std::uint32_t>(level));
    std::array<char, kPathSize> path{};
    MakeTraceFileName(path.data(), 0, name, static_cast<std::uint32_t>(level));
    return log::TracePtr(
        Topen(path.data(), static_cast<std::uint32_t>(size_kb), static_cast<std::uint32_t>(level)));
}

}  // namespace ovrmail::mailapi

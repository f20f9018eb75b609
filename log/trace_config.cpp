// trace_config.cpp - trace settings of a section of the configuration file, and ring file names.
//
// Every public call reads its settings, prunes and names its ring here before it opens the ring.
// One setting out of range leaves all defaults of the caller. No state.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <span>

#include "common/text.hpp"
#include "log/directories.hpp"
#include "log/settings.hpp"
#include "trace.h"

namespace ovrmail::log {
namespace {

constexpr std::size_t kNameSize = 1025;

}  // namespace

std::int32_t trace_info(const Settings& settings, const char* section, std::int32_t* size_kb,
                        std::int32_t* level, std::int32_t* number) noexcept {
    if (!settings.valid() || size_kb == nullptr || level == nullptr || number == nullptr) return -1;
    const std::int64_t new_size = settings.get(section, "TRACESIZE", *size_kb);
    const std::int64_t new_level = settings.get(section, "TRACELEVEL", *level);
    const std::int64_t new_number = settings.get(section, "TRACENUM", *number);
    if (new_size <= 0 || new_level < 0 || new_number < 0) return -1;
    if (std::max({new_size, new_level, new_number}) > INT32_MAX) return -1;
    *size_kb = static_cast<std::int32_t>(new_size);
    *level = static_cast<std::int32_t>(new_level);
    *number = static_cast<std::int32_t>(new_number);
    return 0;
}

}  // namespace ovrmail::log

using namespace ovrmail;

std::int32_t GetTraceInfo(const char* section, std::uint32_t /*unused*/, std::int32_t* size_kb,
                          std::int32_t* level, std::int32_t* number) noexcept {
    return log::trace_info(log::Settings(), section, size_kb, level, number);
}

void Trc_GetSizeLevel(const char* section, std::int32_t* size_kb, std::int32_t* level) noexcept {
    constexpr std::int32_t kDefaultSize = 100;
    constexpr std::int64_t kHighest = 2;
    if (size_kb == nullptr || level == nullptr) return;
    *size_kb = kDefaultSize;
    *level = 0;
    const log::Settings settings;
    if (!settings.valid()) return;
    *size_kb = static_cast<std::int32_t>(std::clamp<std::int64_t>(
        settings.get(section, "TRACESIZE", kDefaultSize), INT32_MIN, INT32_MAX));
    const std::int64_t wanted = settings.get(section, "TRACELEVEL", 0);
    *level = static_cast<std::int32_t>(wanted >= 0 ? std::min(wanted, kHighest) : kHighest);
}

void MakeTraceFileName(char* buffer, std::uint32_t /*unused*/, const char* prefix,
                       std::uint32_t level) noexcept {
    if (level == 0 || buffer == nullptr || prefix == nullptr) return;
    (void)common::format_into(std::span<char>(buffer, log::kNameSize), "%s/%s%d-%d.trc",
                              log::trace_directory().text.data(), prefix,
                              static_cast<int>(::getpid()), static_cast<int>(::pthread_self()));
}

std::int32_t DeleteOldFiles(std::uint32_t /*unused*/, const char* prefix, std::int32_t number,
                            std::uint32_t level) noexcept {
    return DeleteOldFiles_DIR(log::trace_directory().text.data(), prefix, "trc", number, level);
}

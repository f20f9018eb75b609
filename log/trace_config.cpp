// trace_config.cpp - trace settings of a section of the configuration file, and ring file names.
#include <unistd.h>

#include <span>

#include "common/paths.hpp"
#include "common/text.hpp"
#include "log/directories.hpp"
#include "profile.h"
#include "trace.h"

namespace ovrmail::log {
namespace {

using common::paths::kTraceConfig;

constexpr std::size_t kNameSize = 1025;

// Settings of one section, read from an open profile.
struct Section {
    MailProfile* profile;
    const char* name;

    [[nodiscard]] std::int32_t get(const char* key, std::int32_t fallback) const noexcept {
        return Com_GetPrivateProfileInt(profile, name, key, fallback, kTraceConfig);
    }
};

}  // namespace
}  // namespace ovrmail::log

using namespace ovrmail;

std::int32_t GetTraceInfo(const char* section, std::uint32_t /*unused*/, std::int32_t* size_kb,
                          std::int32_t* level, std::int32_t* number) noexcept {
    if (size_kb == nullptr || level == nullptr || number == nullptr) return -1;
    MailProfile* const profile = Com_OpenPrivateProfile(log::kTraceConfig, 0);
    if (profile == nullptr) return -1;
    const log::Section settings{profile, section};
    const std::int32_t new_size = settings.get("TRACESIZE", *size_kb);
    const std::int32_t new_level = settings.get("TRACELEVEL", *level);
    const std::int32_t new_number = settings.get("TRACENUM", *number);
    (void)Com_ClosePrivateProfile(profile, nullptr);
    if (new_size <= 0 || new_level < 0 || new_number < 0) return -1;
    *size_kb = new_size;
    *level = new_level;
    *number = new_number;
    return 0;
}

void Trc_GetSizeLevel(const char* section, std::int32_t* size_kb, std::int32_t* level) noexcept {
    constexpr std::int32_t kDefaultSize = 100;
    constexpr std::uint32_t kHighest = 2;
    if (size_kb == nullptr || level == nullptr) return;
    *size_kb = kDefaultSize;
    *level = 0;
    MailProfile* const profile = Com_OpenPrivateProfile(log::kTraceConfig, 0);
    if (profile == nullptr) return;
    const log::Section settings{profile, section};
    *size_kb = settings.get("TRACESIZE", kDefaultSize);
    *level = settings.get("TRACELEVEL", 0);
    (void)Com_ClosePrivateProfile(profile, nullptr);
    if (static_cast<std::uint32_t>(*level) > kHighest) *level = kHighest;
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

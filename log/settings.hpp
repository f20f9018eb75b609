// settings.hpp - the configuration file of trace and log, and the two functions that read their
// settings from it. A send makes one Settings for both, so that the file is read once.
#pragma once

#include "common/paths.hpp"
#include "log/handles.hpp"
#include "toolkit/profile.hpp"

namespace ovrmail::log {

class Settings {
public:
    Settings() noexcept
        : profile_(toolkit::open_profile(common::paths::kTraceConfig, 0, nullptr)) {}

    // False when memory ran out. A missing file is an empty one.
    [[nodiscard]] bool valid() const noexcept { return profile_ != nullptr; }

    // Only when valid(). A number beyond 32 bits is returned as it is, outside every range.
    [[nodiscard]] std::int64_t get(const char* section, const char* key,
                                   std::int32_t fallback) const noexcept {
        return toolkit::profile_number(*profile_, section, key, fallback);
    }

private:
    toolkit::ProfilePtr profile_;
};

// GetTraceInfo and MailLogOpen with settings that have been read already.
std::int32_t trace_info(const Settings& settings, const char* section, std::int32_t* size_kb,
                        std::int32_t* level, std::int32_t* number) noexcept;
// `collects`: for flush_log(); else every entry is written at once.
LogPtr open_mail_log(const Settings& settings, bool collects) noexcept;

}  // namespace ovrmail::log

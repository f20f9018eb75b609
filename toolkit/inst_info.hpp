// inst_info.hpp - the installation records in the files: which key holds which field. Shared by the
// getters and the setters.
#pragma once

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "common/error_word.hpp"
#include "inst_info.h"

namespace ovrmail::toolkit {

enum InstInfoResult : std::int32_t {
    kInfoOk = 0,
    kInfoNotOpened = -1,
    kInfoMissingOrNotWritten = -2
};

// The result for a missing record.
inline std::int32_t refuse_null(std::uint32_t* err) noexcept {
    common::set_error(err, EINVAL);
    return kInfoNotOpened;
}

inline constexpr const char* kProductSection = "Tarvello_CurrentVersion";
inline constexpr const char* kSettingsSection = "korvantaQX";

struct InstInfoKey {
    const char* section;
    const char* key;
    std::uint32_t MailInstInfo::*field;
};

inline constexpr std::array<InstInfoKey, 3> kVersionKeys{{
    {kProductSection, "DM_MajorVersion", &MailInstInfo::ulMajorVersion},
    {kProductSection, "DM_MinorVersion", &MailInstInfo::ulMinorVersion},
    {kProductSection, "DM_MajorLevel", &MailInstInfo::ulLevel},
}};
inline constexpr InstInfoKey kAddonKey{kSettingsSection, "DM_Addon", &MailInstInfo::ulAddon};
inline constexpr InstInfoKey kStartKey{kSettingsSection, "DM_Start", &MailInstInfo::ulStartType};
inline constexpr std::array<InstInfoKey, 3> kCompanionKeys{{
    {kSettingsSection, "QXACS_MajorVersion", &MailInstInfo::ulCompanionMajorVersion},
    {kSettingsSection, "QXACS_MinorVersion", &MailInstInfo::ulCompanionMinorVersion},
    {kSettingsSection, "QXACS_MajorLevel", &MailInstInfo::ulCompanionLevel},
}};

}  // namespace ovrmail::toolkit

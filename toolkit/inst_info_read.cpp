// inst_info_read.cpp - reads the installation records, and checks the management product's version.
//
// The status query reads both records; other parts of the agent call the getters directly. Numbers
// are hexadecimal texts, with or without "0x". A missing file counts as empty, so its keys are
// reported as missing. No state.
#include <cstring>
#include <span>

#include "common/paths.hpp"
#include "common/text.hpp"
#include "toolkit/inst_info.hpp"
#include "toolkit/profile.hpp"

namespace ovrmail::toolkit {

using namespace common;

namespace {

constexpr std::int32_t kMissing = -1;  // a stored value of all ones counts as missing, too

constexpr std::uint32_t kReadOnly = 0;

bool read_key(const MailProfile& profile, const InstInfoKey& key, MailInstInfo& info) noexcept {
    const std::int32_t value =
        Com_GetPrivateProfileIntHex(&profile, key.section, key.key, kMissing, nullptr);
    if (value == kMissing) return false;
    info.*key.field = static_cast<std::uint32_t>(value);
    return true;
}

bool read_keys(const MailProfile& profile, std::span<const InstInfoKey> keys,
               MailInstInfo& info) noexcept {
    for (const InstInfoKey& key : keys)
        if (!read_key(profile, key, info)) return false;
    return true;
}

void set_agent_directories(MailInstInfo& info) noexcept {
    copy_into(info.szInstallDir, paths::kInstallDir);
    copy_into(info.szConfigDir, paths::kConfigDir);
    copy_into(info.szDataDir, paths::kDataDir);
    copy_into(info.szPartnerInstallDir, paths::kPartnerInstallDir);
    copy_into(info.szPartnerConfigDir, paths::kPartnerConfigDir);
    copy_into(info.szPartnerDataDir, paths::kPartnerDataDir);
}

void set_manager_directories(MailInstInfo& info) noexcept {
    copy_into(info.szInstallDir, paths::kManagerInstallDir);
    copy_into(info.szConfigDir, paths::kManagerConfigDir);
    copy_into(info.szDataDir, paths::kManagerDataDir);
    copy_into(info.szPartnerInstallDir, paths::kManagerPartnerInstallDir);
    copy_into(info.szPartnerConfigDir, paths::kManagerPartnerConfigDir);
    copy_into(info.szPartnerDataDir, paths::kManagerPartnerDataDir);
}

}  // namespace
}  // namespace ovrmail::toolkit

using namespace ovrmail::toolkit;

std::int32_t Info_GetDovrinInstInfo(MailInstInfo* info, std::uint32_t* err) noexcept {
    if (info == nullptr) return refuse_null(err);
    const ProfilePtr agent = open_profile(paths::kAgentRecord, kReadOnly, err);
    if (agent == nullptr) return kInfoNotOpened;
    std::memset(info, 0, sizeof *info);
    if (!read_keys(*agent, kVersionKeys, *info) || !read_key(*agent, kAddonKey, *info))
        return kInfoMissingOrNotWritten;
    set_agent_directories(*info);

    const ProfilePtr settings = open_profile(paths::kSettingsRecord, kReadOnly, err);
    if (settings == nullptr) return kInfoNotOpened;
    if (!read_key(*settings, kStartKey, *info)) return kInfoMissingOrNotWritten;
    for (const InstInfoKey& key : kCompanionKeys) read_key(*settings, key, *info);
    return kInfoOk;
}

std::int32_t Info_GetKorvantaInstInfo(MailInstInfo* info, std::uint32_t* err) noexcept {
    if (info == nullptr) return refuse_null(err);
    const ProfilePtr manager = open_profile(paths::kManagerRecord, kReadOnly, err);
    if (manager == nullptr) return kInfoNotOpened;
    if (!read_keys(*manager, kVersionKeys, *info)) return kInfoMissingOrNotWritten;
    set_manager_directories(*info);
    return kInfoOk;
}

std::int32_t Info_CheckKorvantaVersion(const MailInstInfo* info) noexcept {
    constexpr std::uint32_t kOldestMajor = 5;
    constexpr std::uint32_t kTooOldLevel = 29;  // 5.0 level 30 is the oldest accepted release
    constexpr std::int32_t kTooOld = -1;
    if (info == nullptr || info->ulMajorVersion < kOldestMajor) return kTooOld;
    if (info->ulMajorVersion > kOldestMajor) return kInfoOk;
    return info->ulMinorVersion != 0 || info->ulLevel > kTooOldLevel ? kInfoOk : kTooOld;
}

// inst_info_write.cpp - writes settings of the installation records.
//
// A send does not call it; other parts of the agent do. The DM keys are written with "0x" and eight
// digits, the QXACS keys as hexadecimal digits alone; readers take both. Each file is rewritten
// wholly or left as it was, see rewrite.hpp. No state.
#include <array>
#include <cerrno>
#include <span>

#include "common/error_word.hpp"
#include "common/paths.hpp"
#include "common/text.hpp"
#include "toolkit/inst_info.hpp"
#include "toolkit/profile.hpp"

namespace ovrmail::toolkit {

using namespace common;

namespace {

constexpr std::uint32_t kWritable = 1;  // LF line ends

// A record open for writing. Without close() nothing is written.
class RecordWriter {
public:
    RecordWriter(const char* path, std::uint32_t* err) noexcept
        : path_(path), err_(err), profile_(open_profile(path, kWritable, err)) {}
    RecordWriter(const RecordWriter&) = delete;
    RecordWriter& operator=(const RecordWriter&) = delete;

    // A file that exists but cannot be read counts as not opened: written back, it would hold only
    // the new settings.
    [[nodiscard]] bool opened() const noexcept {
        if (profile_ == nullptr) return false;
        if (profile_->read_error != 0) set_error(err_, profile_->read_error);
        return profile_->read_error == 0;
    }

    [[nodiscard]] bool setting(const InstInfoKey& key, std::uint32_t value) noexcept {
        format_into(text_, "0x%08x", value);
        return write(key);
    }
    [[nodiscard]] bool version(const InstInfoKey& key, std::uint32_t value) noexcept {
        format_into(text_, "%x", value);
        return write(key);
    }
    [[nodiscard]] bool close() noexcept {
        return Com_ClosePrivateProfile2(profile_.release(), path_, err_) == 0;
    }

private:
    bool write(const InstInfoKey& key) noexcept {
        if (Com_WritePrivateProfileString(profile_.get(), key.section, key.key, text_) == 1)
            return true;
        set_error(err_, ENOMEM);
        return false;
    }

    const char* path_;
    std::uint32_t* err_;
    ProfilePtr profile_;
    char text_[sizeof "0x12345678"] = "";
};

std::int32_t write_addon(std::uint32_t addon, std::uint32_t* err) noexcept {
    RecordWriter record(paths::kAgentRecord, err);
    if (!record.opened()) return kInfoNotOpened;
    return record.setting(kAddonKey, addon) && record.close() ? kInfoOk : kInfoMissingOrNotWritten;
}

std::int32_t write_settings(const MailInstInfo& info, std::uint32_t* err) noexcept {
    RecordWriter record(paths::kSettingsRecord, err);
    if (!record.opened()) return kInfoNotOpened;
    if (!record.setting(kStartKey, info.ulStartType)) return kInfoMissingOrNotWritten;
    for (const InstInfoKey& key : kCompanionKeys)
        if (!record.version(key, info.*key.field)) return kInfoMissingOrNotWritten;
    return record.close() ? kInfoOk : kInfoMissingOrNotWritten;
}

}  // namespace
}  // namespace ovrmail::toolkit

using namespace ovrmail::toolkit;

std::int32_t Info_SetDovrinInstInfo(const MailInstInfo* info, std::uint32_t* err) noexcept {
    if (info == nullptr) return refuse_null(err);
    const std::int32_t rc = write_addon(info->ulAddon, err);
    return rc == kInfoOk ? write_settings(*info, err) : rc;
}

std::int32_t Info_SetDovrinStartType(MailInstInfo* info, std::uint32_t start_type,
                                     std::uint32_t* err) noexcept {
    if (info == nullptr) return refuse_null(err);
    info->ulStartType = start_type;
    info->ulCompanionMajorVersion = info->ulMajorVersion;
    info->ulCompanionMinorVersion = info->ulMinorVersion;
    info->ulCompanionLevel = info->ulLevel;
    return write_settings(*info, err);
}

std::int32_t Info_SetDovrinInstallType(std::uint32_t addon, std::uint32_t* err) noexcept {
    return write_addon(addon, err);
}

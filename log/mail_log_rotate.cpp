// mail_log_rotate.cpp - MailLogOpen: the log file of this process, continued or begun anew.
//
// Called by the send entry before the first step. A file within 500 bytes of its limit is renamed
// to generation 1 (its name and a "1"), and each older generation to the next number. Rotation and
// pruning happen only here, so that the lines of one call stay in one file. No state beyond the
// handle that it returns.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <span>

#include "common/heap.hpp"
#include "common/paths.hpp"
#include "common/text.hpp"
#include "file_util.h"
#include "log/directories.hpp"
#include "log/mail_log_handle.hpp"
#include "log/own_file.hpp"
#include "log/settings.hpp"
#include "mail_log.h"
#include "trace.h"

namespace ovrmail::log {
namespace {

using common::paths::kMailLogPrefix;

constexpr std::int32_t kMargin = 500;          // bytes below the limit that already rotate
constexpr std::size_t kLongestRotated = 1022;  // a path this long has no room for generations

// A setting of the section "LOG": a value outside its range counts as the default.
struct Setting {
    const char* key;
    std::uint32_t lowest;
    std::uint32_t highest;
    std::uint32_t fallback;
    bool zero_allowed;
};
constexpr Setting kSize{"LOGSIZE", 10, 100, 20, false};
constexpr Setting kNumber{"LOGNUM", 5, 100, 20, true};

std::uint32_t read_setting(const Settings& settings, const Setting& setting) noexcept {
    if (!settings.valid()) return setting.fallback;
    const std::int64_t value =
        settings.get("LOG", setting.key, static_cast<std::int32_t>(setting.fallback));
    const bool in_range = value >= setting.lowest && value <= setting.highest;
    const bool accepted = in_range || (value == 0 && setting.zero_allowed);
    return accepted ? static_cast<std::uint32_t>(value) : setting.fallback;
}

using Path = std::array<char, 1028 + 12>;

Path generation(const MailLogHandle& log, std::uint32_t n) noexcept {
    Path path{};
    (void)common::format_into(path, "%s%d", log.path.data(), static_cast<int>(n));
    return path;
}

// Renames each generation to the next number, over the last one, and the current file to generation
// 1.
void rotate(const MailLogHandle& log) noexcept {
    if (common::bounded(log.path).size() >= kLongestRotated) {
        (void)FileDelete(log.path.data());
        return;
    }
    for (std::uint32_t n = log.number - 2; n >= 1; --n) {
        const Path from = generation(log, n);
        if (FileSize_Name(from.data()) < 0) continue;
        (void)RenameFile(from.data(), generation(log, n + 1).data());
    }
    (void)RenameFile(log.path.data(), generation(log, 1).data());
}

bool open_file(MailLogHandle& log) noexcept {
    const DirectoryName directory = log_directory();
    (void)common::format_into(log.path, "%s/%s%d.log", directory.text.data(), kMailLogPrefix,
                              static_cast<int>(::getpid()));
    auto keep = static_cast<std::int32_t>(log.number);
    const off64_t limit = off64_t{log.size_kb} * 1024 - kMargin;
    struct stat64 status {};
    if (::fstatat64(AT_FDCWD, log.path.data(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        if (!is_own(status)) return false;  // not renamed either
        if (status.st_size < limit)
            ++keep;  // the continued file is one of those that are kept
        else
            rotate(log);
    }
    (void)DeleteOldFiles_DIR(directory.text.data(), kMailLogPrefix, "log", keep, 1);
    // A new file is opened to append too: a second writer of the same name then loses no line.
    common::UniqueFd fd = open_unfollowed(log.path.data(), O_CREAT | O_APPEND);
    if (!fd.valid() || !is_own_file(fd.get(), status)) return false;
    // A full file that could not be renamed is emptied.
    if (status.st_size >= limit && ::ftruncate64(fd.get(), 0) != 0) return false;
    log.fd = fd.release();
    return true;
}

}  // namespace

LogPtr open_mail_log(const Settings& settings, bool collects) noexcept {
    common::HeapPtr<MailLogHandle> log(
        static_cast<MailLogHandle*>(std::calloc(1, sizeof(MailLogHandle))));
    if (log == nullptr) return nullptr;
    log->size_kb = read_setting(settings, kSize);
    log->number = read_setting(settings, kNumber);
    if (log->number == 0 || !open_file(*log)) return nullptr;
    log->collects = collects;
    write_opening_banner(*log);
    return LogPtr(log.release());
}

}  // namespace ovrmail::log

MailLogHandle* MailLogOpen(std::uint32_t /*unused*/) noexcept {
    return ovrmail::log::open_mail_log(ovrmail::log::Settings(), false).release();
}

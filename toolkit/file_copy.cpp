// file_copy.cpp - FileCopy: one file from a directory into another, the old one backed up.
//
// A send copies no files; this serves other parts of the agent. No state.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <span>

#include "common/block_io.hpp"
#include "common/retry.hpp"
#include "common/text.hpp"
#include "common/unique_fd.hpp"
#include "file_util.h"

namespace ovrmail::toolkit {

using namespace common;

namespace {

constexpr std::int32_t kCopied = 0;
constexpr std::int32_t kFailed = -1;
constexpr std::size_t kCopyBlock = 16384;  // on the stack of whichever thread copies
constexpr mode_t kCreationMode = 0644;
constexpr mode_t kPermissions = 07777;
constexpr mode_t kSetIds = S_ISUID | S_ISGID;

using Path = char[PATH_MAX];

bool join(std::span<char> path, const char* directory, const char* name) noexcept {
    if (format_into(path, "%s/%s", directory, name) >= 0) return true;
    errno = ENAMETOOLONG;
    return false;
}

bool make_target_dir(const char* path) noexcept {
    struct stat64 status {};
    if (::stat64(path, &status) == 0) return true;
    return errno == ENOENT && DirectryMake(path) >= 0;
}

// Sets what the process may set. When the owner cannot be set, the set-user-ID and set-group-ID
// bits are left out: a program must not run with the rights of another owner. Uses the descriptor,
// because another process may have replaced the file by a link.
void copy_attributes(const struct stat64& source, int to) noexcept {
    const timespec times[] = {source.st_atim, source.st_mtim};
    const bool given = ::fchown(to, source.st_uid, source.st_gid) == 0;
    const mode_t mode = source.st_mode & (given ? kPermissions : kPermissions & ~kSetIds);
    [[maybe_unused]] const int mode_set = ::fchmod(to, mode);
    [[maybe_unused]] const int times_set = ::futimens(to, times);
}

// The copy never has more permissions than the source, also while it is being written.
bool copy_file(const char* from, const struct stat64& status, const char* to) noexcept {
    const UniqueFd source(FileOpenRead(from));
    if (!source.valid()) return false;
    UniqueFd target(retry_eintr(kNoLimit, [&] {
        return ::open(to, O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC | O_LARGEFILE,
                      kCreationMode & status.st_mode);
    }));
    if (!target.valid()) return false;
    char block[kCopyBlock];
    for (;;) {
        const std::int32_t got = FileRead(source.get(), block, sizeof block);
        if (got < 0) return false;
        if (got == 0) break;
        if (FileWrite(target.get(), block, static_cast<std::uint32_t>(got)) != got) return false;
    }
    copy_attributes(status, target.get());
    // Some file systems report a full disk only here.
    return FileClose(target.release()) == 0;
}

}  // namespace
}  // namespace ovrmail::toolkit

using namespace ovrmail::toolkit;

std::int32_t FileCopy(const char* source_dir, const char* target_dir, const char* name,
                      const char* target_name) noexcept {
    if (source_dir == nullptr || target_dir == nullptr || name == nullptr) {
        errno = EFAULT;
        return kFailed;
    }
    Path source;
    Path target;
    struct stat64 status {};
    if (!join(source, source_dir, name)) return kFailed;
    if (::stat64(source, &status) != 0) return errno == ENOENT ? kCopied : kFailed;
    if (!make_target_dir(target_dir)) return kFailed;
    if (!join(target, target_dir, target_name != nullptr ? target_name : name)) return kFailed;
    FileBackUp(target);
    // Kept: copying a file onto itself fails, since the back-up has just renamed it, and its
    // content stays under the back-up's name. Callers rely on this documented result.
    return copy_file(source, status, target) ? kCopied : kFailed;
}

// file_util.cpp - one system call each, repeated while a signal interrupts it.
//
// Staging, composition, the trace rings and the mail log reach their files through these; other
// parts of the agent call them directly. No state. Descriptors are close-on-exec and take files of
// any size; a null path is refused with EFAULT, as the kernel would.
#include "file_util.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>

#include "common/retry.hpp"
#include "common/text.hpp"
#include "common/unique_fd.hpp"

using namespace ovrmail::common;

namespace {

constexpr std::int32_t kFailed = -1;
constexpr mode_t kFileMode = 0644;
constexpr int kBoundedAttempts = 10;

std::int32_t bad_address() noexcept {
    errno = EFAULT;
    return kFailed;
}

std::int32_t open_file(const char* path, int flags, int attempts) noexcept {
    if (path == nullptr) return bad_address();
    return retry_eintr(attempts,
                       [&] { return ::open(path, flags | O_CLOEXEC | O_LARGEFILE, kFileMode); });
}

std::int32_t size_of(const struct stat64& status) noexcept {
    return static_cast<std::int32_t>(std::min<off64_t>(status.st_size, INT32_MAX));
}

}  // namespace

std::int32_t GetErrorCode() noexcept { return errno; }

std::int32_t FileOpen(const char* path) noexcept {
    return open_file(path, O_RDWR | O_CREAT, kNoLimit);
}

std::int32_t FileOpenRead(const char* path) noexcept { return open_file(path, O_RDONLY, kNoLimit); }

std::int32_t FileOpen2(const char* path, std::int32_t mode) noexcept {
    const int end = mode == 0 ? O_APPEND : O_TRUNC;
    return open_file(path, O_RDWR | O_CREAT | end, kBoundedAttempts);
}

// The kernel moves less than 2^31 bytes at a time: the counts below always fit.
std::int32_t FileRead(std::int32_t fd, void* buffer, std::uint32_t length) noexcept {
    return static_cast<std::int32_t>(
        retry_eintr(kNoLimit, [&] { return ::read(fd, buffer, length); }));
}

std::int32_t FileWrite(std::int32_t fd, const void* buffer, std::uint32_t length) noexcept {
    return static_cast<std::int32_t>(
        retry_eintr(kNoLimit, [&] { return ::write(fd, buffer, length); }));
}

std::int32_t FileClose(std::int32_t fd) noexcept {
    // On Linux an interrupted close() has closed the descriptor. A second close() could close one
    // that another thread has opened meanwhile under the same number.
    const int rc = ::close(fd);  // allow: the caller's own descriptor
    return rc == kFailed && errno == EINTR ? 0 : rc;
}

std::int32_t FileDelete(const char* path) noexcept {
    if (path == nullptr) return bad_address();
    return retry_eintr(kNoLimit, [&] { return ::unlink(path); });
}

off_t FileSeek(std::int32_t fd, off_t offset, std::int32_t origin) noexcept {
    return retry_eintr(kNoLimit, [&] { return ::lseek(fd, offset, origin); });
}

std::int32_t FileSize(std::int32_t fd) noexcept {
    struct stat64 status {};
    const int rc = retry_eintr(kNoLimit, [&] { return ::fstat64(fd, &status); });
    return rc < 0 ? rc : size_of(status);
}

std::int32_t FileSize_Name(const char* path) noexcept {
    struct stat64 status {};
    if (path == nullptr) return bad_address();
    if (::stat64(path, &status) != 0 || !S_ISREG(status.st_mode)) return kFailed;
    return size_of(status);
}

std::int32_t FileStat(const char* path, struct stat* status) noexcept {
    if (path == nullptr || status == nullptr) return bad_address();
    return ::stat(path, status);
}

std::int32_t FileBackUp(const char* path) noexcept {
    char backup[PATH_MAX];
    if (path == nullptr) return bad_address();
    if (format_into(backup, "%s.bak", path) < 0) {
        errno = ENAMETOOLONG;
        return kFailed;
    }
    return std::rename(path, backup);
}

std::int32_t RenameFile(const char* old_path, const char* new_path) noexcept {
    if (old_path == nullptr || new_path == nullptr) return bad_address();
    const int rc = std::rename(old_path, new_path);
    // Kept: the old name is deleted even when the rename failed or named the same file. Log
    // rotation and existing callers rely on the old name being free. errno stays that of the
    // rename.
    const ErrnoKeeper keep;
    ::unlink(old_path);
    return rc;
}

std::int32_t CheckString_NotUpLow(const char* text1, const char* text2) noexcept {
    if (text1 == nullptr || text2 == nullptr) return kFailed;
    const auto folded = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
    std::size_t i = 0;
    for (; folded(text1[i]) == folded(text2[i]); ++i)
        if (text1[i] == '\0') return 0;
    return kFailed;
}

// directory.cpp - directories: read, make with fixed owner, remove with their content.
//
// A send opens the trace and log directories here to prune them; the other functions serve other
// parts of the agent. No state; a stream belongs to one thread at a time.
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>

#include "common/text.hpp"
#include "common/unique_fd.hpp"
#include "file_util.h"

namespace ovrmail::toolkit {

using namespace common;

namespace {

constexpr mode_t kDirectoryMode = 0755;
constexpr const char* kOwner = "root";
constexpr const char* kGroup = "sys";
constexpr std::size_t kLookupSize = 8192;

enum MakeResult : std::int32_t { kMade = 0, kMadeNotOwned = 1, kNotMade = -1 };
enum RemoveResult : std::int32_t { kRemoved = 0, kTooDeep = -1, kNotRemoved = -2 };

bool give_to_owner(const char* path) noexcept {
    char work[kLookupSize];
    passwd user{};
    passwd* found_user = nullptr;
    if (::getpwnam_r(kOwner, &user, work, sizeof work, &found_user) != 0 || found_user == nullptr)
        return false;
    group members{};
    group* found_group = nullptr;
    const uid_t owner = user.pw_uid;
    if (::getgrnam_r(kGroup, &members, work, sizeof work, &found_group) != 0 ||
        found_group == nullptr)
        return false;
    // Opens the directory itself, never a link put in its place; O_PATH needs no read permission.
    const UniqueFd made(::open(path, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return made.valid() && ::fchownat(made.get(), "", owner, members.gr_gid, AT_EMPTY_PATH) == 0;
}

struct CloseStream {
    void operator()(DIR* stream) const noexcept {
        const ErrnoKeeper keep;
        ::closedir(stream);
    }
};

bool is_directory(const char* path) noexcept {
    struct stat64 status {};
    return ::stat64(path, &status) == 0 &&
           S_ISDIR(status.st_mode);  // follows links: see the header
}

// Removes a tree down to a limit of levels. One path buffer serves all levels.
class TreeRemover {
public:
    explicit TreeRemover(std::int32_t limit) noexcept : limit_(limit) {}

    std::int32_t remove(std::string_view path) noexcept {
        if (limit_ < 1) return kTooDeep;
        if (path.size() >= sizeof path_) return kNotRemoved;
        length_ = copy_into(path_, path);
        return remove_tree(1);
    }

private:
    // Files are removed first: what remains when a subdirectory is too deep then does not depend on
    // the order of the entries.
    enum class Pass { kFiles, kAll };

    std::int32_t remove_tree(std::int32_t level) noexcept {
        if (level > limit_) return kTooDeep;
        std::unique_ptr<DIR, CloseStream> stream(::opendir(path_));
        if (stream == nullptr) return errno == ENOENT ? kRemoved : kNotRemoved;
        bool has_directories = false;
        std::int32_t rc = remove_entries(stream.get(), Pass::kFiles, level, has_directories);
        if (rc == kRemoved && has_directories) {
            ::rewinddir(stream.get());
            rc = remove_entries(stream.get(), Pass::kAll, level, has_directories);
        }
        stream.reset();
        if (rc != kRemoved) return rc;
        return ::rmdir(path_) == 0 ? kRemoved : kNotRemoved;
    }

    std::int32_t remove_entries(DIR* stream, Pass pass, std::int32_t level,
                                bool& has_directories) noexcept {
        while (const dirent64* const entry = ::readdir64(stream)) {
            const std::string_view name(entry->d_name);
            if (entry->d_ino == 0 || name == "." || name == "..") continue;
            const std::size_t parent = length_;
            if (!enter(name)) return kNotRemoved;
            const bool directory = is_directory(path_);
            has_directories = has_directories || directory;
            std::int32_t rc = kRemoved;
            if (!directory)
                rc = ::unlink(path_) == 0 ? kRemoved : kNotRemoved;
            else if (pass == Pass::kAll)
                rc = remove_subdirectory(level + 1);
            leave(parent);
            if (rc != kRemoved) return rc;
        }
        return kRemoved;
    }

    // An empty directory is removed even when it is too deep.
    std::int32_t remove_subdirectory(std::int32_t level) noexcept {
        const std::int32_t rc = remove_tree(level);
        return rc == kTooDeep && ::rmdir(path_) == 0 ? kRemoved : rc;
    }

    bool enter(std::string_view name) noexcept {
        if (length_ + 1 + name.size() >= sizeof path_) return false;
        path_[length_] = '/';
        length_ += 1 + copy_into(std::span(path_).subspan(length_ + 1), name);
        return true;
    }

    void leave(std::size_t parent) noexcept {
        length_ = parent;
        path_[length_] = '\0';
    }

    std::int32_t limit_;
    char path_[PATH_MAX] = "";
    std::size_t length_ = 0;
};

}  // namespace
}  // namespace ovrmail::toolkit

using namespace ovrmail::toolkit;

DIR* DirectryOpen(const char* path) noexcept {
    if (path != nullptr) return ::opendir(path);
    errno = EFAULT;
    return nullptr;
}

dirent* DirectryRead(DIR* stream, dirent* entry) noexcept {
    if (stream == nullptr || entry == nullptr) return nullptr;
    const dirent* const found = ::readdir(stream);
    if (found == nullptr) return nullptr;
    std::memcpy(entry, found, std::min<std::size_t>(found->d_reclen, sizeof *entry));
    entry->d_name[sizeof entry->d_name - 1] = '\0';
    return entry;
}

std::int32_t DirectryClose(DIR* stream) noexcept {
    if (stream != nullptr) return ::closedir(stream);
    errno = EBADF;
    return -1;
}

std::int32_t DirectryMake(const char* path) noexcept {
    if (path == nullptr) {
        errno = EFAULT;
        return kNotMade;
    }
    if (::mkdir(path, kDirectoryMode) != 0) return kNotMade;
    return give_to_owner(path) ? kMade : kMadeNotOwned;
}

std::int32_t ExecDelDir(const char* path, std::int32_t depth_limit) noexcept {
    if (path == nullptr) {
        errno = EFAULT;
        return kNotRemoved;
    }
    return TreeRemover(depth_limit).remove(path);
}

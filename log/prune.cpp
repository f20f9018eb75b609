// prune.cpp - limits the number of files in the trace and log directories.
//
// A send calls it before it opens its ring and its log. The files are counted; only when there are
// more of them than may stay are they listed, with the status of each. No state.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>

#include "common/heap.hpp"
#include "file_util.h"
#include "trace.h"

namespace ovrmail::log {
namespace {

enum PruneResult : std::int32_t {
    kDone = 0,
    kNoDirectory = -1,  // no status, or not a directory
    kNotOpened = -2,    // the directory exists but cannot be read
    kNoMemory = -3,     // nothing was deleted
};

struct CloseDirectory {
    void operator()(DIR* stream) const noexcept { (void)DirectryClose(stream); }
};
using DirectoryPtr = std::unique_ptr<DIR, CloseDirectory>;

// A file and its time of writing. Its name is in the list's text area, in directory order.
struct Candidate {
    std::size_t name;
    timespec written;
};

// Newest first; files of the same time in directory order.
bool is_newer(const Candidate& a, const Candidate& b) noexcept {
    if (a.written.tv_sec != b.written.tv_sec) return a.written.tv_sec > b.written.tv_sec;
    if (a.written.tv_nsec != b.written.tv_nsec) return a.written.tv_nsec > b.written.tv_nsec;
    return a.name < b.name;
}

// Array that grows by doubling.
template <class T>
class Growing {
public:
    [[nodiscard]] bool append(std::span<const T> items) noexcept {
        if (used_ + items.size() > room_ && !grow(used_ + items.size())) return false;
        std::memcpy(items_.get() + used_, items.data(), items.size_bytes());
        used_ += items.size();
        return true;
    }
    void shrink(std::size_t size) noexcept { used_ = size; }
    [[nodiscard]] std::span<T> items() noexcept { return {items_.get(), used_}; }
    [[nodiscard]] std::size_t size() const noexcept { return used_; }

private:
    bool grow(std::size_t needed) noexcept {
        const std::size_t room = std::max(needed, std::max<std::size_t>(2 * room_, 64));
        void* const moved = std::realloc(items_.get(), room * sizeof(T));
        if (moved == nullptr) return false;
        (void)items_.release();
        items_.reset(static_cast<T*>(moved));
        room_ = room;
        return true;
    }

    common::HeapPtr<T[]> items_;
    std::size_t used_ = 0;
    std::size_t room_ = 0;
};

class OldFiles {
public:
    explicit OldFiles(DIR* stream) noexcept : stream_(stream) {}

    // How many names begin with `prefix`.
    [[nodiscard]] std::size_t count(std::string_view prefix) noexcept {
        std::size_t count = 0;
        visit(prefix, [&count](const dirent64&) {
            ++count;
            return true;
        });
        return count;
    }

    // Makes a list of them, from the start of the directory. False when memory runs out.
    [[nodiscard]] bool collect(std::string_view prefix) noexcept {
        ::rewinddir(stream_);
        return visit(prefix, [this](const dirent64& found) {
            const Candidate file{names_.size(), {}};
            const std::string_view name(found.d_name);
            return files_.append({&file, 1}) && names_.append({found.d_name, name.size() + 1});
        });
    }

    // Deletes all but the newest `keep`.
    void delete_beyond(std::size_t keep) noexcept {
        drop_others();
        const auto files = files_.items();
        std::sort(files.begin(), files.end(), is_newer);
        for (const Candidate& file : files.subspan(std::min(keep, files.size())))
            ::unlinkat(::dirfd(stream_), name_of(file), 0);
    }

private:
    // Calls take(entry) for each name that begins with `prefix`. False as soon as that is.
    template <class Take>
    bool visit(std::string_view prefix, Take take) noexcept {
        while (const dirent64* const found = ::readdir64(stream_)) {
            const bool matches = std::string_view(found->d_name).starts_with(prefix);
            if (found->d_ino != 0 && matches && !take(*found)) return false;
        }
        return true;
    }

    [[nodiscard]] const char* name_of(const Candidate& file) noexcept {
        return names_.items().data() + file.name;
    }

    // Reads the times. A file that cannot be examined, or is not a regular file, is left alone.
    void drop_others() noexcept {
        const auto files = files_.items();
        const auto gone = std::remove_if(files.begin(), files.end(), [&](Candidate& file) {
            struct stat64 status {};
            if (::fstatat64(::dirfd(stream_), name_of(file), &status, 0) != 0) return true;
            file.written = status.st_mtim;
            return !S_ISREG(status.st_mode);
        });
        files_.shrink(static_cast<std::size_t>(gone - files.begin()));
    }

    DIR* stream_;
    Growing<Candidate> files_;
    Growing<char> names_;
};

}  // namespace
}  // namespace ovrmail::log

using namespace ovrmail;

std::int32_t DeleteOldFiles_DIR(const char* directory, const char* prefix,
                                const char* /*extension*/, std::int32_t count,
                                std::uint32_t enabled) noexcept {
    if (enabled == 0) return log::kDone;
    if (directory == nullptr || prefix == nullptr) return log::kNoDirectory;
    const log::DirectoryPtr stream(DirectryOpen(directory));
    if (stream == nullptr) {
        struct stat status {};
        const bool exists = FileStat(directory, &status) == 0 && S_ISDIR(status.st_mode);
        return exists ? log::kNotOpened : log::kNoDirectory;
    }
    const std::size_t keep = count > 1 ? static_cast<std::size_t>(count) - 1 : 0;
    log::OldFiles files(stream.get());
    if (files.count(prefix) <= keep) return log::kDone;
    if (!files.collect(prefix)) return log::kNoMemory;
    files.delete_beyond(keep);
    return log::kDone;
}

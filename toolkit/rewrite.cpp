// rewrite.cpp - replaces the content of a small file; see rewrite.hpp.
//
// Changed profiles are written with it; a send writes none. The file is written in place: a new
// file renamed over it would also survive a crash, but it would belong to the user who writes it,
// and hard and symbolic links would no longer lead to it. No state.
#include "toolkit/rewrite.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "common/heap.hpp"
#include "common/open_file.hpp"
#include "common/retry.hpp"
#include "common/unique_fd.hpp"
#include "file_util.h"

namespace ovrmail::toolkit {

using namespace common;

namespace {

// 0 or errno; a short write is ENOSPC.
int write_at_once(int fd, std::string_view content) noexcept {
    if (content.empty()) return 0;
    const ssize_t written =
        retry_eintr(kNoLimit, [&] { return ::write(fd, content.data(), content.size()); });
    if (written < 0) return errno;
    return static_cast<std::size_t>(written) == content.size() ? 0 : ENOSPC;
}

// A file system that cannot reserve space reports this; the file is then written without.
int reserve(int fd, off64_t size) noexcept {
    const int rc =
        retry_eintr(kNoLimit, [&] { return ::fallocate64(fd, FALLOC_FL_KEEP_SIZE, 0, size); });
    return rc == 0 || errno == EOPNOTSUPP || errno == ENOSYS ? 0 : errno;
}

int resize(int fd, off64_t size) noexcept {
    return retry_eintr(kNoLimit, [&] { return ::ftruncate64(fd, size); }) == 0 ? 0 : errno;
}

// The bytes that rewriting may destroy, kept in memory until it has succeeded.
class OldContent {
public:
    // Takes the first `size` bytes. Returns 0 or errno.
    int keep(int fd, std::size_t size) noexcept {
        if (size == 0) return 0;
        bytes_ = make_block(size);
        if (bytes_ == nullptr) return ENOMEM;
        while (size_ < size) {
            const ssize_t got = retry_eintr(kNoLimit, [&] {
                return ::pread64(fd, bytes_.get() + size_, size - size_,
                                 static_cast<off64_t>(size_));
            });
            if (got < 0) return errno;
            if (got == 0) break;
            size_ += static_cast<std::size_t>(got);
        }
        return 0;
    }

    // Puts them back as far as possible. The caller reports the failure that came first.
    void restore(int fd, off64_t file_size) noexcept {
        for (std::size_t done = 0; done < size_;) {
            const ssize_t put = retry_eintr(kNoLimit, [&] {
                return ::pwrite64(fd, bytes_.get() + done, size_ - done,
                                  static_cast<off64_t>(done));
            });
            if (put <= 0) break;
            done += static_cast<std::size_t>(put);
        }
        resize(fd, file_size);
    }

private:
    HeapPtr<char[]> bytes_;
    std::size_t size_ = 0;
};

int rewrite_regular(int fd, off64_t old_size, std::string_view content) noexcept {
    const auto new_size = static_cast<off64_t>(content.size());
    OldContent old;
    int failure = old.keep(fd, static_cast<std::size_t>(std::min(old_size, new_size)));
    if (failure != 0) return failure;
    if (new_size > old_size) failure = reserve(fd, new_size);
    if (failure == 0) failure = write_at_once(fd, content);
    if (failure == 0 && new_size < old_size) failure = resize(fd, new_size);
    if (failure != 0) old.restore(fd, old_size);
    return failure;
}

}  // namespace

int rewrite_file(const char* path, std::string_view content) noexcept {
    UniqueFd fd = open_at_once(path, O_RDWR | O_CREAT, 0644);
    struct stat64 status {};
    if (!fd.valid() || ::fstat64(fd.get(), &status) != 0) return errno;
    if (!S_ISREG(status.st_mode)) return EINVAL;
    const int failure = rewrite_regular(fd.get(), status.st_size, content);
    if (FileClose(fd.release()) != 0 && failure == 0) return errno;
    return failure;
}

}  // namespace ovrmail::toolkit

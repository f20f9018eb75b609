// trace.cpp - opens and closes trace rings; see trace.h and trace_handle.hpp.
//
// Every public call opens a ring of its own at its start and closes it at its end. Opening copies
// a ring that lacks blocks on the disk to a temporary file and back, which gives it all of them.
// Where the file system overwrites blocks in place, the ring is then mapped: a write into the
// mapping cannot meet a full disk, which would raise SIGBUS in the host process. Other file systems
// may need a new block for any write; there records are written with pwritev(), see trace_ring.cpp.
// Owns g_trace (ring of the running send) and g_cs (serialises record writing).
#include "trace.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <span>

#include "common/heap.hpp"
#include "common/retry.hpp"
#include "common/text.hpp"
#include "common/unique_fd.hpp"
#include "file_util.h"
#include "log/own_file.hpp"
#include "log/trace_handle.hpp"

TraceHandle* g_trace = nullptr;
pthread_mutex_t g_cs = PTHREAD_MUTEX_INITIALIZER;

namespace ovrmail::log {
namespace {

using common::kNoLimit;
using common::retry_eintr;
using common::UniqueFd;

constexpr mode_t kFileMode = 0644;
constexpr int kNameAttempts = 100;
constexpr std::size_t kCopyBlock = std::size_t{32} * 1024;

struct RingFile {
    UniqueFd fd;
    bool is_new = false;  // its offset is not used; its bytes stay
    std::uint64_t length = 0;
    bool is_laid_down = false;  // no part of it lacks its blocks on the disk
};

bool open_ring_file(const char* path, RingFile& file) noexcept {
    file.fd = open_unfollowed(path, 0);
    if (!file.fd.valid()) {
        file.fd = open_unfollowed(path, O_CREAT);
        file.is_new = true;
    }
    struct stat64 status {};
    if (!file.fd.valid() || !is_own_file(file.fd.get(), status)) return false;
    file.length = static_cast<std::uint64_t>(status.st_size);
    file.is_new = file.is_new || file.length < kRingStart;
    constexpr std::uint64_t kStatusBlock = 512;  // the unit of st_blocks (stat(2))
    file.is_laid_down = static_cast<std::uint64_t>(status.st_blocks) * kStatusBlock >= file.length;
    if ((status.st_mode & 07777) != kFileMode) (void)::fchmod(file.fd.get(), kFileMode);
    return true;
}

// Whether a block of the file, once written, can be overwritten without a new block. Other file
// systems may share blocks between copies of a file (XFS, btrfs), or lie above one that does
// (overlayfs).
bool is_overwritten_in_place(int fd) noexcept {
    struct statfs64 system {};
    if (::fstatfs64(fd, &system) != 0) return false;
    const auto type = static_cast<unsigned>(system.f_type);
    return type == EXT4_SUPER_MAGIC || type == TMPFS_MAGIC;
}

// The next multiple of 8 KiB strictly above the request.
// Kept: a request that is a multiple already grows by 8 KiB too. Readers of existing rings rely on
// these sizes.
constexpr std::uint64_t rounded_ring_bytes(std::uint32_t size_kb) noexcept {
    return (std::uint64_t{size_kb} * 1024 / kRingUnit + 1) * kRingUnit;
}

// A named file beside the ring, deleted at the latest with this object.
class TemporaryFile {
public:
    TemporaryFile() noexcept = default;
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        const common::ErrnoKeeper keep;
        if (fd_.valid()) FileDelete(name_.data());
    }

    [[nodiscard]] bool create(const char* ring_path) noexcept {
        const char* const slash = std::strrchr(ring_path, '/');
        const int directory = slash != nullptr ? static_cast<int>(slash + 1 - ring_path) : 2;
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        auto salt = static_cast<unsigned>(now.tv_nsec);
        for (int attempt = 0; attempt < kNameAttempts; ++attempt, salt += 7919) {
            if (common::format_into(name_, "%.*strc%08x", directory,
                                    slash != nullptr ? ring_path : "./", salt) < 0)
                return false;
            fd_.reset(retry_eintr(kNoLimit, [&] {
                return ::open(name_.data(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode);
            }));
            if (fd_.valid() || errno != EEXIST) return fd_.valid();
        }
        return false;
    }

    [[nodiscard]] bool remove() noexcept {
        const bool closed = FileClose(fd_.release()) == 0;
        return FileDelete(name_.data()) == 0 && closed;
    }

    [[nodiscard]] int fd() const noexcept { return fd_.get(); }

private:
    UniqueFd fd_;
    std::array<char, PATH_MAX + 16> name_{};
};

// Reads the block at `offset` of a file of `length` bytes; bytes behind its end become zero.
bool load_block(int fd, std::size_t offset, std::uint64_t length, std::span<char> block) noexcept {
    const std::uint64_t left = offset < length ? length - offset : 0;
    const std::size_t there = left < block.size() ? static_cast<std::size_t>(left) : block.size();
    std::size_t filled = 0;
    while (filled < there) {
        const ssize_t got = retry_eintr(kNoLimit, [&] {
            return ::pread(fd, block.data() + filled, there - filled,
                           static_cast<off_t>(offset + filled));
        });
        if (got < 0) return false;
        if (got == 0) break;
        filled += static_cast<std::size_t>(got);
    }
    std::memset(block.data() + filled, 0, block.size() - filled);
    return true;
}

bool store_block(int fd, std::size_t offset, std::span<const char> block) noexcept {
    const ssize_t put = retry_eintr(kNoLimit, [&] {
        return ::pwrite(fd, block.data(), block.size(), static_cast<off_t>(offset));
    });
    return put == static_cast<ssize_t>(block.size());
}

// Copies the ring into a temporary file and back, padding it with zeros to its full size.
bool settle_ring(const RingFile& file, std::size_t bytes, const char* path) noexcept {
    TemporaryFile temporary;
    if (!temporary.create(path)) return false;
    std::array<char, kCopyBlock> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    const std::span<char> block(buffer.data(), std::min(bytes, buffer.size()));
    for (std::size_t at = 0; at < bytes; at += block.size()) {
        const auto part = block.first(std::min(block.size(), bytes - at));
        if (!load_block(file.fd.get(), at, file.length, part)) return false;
        if (!store_block(temporary.fd(), at, part)) return false;
    }
    const bool still_in_block = bytes == block.size();
    for (std::size_t at = 0; at < bytes; at += block.size()) {
        const auto part = block.first(std::min(block.size(), bytes - at));
        if (!still_in_block && !load_block(temporary.fd(), at, bytes, part)) return false;
        if (!store_block(file.fd.get(), at, part)) return false;
    }
    return temporary.remove();
}

// Whether the ring goes on where its file says, or begins anew.
bool goes_on(const RingFile& file, std::uint32_t offset, std::size_t bytes) noexcept {
    return !file.is_new && file.length <= bytes && is_ring_offset(offset, bytes);
}

bool map_ring(TraceHandle& trace, const RingFile& file, std::size_t bytes) noexcept {
    void* const mapping =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.fd.get(), 0);
    if (mapping == MAP_FAILED) return false;
    trace.mapping = static_cast<unsigned char*>(mapping);
    std::uint32_t offset = 0;
    std::memcpy(&offset, trace.mapping, sizeof offset);
    if (!goes_on(file, offset, bytes)) std::memcpy(trace.mapping, &kRingStart, sizeof kRingStart);
    return true;
}

// False when the header can neither be read nor be written.
bool settle_header(const RingFile& file, std::size_t bytes) noexcept {
    std::uint32_t offset = 0;
    const std::span<char> word(reinterpret_cast<char*>(&offset), sizeof offset);
    if (!load_block(file.fd.get(), 0, bytes, word)) return false;
    if (goes_on(file, offset, bytes)) return true;
    offset = kRingStart;
    return store_block(file.fd.get(), 0, word);
}

bool attach_file(TraceHandle& trace, const char* path, std::uint32_t size_kb) noexcept {
    const std::uint64_t wanted = rounded_ring_bytes(size_kb);
    constexpr std::uint64_t kAddressable = PTRDIFF_MAX;
    if (wanted > UINT32_MAX || wanted > kAddressable) {  // the header holds 32-bit offsets
        errno = EFBIG;
        return false;
    }
    const auto bytes = static_cast<std::size_t>(wanted);
    RingFile file;
    if (!open_ring_file(path, file)) return false;
    const bool is_settled = file.length >= bytes && file.is_laid_down;
    if (!is_settled && !settle_ring(file, bytes, path)) return false;
    if (is_overwritten_in_place(file.fd.get())) {
        if (!map_ring(trace, file, bytes)) return false;
    } else if (!settle_header(file, bytes)) {
        return false;
    }
    trace.size_kb = static_cast<std::uint32_t>(bytes / 1024);
    trace.fd = file.fd.release();
    return true;
}

}  // namespace
}  // namespace ovrmail::log

using namespace ovrmail;

TraceHandle* Topen(const char* path, std::uint32_t size_kb, std::uint32_t level) noexcept {
    common::HeapPtr<TraceHandle> trace(
        static_cast<TraceHandle*>(std::calloc(1, sizeof(TraceHandle))));
    if (trace == nullptr) return nullptr;
    ::pthread_mutex_init(&g_cs, nullptr);
    trace->level = level;
    if (level == 0 || size_kb == 0) return trace.release();
    if (path == nullptr) errno = EFAULT;
    if (path == nullptr || !log::attach_file(*trace, path, size_kb)) {
        ::pthread_mutex_destroy(&g_cs);
        return nullptr;
    }
    return trace.release();
}

std::int32_t Tclose(TraceHandle* trace) noexcept {
    [[maybe_unused]] const common::HeapPtr<TraceHandle> owner(trace);
    if (trace == nullptr) return -1;
    bool ended = true;
    if (trace->has_file()) {
        if (trace->mapping != nullptr) ended = ::munmap(trace->mapping, trace->ring_bytes()) == 0;
        ended = FileClose(trace->fd) == 0 && ended;
    }
    ::pthread_mutex_destroy(&g_cs);
    return ended ? 0 : -1;
}

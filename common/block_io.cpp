// block_io.cpp - reads and writes files in large blocks; see block_io.hpp.
//
// Staging, composition, streaming and the profile reader use it. The caller owns descriptor and
// block; no state.
#include "common/block_io.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/retry.hpp"

namespace ovrmail::common {

ssize_t read_full(int fd, std::span<char> block) noexcept {
    std::size_t filled = 0;
    while (filled < block.size()) {
        const ssize_t got = retry_eintr(
            kNoLimit, [&] { return ::read(fd, block.data() + filled, block.size() - filled); });
        if (got < 0) return -1;
        if (got == 0) break;
        filled += static_cast<std::size_t>(got);
    }
    return static_cast<ssize_t>(filled);
}

bool BlockWriter::put(std::string_view text) noexcept {
    if (error_ != 0) return false;
    if (text.empty()) return true;
    if (text.size() > block_.size() - used_) {
        if (!flush()) return false;
        if (text.size() > block_.size()) return write_out(text);
    }
    std::memcpy(block_.data() + used_, text.data(), text.size());
    used_ += text.size();
    return true;
}

bool BlockWriter::flush() noexcept {
    if (error_ != 0) return false;
    if (used_ == 0) return true;
    const std::size_t size = used_;
    used_ = 0;
    return write_out({block_.data(), size});
}

std::span<char> BlockWriter::room(std::size_t size) noexcept {
    if (error_ != 0 || size > block_.size()) return {};
    if (size > block_.size() - used_ && !flush()) return {};
    return block_.subspan(used_);
}

bool BlockWriter::write_out(std::string_view text) noexcept {
    const ssize_t written =
        retry_eintr(kNoLimit, [&] { return ::write(fd_, text.data(), text.size()); });
    if (written >= 0 && static_cast<std::size_t>(written) == text.size()) return true;
    // A short write carries no errno; on a regular file it means that the disk is full.
    error_ = written < 0 ? errno : ENOSPC;
    return false;
}

}  // namespace ovrmail::common

// block_io.hpp - files in large blocks: composition makes one system call per block, not per line.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <span>
#include <string_view>

namespace ovrmail::common {

// Reads until the block is full or the file ends. Returns the bytes read, or -1 with errno.
ssize_t read_full(int fd, std::span<char> block) noexcept;

// Collects what is put into it and writes whole blocks. After the first failure every call returns
// false and error() keeps its errno. A short write is a failure (ENOSPC). The destructor writes
// nothing: only flush() reports success.
class BlockWriter {
public:
    BlockWriter(int fd, std::span<char> block) noexcept : fd_(fd), block_(block) {}
    BlockWriter(const BlockWriter&) = delete;
    BlockWriter& operator=(const BlockWriter&) = delete;

    bool put(std::string_view text) noexcept;
    [[nodiscard]] bool flush() noexcept;

    // Room for at least `size` bytes (at most the block), to be filled in place and then
    // commit()ted; empty after a failure.
    [[nodiscard]] std::span<char> room(std::size_t size) noexcept;
    void commit(std::size_t size) noexcept { used_ += size; }

    [[nodiscard]] int error() const noexcept { return error_; }

private:
    [[nodiscard]] bool write_out(std::string_view text) noexcept;

    int fd_;
    std::span<char> block_;
    std::size_t used_ = 0;
    int error_ = 0;
};

}  // namespace ovrmail::common

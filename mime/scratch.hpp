// scratch.hpp - the two process-wide blocks of composition and streaming, and the window through
// which a file is read in blocks but taken line by line.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "common/base64.hpp"

namespace ovrmail::mime {

// Files are read and written in blocks of this size: about eighty reads and as many writes for an
// attachment of 10 MiB. The output block has room for the base64 lines of a full input block.
inline constexpr std::size_t kInputSize = std::size_t{128} * 1024;
inline constexpr std::size_t kOutputSize =
    kInputSize / common::kBase64LineBytes * common::kBase64LineSize;

// Not reentrant: one send at a time owns them.
std::span<char, kInputSize> input_block() noexcept;
std::span<char, kOutputSize> output_block() noexcept;

// The largest part of a block that is a whole number of units.
constexpr std::size_t whole_units(std::size_t size, std::size_t unit) noexcept {
    return size / unit * unit;
}

// A file seen through the input block. view() shows at least `want` bytes (at most half a block)
// unless the file ends before; consume() skips the bytes that have been used.
class InputWindow {
public:
    explicit InputWindow(int fd) noexcept : fd_(fd), block_(input_block()) {}
    InputWindow(const InputWindow&) = delete;
    InputWindow& operator=(const InputWindow&) = delete;

    // False when reading failed; errno tells why.
    [[nodiscard]] bool fill(std::size_t want) noexcept;
    [[nodiscard]] std::string_view view() const noexcept {
        return {block_.data() + begin_, end_ - begin_};
    }
    void consume(std::size_t size) noexcept { begin_ += size; }

    // Back to the start of the file. No system call while the block still holds the whole file.
    [[nodiscard]] bool rewind() noexcept;

private:
    int fd_;
    std::span<char> block_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool at_end_ = false;
    bool moved_ = false;  // the start of the file has left the block
};

}  // namespace ovrmail::mime

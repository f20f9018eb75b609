// scratch.cpp - input and output block, and the window over the input block; see scratch.hpp.
//
// Used while a message is composed, streamed or sent in pieces. Owns g_input and g_output, which
// one send at a time uses.
#include "mime/scratch.hpp"

#include <unistd.h>

#include <cstring>

#include "common/block_io.hpp"

namespace ovrmail::mime {
namespace {

std::array<char, kInputSize> g_input;
std::array<char, kOutputSize> g_output;

}  // namespace

std::span<char, kInputSize> input_block() noexcept { return g_input; }
std::span<char, kOutputSize> output_block() noexcept { return g_output; }

bool InputWindow::fill(std::size_t want) noexcept {
    if (at_end_ || end_ - begin_ >= want) return true;
    if (begin_ != 0) {
        std::memmove(block_.data(), block_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        moved_ = true;
    }
    const auto room = block_.subspan(end_);
    const ssize_t got = common::read_full(fd_, room);
    if (got < 0) return false;
    end_ += static_cast<std::size_t>(got);
    at_end_ = static_cast<std::size_t>(got) < room.size();
    return true;
}

bool InputWindow::rewind() noexcept {
    begin_ = 0;
    if (at_end_ && !moved_) return true;
    end_ = 0;
    at_end_ = false;
    moved_ = false;
    return ::lseek(fd_, 0, SEEK_SET) == 0;
}

}  // namespace ovrmail::mime

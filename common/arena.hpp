// arena.hpp - memory that is allocated piece by piece and freed together with its owner.
//
// A profile of a thousand keys needs few allocations this way. Blocks double in size, so
// small profiles stay small.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <string_view>
#include <utility>

#include "common/text.hpp"

namespace ovrmail::common {

class Arena {
public:
    Arena() noexcept = default;
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;
    ~Arena() {
        while (blocks_ != nullptr) std::free(std::exchange(blocks_, blocks_->next));
    }

    // A T made from `args`, or null with ENOMEM. T needs no destructor call.
    template <class T, class... Args>
    T* make(Args&&... args) noexcept {
        static_assert(alignof(T) <= kAlign);
        void* const place = take(sizeof(T));
        return place != nullptr ? new (place) T{std::forward<Args>(args)...} : nullptr;
    }

    // A copy of `text`; data() is null, with ENOMEM, when there is no memory.
    std::string_view copy(std::string_view text) noexcept {
        char* const place = static_cast<char*>(take(text.size() + 1));
        if (place == nullptr) return {};
        return {place, copy_into({place, text.size() + 1}, text)};
    }

    // `size` uninitialised bytes, aligned to kAlign, or null with ENOMEM.
    void* take(std::size_t size) noexcept {
        if (size > left_ && !grow(size)) return nullptr;
        void* const place = next_;
        const std::size_t used = std::min((size + kAlign - 1) / kAlign * kAlign, left_);
        next_ += used;
        left_ -= used;
        return place;
    }

private:
    struct Block {
        Block* next;
    };

    bool grow(std::size_t size) noexcept {
        const std::size_t room = std::max(size, block_size_);
        auto* const block = static_cast<Block*>(std::malloc(sizeof(Block) + room));
        if (block == nullptr) return false;
        block->next = std::exchange(blocks_, block);
        next_ = reinterpret_cast<char*>(block + 1);
        left_ = room;
        block_size_ = std::min(block_size_ * 2, kLargestBlock);
        return true;
    }

    static constexpr std::size_t kAlign = alignof(void*);
    static constexpr std::size_t kLargestBlock = 64 * 1024 - 64;
    Block* blocks_ = nullptr;
    char* next_ = nullptr;
    std::size_t left_ = 0;
    std::size_t block_size_ = 2048 - 64;
};

}  // namespace ovrmail::common

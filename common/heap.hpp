// heap.hpp - owners of C heap blocks. malloc and not new: the library then needs libc alone.
#pragma once

#include <cstdlib>
#include <memory>

namespace ovrmail::common {

struct FreeBlock {
    void operator()(void* block) const noexcept { std::free(block); }
};

template <class T>
using HeapPtr = std::unique_ptr<T, FreeBlock>;

// Zero-filled array of `count` trivial elements, or null.
template <class T>
HeapPtr<T[]> make_zeroed(std::size_t count) noexcept {
    return HeapPtr<T[]>(static_cast<T*>(std::calloc(count != 0 ? count : 1, sizeof(T))));
}

// `size` uninitialised bytes, or null.
inline HeapPtr<char[]> make_block(std::size_t size) noexcept {
    return HeapPtr<char[]>(static_cast<char*>(std::malloc(size != 0 ? size : 1)));
}

}  // namespace ovrmail::common

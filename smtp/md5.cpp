// md5.cpp - the MD5 message digest (RFC 1321), for CRAM-MD5 and for callers of the library.
//
// Whole blocks are hashed in the caller's memory, so that no copy of them remains. The 64 steps are
// unrolled at compile time from the tables of the RFC. No state beyond the caller's context.
#include "md5.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <utility>

namespace ovrmail::smtp {
namespace {

using Word = std::uint32_t;
using Words = std::array<Word, 4>;

constexpr std::size_t kBlock = 64;
constexpr std::size_t kCountOffset = 56;  // of the bit count in the last block
constexpr Words kInitial{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
constexpr std::array<unsigned char, kBlock> kPadding{0x80};

// floor(2^32 * abs(sin(n + 1))).
constexpr std::array<Word, 64> kSine{
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

struct Round {
    std::array<int, 4> shift;
    std::size_t stride;  // of the words of the block
    std::size_t first;
};
constexpr std::array<Round, 4> kRounds{{{{7, 12, 17, 22}, 1, 0},
                                        {{5, 9, 14, 20}, 5, 1},
                                        {{4, 11, 16, 23}, 3, 5},
                                        {{6, 10, 15, 21}, 7, 0}}};

// Explicit byte order: the digest is the same on every machine. On little-endian machines compilers
// make one load or store of it.
Word load_word(const unsigned char* at) noexcept {
    return static_cast<Word>(at[0]) | static_cast<Word>(at[1]) << 8 |
           static_cast<Word>(at[2]) << 16 | static_cast<Word>(at[3]) << 24;
}

void store_word(unsigned char* at, Word word) noexcept {
    for (int i = 0; i < 4; ++i) at[i] = static_cast<unsigned char>(word >> (8 * i));
}

// `a` plus the round's function of b, c and d. The two halves of G have no bit in common, so they
// can be added one by one, and only one of them waits for b, the result of the step before.
template <std::size_t kRound>  // 0 to 3
[[gnu::always_inline]] inline Word mix(Word a, Word b, Word c, Word d) noexcept {
    if constexpr (kRound == 0) return a + (d ^ (b & (c ^ d)));
    if constexpr (kRound == 1) return a + (c & ~d) + (b & d);
    if constexpr (kRound == 2) return a + (b ^ (c ^ d));
    return a + (c ^ (b | ~d));
}

template <std::size_t kStep>
[[gnu::always_inline]] inline void step(Words& state, const unsigned char* block) noexcept {
    constexpr Round kRound = kRounds[kStep / 16];
    constexpr std::size_t kIndex = (kStep * kRound.stride + kRound.first) % 16;
    Word& a = state[(64 - kStep) % 4];
    const Word b = state[(65 - kStep) % 4];
    const Word c = state[(66 - kStep) % 4];
    const Word d = state[(67 - kStep) % 4];
    const Word sum = mix<kStep / 16>(a + load_word(block + 4 * kIndex) + kSine[kStep], b, c, d);
    a = b + std::rotl(sum, kRound.shift[kStep % 4]);
}

template <std::size_t... kSteps>
[[gnu::always_inline]] inline void all_steps(Words& state, const unsigned char* block,
                                             std::index_sequence<kSteps...>) noexcept {
    (step<kSteps>(state, block), ...);
}

void md5_transform(std::span<Word, 4> chain, std::span<const unsigned char> blocks) noexcept {
    Words state{chain[0], chain[1], chain[2], chain[3]};
    for (std::size_t at = 0; at < blocks.size(); at += kBlock) {
        const Words before = state;
        all_steps(state, blocks.data() + at, std::make_index_sequence<64>());
        for (std::size_t i = 0; i < state.size(); ++i) state[i] += before[i];
    }
    std::ranges::copy(state, chain.begin());
}

std::size_t buffered(const MailMd5Context& context) noexcept {
    return context.count[0] / 8 % kBlock;
}

void count_bits(MailMd5Context& context, Word length) noexcept {
    const Word bits = length << 3;
    context.count[0] += bits;
    context.count[1] += (length >> 29) + (context.count[0] < bits ? 1 : 0);
}

}  // namespace
}  // namespace ovrmail::smtp

using namespace ovrmail::smtp;

void MD5Init(MailMd5Context* context) noexcept {
    if (context == nullptr) return;
    *context = {};
    std::ranges::copy(kInitial, context->state);
}

void MD5Update(MailMd5Context* context, const unsigned char* input, std::uint32_t length) noexcept {
    if (context == nullptr || input == nullptr) return;
    std::span<const unsigned char> rest(input, length);
    const std::size_t used = buffered(*context);
    count_bits(*context, length);
    if (used + rest.size() >= kBlock) {
        if (used != 0) {
            std::ranges::copy(rest.first(kBlock - used), context->buffer + used);
            md5_transform(context->state, context->buffer);
            rest = rest.subspan(kBlock - used);
        }
        const std::size_t whole = rest.size() / kBlock * kBlock;
        md5_transform(context->state, rest.first(whole));
        std::ranges::copy(rest.subspan(whole), context->buffer);
    } else {
        std::ranges::copy(rest, context->buffer + used);
    }
}

void MD5Final(unsigned char digest[16], MailMd5Context* context) noexcept {
    if (digest == nullptr || context == nullptr) return;
    std::array<unsigned char, 8> bits{};
    store_word(bits.data(), context->count[0]);
    store_word(bits.data() + 4, context->count[1]);
    const std::size_t used = buffered(*context);
    const std::size_t padding = (used < kCountOffset ? kCountOffset : kCountOffset + kBlock) - used;
    MD5Update(context, kPadding.data(), static_cast<std::uint32_t>(padding));
    MD5Update(context, bits.data(), bits.size());
    for (std::size_t i = 0; i < 4; ++i) store_word(digest + 4 * i, context->state[i]);
    ::explicit_bzero(context, sizeof *context);
}

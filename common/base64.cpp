// base64.cpp - the base64 kernel (RFC 4648 section 4, RFC 2045 section 6.8); see base64.hpp.
//
// Composition encodes subjects and attachments with it, SMTP AUTH its credentials. Two methods give
// the same result: a table of character pairs indexed by twelve bits, and, where the processor has
// AVX2, 24 bytes a step after Mula and Lemire, "Faster Base64 Encoding and Decoding Using AVX2
// Instructions" (2018). ARM has the table only: a NEON method would have to show by measurement on
// such a machine that it is faster, which an emulator cannot. No state.
#include "common/base64.hpp"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#define OVRMAIL_BASE64_AVX2 1
#include <immintrin.h>
#endif

namespace ovrmail::common {
namespace {

struct Encoded {
    const unsigned char* src;
    char* dst;
};

constexpr auto kPairs = []() {
    std::array<std::array<char, 2>, 4096> pairs{};
    for (std::size_t i = 0; i < pairs.size(); ++i)
        pairs[i] = {kBase64Alphabet[i >> 6], kBase64Alphabet[i & 63]};
    return pairs;
}();

Encoded encode_groups(Encoded at, std::size_t groups) noexcept {
    for (; groups != 0; --groups, at.src += 3, at.dst += 4) {
        const unsigned group = static_cast<unsigned>(at.src[0]) << 16 |
                               static_cast<unsigned>(at.src[1]) << 8 | at.src[2];
        std::memcpy(at.dst, kPairs[group >> 12].data(), 2);
        std::memcpy(at.dst + 2, kPairs[group & 4095].data(), 2);
    }
    return at;
}

char* encode_tail(Encoded at, std::size_t bytes) noexcept {
    if (bytes == 0) return at.dst;
    const unsigned group = static_cast<unsigned>(at.src[0]) << 16 |
                           (bytes == 2 ? static_cast<unsigned>(at.src[1]) << 8 : 0);
    std::memcpy(at.dst, kPairs[group >> 12].data(), 2);
    at.dst[2] = bytes == 2 ? kBase64Alphabet[group >> 6 & 63] : '=';
    at.dst[3] = '=';
    return at.dst + 4;
}

char* encode_plain(std::span<const unsigned char> src, char* dst) noexcept {
    return encode_tail(encode_groups({src.data(), dst}, src.size() / 3), src.size() % 3);
}

#ifdef OVRMAIL_BASE64_AVX2
#define OVRMAIL_AVX2 __attribute__((target("avx2")))

bool has_avx2() noexcept { return __builtin_cpu_supports("avx2") != 0; }

constexpr std::size_t kStepReads = 28;  // a step encodes 24 bytes but reads 28

OVRMAIL_AVX2 __m256i both_lanes(__m128i lane) noexcept { return _mm256_broadcastsi128_si256(lane); }

// 24 bytes at src become 32 characters at dst.
OVRMAIL_AVX2 void encode_step(const unsigned char* src, char* dst) noexcept {
    __m256i in = _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src)));
    in =
        _mm256_inserti128_si256(in, _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 12)), 1);
    // Each 32-bit word takes one group as bytes 1 0 2 1; two multiplications then shift its four
    // six-bit fields into a byte each.
    in = _mm256_shuffle_epi8(
        in, both_lanes(_mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10)));
    const __m256i odd = _mm256_mulhi_epu16(_mm256_and_si256(in, _mm256_set1_epi32(0x0FC0FC00)),
                                           _mm256_set1_epi32(0x04000040));
    const __m256i even = _mm256_mullo_epi16(_mm256_and_si256(in, _mm256_set1_epi32(0x003F03F0)),
                                            _mm256_set1_epi32(0x01000010));
    const __m256i value = _mm256_or_si256(odd, even);
    // The distance from value to character is looked up by range: 13 upper case, 0 lower case,
    // 1 to 10 digits, 11 and 12 the last two.
    const __m256i upper = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), value);
    const __m256i range = _mm256_or_si256(_mm256_subs_epu8(value, _mm256_set1_epi8(51)),
                                          _mm256_and_si256(upper, _mm256_set1_epi8(13)));
    constexpr char kDigit = '0' - 52;
    const __m256i distance = _mm256_shuffle_epi8(
        both_lanes(_mm_setr_epi8('a' - 26, kDigit, kDigit, kDigit, kDigit, kDigit, kDigit, kDigit,
                                 kDigit, kDigit, kDigit, '+' - 62, '/' - 63, 'A', 0, 0)),
        range);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), _mm256_add_epi8(value, distance));
}

// Encodes whole steps while the bytes that a step reads are there.
OVRMAIL_AVX2 Encoded encode_steps(std::span<const unsigned char> src, char* dst) noexcept {
    const unsigned char* at = src.data();
    for (std::size_t left = src.size(); left >= kStepReads; left -= 24, at += 24, dst += 32)
        encode_step(at, dst);
    return {at, dst};
}

// Encodes whole lines: the third step of a line encodes its last 24 bytes, 21 of them again.
OVRMAIL_AVX2 Encoded encode_line_steps(std::span<const unsigned char> src, char* dst) noexcept {
    constexpr std::size_t kLast = kBase64LineBytes - 24;
    const unsigned char* at = src.data();
    for (std::size_t left = src.size(); left >= kLast + kStepReads; left -= kBase64LineBytes) {
        encode_step(at, dst);
        encode_step(at + 24, dst + 32);
        encode_step(at + kLast, dst + base64_length(kLast));
        dst[kBase64LineSize - 2] = '\r';
        dst[kBase64LineSize - 1] = '\n';
        at += kBase64LineBytes;
        dst += kBase64LineSize;
    }
    return {at, dst};
}
#else
bool has_avx2() noexcept { return false; }
Encoded encode_steps(std::span<const unsigned char> src, char* dst) noexcept {
    return {src.data(), dst};
}
Encoded encode_line_steps(std::span<const unsigned char> src, char* dst) noexcept {
    return {src.data(), dst};
}
#endif

}  // namespace

std::size_t base64_encode(std::span<const unsigned char> src, std::span<char> dst) noexcept {
    assert(dst.size() >= base64_length(src.size()));
    Encoded at{src.data(), dst.data()};
    if (has_avx2()) at = encode_steps(src, at.dst);
    const std::size_t done = static_cast<std::size_t>(at.src - src.data());
    return static_cast<std::size_t>(encode_plain(src.subspan(done), at.dst) - dst.data());
}

std::size_t base64_encode_lines(std::span<const unsigned char> src, std::span<char> dst) noexcept {
    assert(dst.size() >= (src.size() + kBase64LineBytes - 1) / kBase64LineBytes * kBase64LineSize);
    Encoded at{src.data(), dst.data()};
    if (has_avx2()) at = encode_line_steps(src, at.dst);
    for (auto left = src.subspan(static_cast<std::size_t>(at.src - src.data())); !left.empty();) {
        const std::size_t bytes = std::min(left.size(), kBase64LineBytes);
        at.dst = encode_plain(left.first(bytes), at.dst);
        *at.dst++ = '\r';
        *at.dst++ = '\n';
        left = left.subspan(bytes);
    }
    return static_cast<std::size_t>(at.dst - dst.data());
}

}  // namespace ovrmail::common

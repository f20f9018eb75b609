// codeset.cpp - Cnv_open, Cnv_close, Cnv_euctosjis, Cnv_sjistoeuc, Cnv_tocode and the tables of
// Japanese locale names.
//
// Called before staging, for text in EUC-JP. Owns g_converters, the open converters: a handle is a
// 32-bit number, so it names a place in this table.
#include "codeset.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "common/heap.hpp"

extern "C" {
const MailLangInfo stEucLangInfo[9] = {
    {1, "ja_JP.euc"}, {1, "eucJP"},      {1, "EUC"},         {1, "euc"}, {1, "ja"},
    {1, "ja_JP"},     {1, "ja_JP.ujis"}, {2, "ja_JP.eucJP"}, {0, ""},
};
const MailLangInfo stSjisLangInfo[5] = {
    {1, "ja_JP.PCK"}, {1, "SJIS"}, {1, "PCK"}, {1, "ja_JP.SJIS"}, {0, ""},
};
}

namespace ovrmail::mime {
namespace {

constexpr std::int32_t kNoHandle = -1;
constexpr std::int32_t kRefused = -1;
constexpr std::int32_t kStopped = -2;

// Open converters; a handle is the index plus one. One atomic operation takes or frees a place, so
// threads need no lock.
constexpr std::size_t kMaxOpen = 1024;
std::array<std::atomic<iconv_t>, kMaxOpen> g_converters{};

std::int32_t keep(iconv_t converter) noexcept {
    for (std::size_t i = 0; i < kMaxOpen; ++i) {
        iconv_t free_place = nullptr;
        if (g_converters[i].compare_exchange_strong(free_place, converter))
            return static_cast<std::int32_t>(i + 1);
    }
    return kNoHandle;
}

std::atomic<iconv_t>* place_of(std::int32_t handle) noexcept {
    const auto index = static_cast<std::size_t>(handle) - 1;
    return handle > 0 && index < kMaxOpen ? &g_converters[index] : nullptr;
}

bool is_known(const char* code) noexcept {
    return code != nullptr && (std::strcmp(code, "eucJP") == 0 || std::strcmp(code, "SJIS") == 0);
}

struct Request {
    std::int32_t handle;
    std::int32_t in_length;
    const char* in;
    std::int32_t out_size;
    char* out;
    std::int32_t* out_length;
};

std::size_t hex_length(std::string_view bytes) noexcept { return 2 * bytes.size(); }

char* append_hex(char* out, std::string_view bytes) noexcept {
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        *out++ = "0123456789abcdef"[value >> 4];
        *out++ = "0123456789abcdef"[value & 15];
    }
    return out;
}

// Writes at most `growth` bytes for each byte of input.
std::int32_t convert(const Request& request, std::size_t growth) noexcept {
    std::atomic<iconv_t>* const place = place_of(request.handle);
    iconv_t converter = place != nullptr ? place->load() : nullptr;
    if (request.in == nullptr || request.out == nullptr || request.in_length < 0 ||
        converter == nullptr)
        return kRefused;
    const auto length = static_cast<std::size_t>(request.in_length);
    const auto room = static_cast<std::size_t>(std::max(request.out_size, 0));
    if (length > (SIZE_MAX - 1) / 3) return kRefused;
    // The hexadecimal form needs two characters for each byte.
    const auto work = common::make_zeroed<char>(std::max<std::size_t>(growth, 2) * length + 1);
    if (!work) return kRefused;

    char* in = const_cast<char*>(request.in);  // iconv only reads it
    std::size_t in_left = length;
    char* out = work.get();
    std::size_t out_left = std::min(room, growth * length);
    const bool stopped = ::iconv(converter, &in, &in_left, &out, &out_left) == SIZE_MAX;
    // After a stop only the bytes before `out` count: the converter may have written a part of a
    // character behind it.
    std::size_t size = static_cast<std::size_t>(out - work.get());
    if (!stopped) size = ::strnlen(work.get(), size);
    if (size == 0 && stopped) {
        const std::string_view rest(in, ::strnlen(in, in_left));
        append_hex(work.get(), rest);
        size = hex_length(rest);
    }
    size = std::min(size, room);
    std::memcpy(request.out, work.get(), size);
    if (request.out_length != nullptr) *request.out_length = static_cast<std::int32_t>(size);
    return stopped ? kStopped : static_cast<std::int32_t>(size);
}

}  // namespace
}  // namespace ovrmail::mime

std::int32_t Cnv_open(const char* from_code, const char* to_code) noexcept {
    using namespace ovrmail::mime;
    if (!is_known(from_code) || !is_known(to_code)) return kNoHandle;
    iconv_t converter = ::iconv_open(to_code, from_code);
    if (reinterpret_cast<std::intptr_t>(converter) == -1) return kNoHandle;
    const std::int32_t handle = keep(converter);
    if (handle == kNoHandle) ::iconv_close(converter);
    return handle;
}

std::int32_t Cnv_euctosjis(std::int32_t handle, std::int32_t in_length, const char* in,
                           std::int32_t out_size, char* out, std::int32_t* out_length) noexcept {
    return ovrmail::mime::convert({handle, in_length, in, out_size, out, out_length}, 1);
}

std::int32_t Cnv_sjistoeuc(std::int32_t handle, std::int32_t in_length, const char* in,
                           std::int32_t out_size, char* out, std::int32_t* out_length) noexcept {
    return ovrmail::mime::convert({handle, in_length, in, out_size, out, out_length}, 3);
}

std::int32_t Cnv_tocode(const char* text, char* out) noexcept {
    if (out == nullptr) return 0;
    const std::string_view bytes = text != nullptr ? text : "";
    *ovrmail::mime::append_hex(out, bytes) = '\0';
    return static_cast<std::int32_t>(bytes.size());
}

std::int32_t Cnv_close(std::int32_t handle) noexcept {
    using namespace ovrmail::mime;
    if (handle == kNoHandle) return 0;
    std::atomic<iconv_t>* const place = place_of(handle);
    iconv_t converter = place != nullptr ? place->exchange(nullptr) : nullptr;
    if (converter == nullptr) {
        errno = EBADF;
        return kRefused;
    }
    return ::iconv_close(converter);
}

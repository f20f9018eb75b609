// hmac_md5.cpp - HMAC-MD5 (RFC 2104 section 2, block size 64), the keyed digest of CRAM-MD5.
//
// Called by credentials.cpp for the response to a challenge. No state: keys and inner digest are
// wiped before return.
#include "smtp/hmac_md5.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "md5.h"

namespace ovrmail::smtp {
namespace {

using Block = std::array<unsigned char, 64>;

constexpr unsigned char kInnerPad = 0x36;
constexpr unsigned char kOuterPad = 0x5C;

std::span<const unsigned char> as_bytes(std::span<const char> text) noexcept {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

void update(MailMd5Context& context, std::span<const unsigned char> bytes) noexcept {
    MD5Update(&context, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
}

// MD5 of the key, padded with `pad`, and then `bytes`.
void keyed_digest(Block key, unsigned char pad, std::span<const unsigned char> bytes,
                  Digest& digest) noexcept {
    for (unsigned char& byte : key) byte ^= pad;
    MailMd5Context context;
    MD5Init(&context);
    update(context, key);
    update(context, bytes);
    MD5Final(digest.data(), &context);
    ::explicit_bzero(key.data(), key.size());
}

}  // namespace

void hmac_md5(std::span<const char> text, std::span<const char> key, Digest& digest) noexcept {
    Block block{};
    if (key.size() <= block.size()) {
        std::ranges::copy(as_bytes(key), block.begin());
    } else {
        MailMd5Context context;
        MD5Init(&context);
        update(context, as_bytes(key));
        MD5Final(block.data(), &context);
    }
    Digest inner{};
    keyed_digest(block, kInnerPad, as_bytes(text), inner);
    keyed_digest(block, kOuterPad, inner, digest);
    ::explicit_bzero(block.data(), block.size());
    ::explicit_bzero(inner.data(), inner.size());
}

}  // namespace ovrmail::smtp

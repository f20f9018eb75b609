// piece_fuzz.cpp - where a composed message is cut. The first byte gives the size of a piece in
// KiB; blocks of the input may repeat, so that short inputs make long lines.
#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz.hpp"
#include "mime.h"

namespace {

using fuzz::demand;

constexpr const char* kBoundary = "---------------OvWexl1234567890";
constexpr std::size_t kLongest = 20000;

// "\x01 count bytes...LF": the bytes up to the LF, so often.
std::string expanded(std::string_view in) {
    std::string out;
    while (!in.empty() && out.size() < kLongest) {
        if (in.front() != '\x01' || in.size() < 3) {
            out += in.front();
            in.remove_prefix(1);
            continue;
        }
        int count = static_cast<unsigned char>(in[1]) + 1;
        in.remove_prefix(2);
        const std::string_view block = fuzz::take(in, '\n');
        while (count-- > 0 && out.size() < kLongest) out += block;
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const int size_kb = 1 + data[0] % 4;
    const std::string whole = expanded(fuzz::text(data + 1, size - 1));
    const fuzz::MemoryFile file(whole);
    const std::size_t room = static_cast<std::size_t>(size_kb) * 1024;
    std::vector<char> buffer(room);
    for (std::size_t at = 0;;) {
        std::ranges::fill(buffer, '\0');
        std::uint32_t err = 0;
        const std::int32_t length =
            SMTP_getSendData(file.fd(), buffer.data(), size_kb, kBoundary, &err);
        demand(length >= 0, "no error");
        const std::string_view piece(buffer.data(), static_cast<std::size_t>(length));
        demand(piece == std::string_view(whole).substr(at, piece.size()), "what comes next");
        demand(std::all_of(buffer.begin() + length, buffer.end(), [](char c) { return c == 0; }),
               "clear behind the piece");
        at += piece.size();
        if (at == whole.size()) return 0;
        demand(!piece.empty(), "it goes on");
        demand(
            piece.ends_with("\r\n") || (piece.size() == room && piece.find("\r\n") == piece.npos),
            "a piece ends with a line, or is full of one");
    }
}

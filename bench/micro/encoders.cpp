// encoders.cpp - base64, ISO-2022-JP and MD5 beside the packaged implementations.
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <modp_b64.h>
#include <openssl/evp.h>

#include <array>
#include <cstring>

#include "md5.h"
#include "micro.hpp"
#include "mime.h"

namespace {

constexpr std::size_t kBlock = 57 * 512;

// Runs `encode(source, destination)` on a block of an attachment.
template <class Encode>
void base64(benchmark::State& state, Encode encode) {
    std::string source = bench::noise(kBlock);
    source.resize(kBlock + 3);  // SMTP_toBase64 writes three bytes behind its input
    std::string text(kBlock * 2, '\0');
    for (auto _ : state) {
        encode(source.data(), text.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kBlock));
}

void base64_product(benchmark::State& state) {
    base64(state, [](char* from, char* to) { SMTP_toBase64(from, to, kBlock); });
}
void base64_modp(benchmark::State& state) {
    base64(state, [](char* from, char* to) { modp_b64_encode(to, from, kBlock); });
}
void base64_openssl(benchmark::State& state) {
    base64(state, [](char* from, char* to) {
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(to),
                        reinterpret_cast<unsigned char*>(from), kBlock);
    });
}

using PairTable = std::array<std::array<char, 2>, 4096>;

PairTable make_pairs() {
    constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    PairTable pairs{};
    for (unsigned i = 0; i < pairs.size(); ++i) pairs[i] = {kAlphabet[i >> 6], kAlphabet[i & 63]};
    return pairs;
}

void base64_pair_table(benchmark::State& state) {
    static const PairTable pairs = make_pairs();
    base64(state, [](const char* from, char* to) {
        const auto* in = reinterpret_cast<const unsigned char*>(from);
        for (std::size_t i = 0; i < kBlock; i += 3, to += 4) {
            const unsigned group = unsigned{in[i]} << 16 | unsigned{in[i + 1]} << 8 | in[i + 2];
            std::memcpy(to, pairs[group >> 12].data(), 2);
            std::memcpy(to + 2, pairs[group & 4095].data(), 2);
        }
    });
}
void base64_memcpy(benchmark::State& state) {
    base64(state, [](char* from, char* to) { std::memcpy(to, from, kBlock); });
}

// One line of Japanese text, as composition meets it: 28 characters of two bytes, CR LF.
const std::string kLine =
    "\x8a\xc4\x8e\x8b\x83\x54\x81\x5b\x83\x6f\x82\xc5\x83\x57\x83\x87\x83\x75\x82\xaa\x88\xd9\x8f"
    "\xed\x8f\x49\x97\xb9\x82\xb5\x82\xdc\x82\xb5\x82\xbd\x81\x42\x8a\x6d\x94\x46\x82\xb5\x82\xc4"
    "\x82\xad\x82\xbe\x82\xb3\x82\xa2\x81\x42\r\n";

void japanese_product(benchmark::State& state) {
    std::array<char, 512> out{};
    for (auto _ : state) {
        SMTP_toISO2022(kLine.c_str(), out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kLine.size()));
}
void japanese_iconv(benchmark::State& state) {
    const iconv_t converter = ::iconv_open("ISO-2022-JP", "SJIS");
    std::array<char, 512> out{};
    std::string line = kLine;
    for (auto _ : state) {
        char* from = line.data();
        char* to = out.data();
        std::size_t from_left = line.size();
        std::size_t to_left = out.size();
        ::iconv(converter, &from, &from_left, &to, &to_left);
        benchmark::ClobberMemory();
    }
    ::iconv_close(converter);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kLine.size()));
}

constexpr std::size_t kDigestBlock = 64 * 1024;

void md5_product(benchmark::State& state) {
    const std::string data = bench::noise(kDigestBlock);
    std::array<unsigned char, 16> digest{};
    for (auto _ : state) {
        MailMd5Context context;
        MD5Init(&context);
        MD5Update(&context, reinterpret_cast<const unsigned char*>(data.data()), kDigestBlock);
        MD5Final(digest.data(), &context);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kDigestBlock));
}
void md5_openssl(benchmark::State& state) {
    const std::string data = bench::noise(kDigestBlock);
    std::array<unsigned char, 16> digest{};
    for (auto _ : state) {
        EVP_Digest(data.data(), data.size(), digest.data(), nullptr, EVP_md5(), nullptr);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kDigestBlock));
}

BENCHMARK(base64_product);
BENCHMARK(base64_modp);
BENCHMARK(base64_openssl);
BENCHMARK(base64_pair_table);
BENCHMARK(base64_memcpy);
BENCHMARK(japanese_product);
BENCHMARK(japanese_iconv);
BENCHMARK(md5_product);
BENCHMARK(md5_openssl);

}  // namespace

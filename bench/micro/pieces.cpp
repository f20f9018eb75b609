// pieces.cpp - cutting a composed message into pieces, and reading replies, beside the bare calls.
#include <benchmark/benchmark.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string_view>

#include "micro.hpp"
#include "mime.h"
#include "smtp.h"

namespace {

constexpr int kPieceKib = 64;
constexpr std::size_t kPiece = kPieceKib * 1024;
constexpr std::size_t kMessage = 10 * 1024 * 1024;

int message_file() {
    const std::string text =
        "Content-Type: multipart/mixed\r\n\r\n--bound\r\n\r\ntext\r\n--bound\r\n\r\n";
    const std::string line = std::string(72, 'A') + "\r\n";
    std::string message = text;
    while (message.size() < kMessage) message += line;
    message += "--bound--\r\n";
    const int fd = ::memfd_create("message", 0);
    if (::write(fd, message.data(), message.size()) < 0) std::abort();
    return fd;
}

void pieces_product(benchmark::State& state) {
    const int fd = message_file();
    std::string piece(kPiece, '\0');
    for (auto _ : state) {
        std::uint32_t err = 0;
        ::lseek(fd, 0, SEEK_SET);
        while (SMTP_getSendData(fd, piece.data(), kPieceKib, "bound", &err) > 0) {
        }
    }
    ::close(fd);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kMessage));
}
void pieces_read(benchmark::State& state) {
    const int fd = message_file();
    std::string piece(kPiece, '\0');
    for (auto _ : state) {
        ::lseek(fd, 0, SEEK_SET);
        while (::read(fd, piece.data(), kPiece) > 0) {
        }
    }
    ::close(fd);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kMessage));
}

constexpr std::string_view kReply = "250-sink\r\n250-PIPELINING\r\n250-SIZE 0\r\n250 8BITMIME\r\n";

// `take` reads the reply that has just been sent.
template <class Take>
void replies(benchmark::State& state, Take take) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) std::abort();
    SMTP_SetTimeOut(300);
    SMTP_SetStartTime();
    for (auto _ : state) {
        if (::send(ends[0], kReply.data(), kReply.size(), 0) < 0) std::abort();
        take(ends[1]);
    }
    ::close(ends[0]);
    ::close(ends[1]);
}
void reply_product(benchmark::State& state) {
    replies(state, [](int fd) {
        char line[1029];
        std::uint32_t err = 0;
        SMTP_returnMessage(fd, line, 1028, &err);
        benchmark::DoNotOptimize(line);
    });
}
// The least a client can do: take all that is there, and look for the last line.
void reply_recv(benchmark::State& state) {
    replies(state, [](int fd) {
        char text[1024];
        const ssize_t got = ::recv(fd, text, sizeof text, 0);
        benchmark::DoNotOptimize(::memrchr(text, '\n', static_cast<std::size_t>(got) - 1));
    });
}

BENCHMARK(pieces_product);
BENCHMARK(pieces_read);
BENCHMARK(reply_product);
BENCHMARK(reply_recv);

}  // namespace

BENCHMARK_MAIN();

// compose.cpp - see compose.hpp. Encodes with modp_b64, the fastest of the packaged encoders, so
// that no client is slowed down by its composer.
#include "compose.hpp"

#include <modp_b64.h>
#include <sys/mman.h>

#include <ctime>
#include <fstream>
#include <stdexcept>

namespace bench {
namespace {

constexpr std::string_view kBoundary = "=_bench_boundary";
constexpr std::size_t kLineBytes = 54;  // 72 characters
constexpr std::size_t kBlock = kLineBytes * 1024;

std::string doubled_dots(const std::string& lines) {
    std::string out;
    char before = '\n';
    for (const char byte : lines) {
        if (byte == '.' && before == '\n') out += '.';
        out += byte;
        before = byte;
    }
    return out;
}

std::string header(const Mail& mail) {
    return date_field() + "\r\nFrom: " + mail.sender + "\r\nTo: " + mail.recipients +
           "\r\nSubject: " + mail.subject + "\r\nMessage-Id: <" + std::to_string(::time(nullptr)) +
           "@bench.test>\r\nMIME-Version: 1.0\r\n";
}

void put_attachment(const Mail& mail, const std::function<void(std::string_view)>& put) {
    std::ifstream in(mail.attachment, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + mail.attachment);
    std::string block(kBlock, '\0');
    std::string lines;
    while (in.read(block.data(), kBlock), in.gcount() > 0) {
        const auto got = static_cast<std::size_t>(in.gcount());
        lines.resize((got / kLineBytes + 1) * (kLineBytes / 3 * 4 + 2) + 8);
        char* out = lines.data();
        for (std::size_t at = 0; at < got; at += kLineBytes) {
            out += modp_b64_encode(out, block.data() + at, std::min(kLineBytes, got - at));
            *out++ = '\r';
            *out++ = '\n';
        }
        put({lines.data(), static_cast<std::size_t>(out - lines.data())});
    }
}

}  // namespace

void compose(const Mail& mail, bool double_dots, const std::function<void(std::string_view)>& put) {
    const std::string body = mail.wire_body();
    const std::string text = double_dots ? doubled_dots(body) : body;
    const std::string type = std::string("Content-Type: text/plain; charset=") + mail.charset() +
                             "\r\nContent-Transfer-Encoding: 7bit\r\n\r\n";
    if (mail.attachment.empty()) return put(header(mail) + type + text);
    const std::string delimiter = "\r\n--" + std::string(kBoundary);
    put(header(mail) + "Content-Type: multipart/mixed; boundary=\"" + std::string(kBoundary) +
        "\"\r\n" + delimiter + "\r\n" + type + text + delimiter +
        "\r\nContent-Type: application/octet-stream\r\n"
        "Content-Disposition: attachment; filename=attachment.bin\r\n"
        "Content-Transfer-Encoding: base64\r\n\r\n");
    put_attachment(mail, put);
    put(delimiter + "--\r\n");
}

std::FILE* compose_file(const Mail& mail) {
    std::FILE* const file = ::fdopen(::memfd_create("mail", 0), "w+");
    compose(mail, false,
            [&](std::string_view piece) { std::fwrite(piece.data(), 1, piece.size(), file); });
    std::rewind(file);
    return file;
}

std::string compose(const Mail& mail) {
    std::string message;
    compose(mail, true, [&](std::string_view piece) { message += piece; });
    return message;
}

}  // namespace bench

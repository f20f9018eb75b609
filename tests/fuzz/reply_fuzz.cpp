// reply_fuzz.cpp - whatever an SMTP or POP3 server says. The first byte chooses the conversation,
// the rest is all that the server will ever send. Where no password is involved, a reader that
// takes byte after byte and knows nothing else tells what the result must be.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "fuzz.hpp"
#include "pop3.h"
#include "smtp.h"

namespace {

using fuzz::demand;

constexpr std::size_t kLine = 1028;
enum : std::int32_t { kNone = 2, kRefused = 3, kLost = -4 };

// The lines of the server, one after the other.
class Lines {
public:
    Lines(std::string_view bytes, std::string_view end, std::size_t limit)
        : rest_(bytes), end_(end), limit_(limit) {}

    // False when the server ends within the line.
    bool next() {
        std::size_t size = rest_.substr(0, limit_).find(end_);
        size = size != std::string_view::npos ? size + end_.size() : limit_;
        if (size > rest_.size()) return false;
        line = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return true;
    }
    [[nodiscard]] bool goes_on() const { return line.size() > 3 && line[3] == '-'; }
    [[nodiscard]] bool is(char digit) const { return line.starts_with(digit); }
    // The last line of a reply.
    bool reply() {
        do {
            if (!next()) return false;
        } while (goes_on());
        return true;
    }

    std::string_view line;

private:
    std::string_view rest_, end_;
    std::size_t limit_;
};

// The answer to a step: 0, `refused`, or that the connection was lost.
std::int32_t judge(Lines& lines, char wanted, std::int32_t refused) {
    if (!lines.reply()) return kLost;
    return lines.is(wanted) ? 0 : refused;
}

std::int32_t judge_initialize(Lines& lines) {
    if (const auto greeting = judge(lines, '2', -26); greeting != 0) return greeting;
    bool refused = false;
    do {
        if (!lines.next()) return kLost;
        refused = refused || !lines.is('2');
    } while (lines.goes_on());
    return refused ? judge(lines, '2', -21) : 0;
}

void read_reply(int sock, Lines lines) {
    std::array<char, kLine> reply;
    reply.fill('u');
    std::uint32_t err = 1;
    const bool whole = lines.reply();
    demand(SMTP_returnMessage(sock, reply.data(), kLine, &err) == (whole ? 0 : kLost), "reply");
    if (!whole) return;
    demand(err == 0, "no error");
    demand(std::equal(lines.line.begin(), lines.line.end(), reply.begin()), "the last line");
    demand(std::all_of(reply.begin() + static_cast<std::ptrdiff_t>(lines.line.size()), reply.end(),
                       [](char c) { return c == '\0'; }),
           "clear behind it");
}

// The last reply as the caller of a send gets it.
void check_detail(std::string_view line) {
    std::array<char, 256> detail;
    detail.fill('u');
    SMTP_GetSmtpSvResponce(detail.data());
    const std::string_view text = line.substr(0, std::min<std::size_t>(line.find('\0'), 255));
    demand(std::string_view(detail.data()) == text, "the detail is the reply");
}

void transaction(int sock, Lines lines) {
    std::uint32_t err = 0;
    const auto expect = [&](std::int32_t rc, std::int32_t wanted) {
        demand(rc == wanted, "result of a command");
        if (rc != kLost) check_detail(lines.line);
        return rc == 0;
    };
    std::int32_t wanted = judge(lines, '2', -22);
    for (int recipient = 0; recipient < 2 && wanted == 0; ++recipient)
        wanted = judge(lines, '2', -23);
    if (!expect(SMTP_MAIL(sock, "a@b", "c@d,e@f", &err), wanted)) return;
    if (!expect(SMTP_startData(sock, &err), judge(lines, '3', -24))) return;
    if (!expect(SMTP_endData(sock, &err), judge(lines, '2', -25))) return;
    if (!expect(SMTP_RSET(sock, &err), judge(lines, '2', -27))) return;
    demand(SMTP_QUIT(sock, &err) == 0, "QUIT is content");
}

void initialize(int sock, Lines lines) {
    std::uint32_t err = 0;
    demand(SMTP_initialize(sock, nullptr, &err) == judge_initialize(lines), "greeting and EHLO");
}

void authenticate(int sock) {
    MailAuthAccount account{7, "user", "secret"};
    const MailEntry auth{MAIL_AUTH_SMTP, 0, &account};
    constexpr std::int32_t kResults[] = {0, kNone, kRefused, kLost, -21, -26};
    std::uint32_t err = 0;
    const std::int32_t rc = SMTP_initialize(sock, &auth, &err);
    demand(std::ranges::find(kResults, rc) != std::end(kResults), "result of AUTH");
}

void pop(int sock, std::string_view said) {
    Lines lines(said, "\n", kLine - 1);
    std::array<char, 256> text;
    std::uint32_t err = 0;
    const auto judged = [&](std::int32_t refused) {
        if (!lines.next()) return -1;
        return lines.line.size() > 3 && lines.line.starts_with("+OK") ? 0 : refused;
    };
    const auto expect = [&](std::int32_t rc, std::int32_t wanted) {
        demand(rc == wanted, "result of a POP step");
        const std::string_view shown = lines.line.substr(0, lines.line.find('\0')).substr(0, 255);
        demand(text.data() == (wanted < -1 ? shown : ""), "error text");
        return rc == 0;
    };
    std::int32_t wanted = 0;
    for (const std::int32_t refused : {-2, -3, -4})
        if (wanted == 0) wanted = judged(refused);
    if (!expect(Pop3_Login(sock, "user", "secret", text.data(), &err, nullptr), wanted)) return;
    if (!expect(Pop3_STAT(sock, text.data(), &err, nullptr), judged(-5))) return;
    expect(Pop3_Logout(sock, text.data(), &err, nullptr), judged(-8));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > 65536) return 0;
    const std::string_view said = fuzz::text(data + 1, size - 1);
    std::array<int, 2> ends{};
    demand(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "sockets");
    demand(::send(ends[1], said.data(), said.size(), 0) == static_cast<ssize_t>(said.size()),
           "room for the input");
    ::shutdown(ends[1], SHUT_WR);
    const Lines lines(said, "\r\n", kLine);
    SMTP_SetTimeOut(300);
    SMTP_SetStartTime();
    switch (data[0] % 5) {
        case 0:
            read_reply(ends[0], lines);
            break;
        case 1:
            initialize(ends[0], lines);
            break;
        case 2:
            authenticate(ends[0]);
            break;
        case 3:
            transaction(ends[0], lines);
            break;
        default:
            pop(ends[0], said);
    }
    ::close(ends[0]);
    ::close(ends[1]);
    return 0;
}

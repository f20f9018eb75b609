// Composition: header block, text part, attachments, what fails; the pieces that the file is cut
// into, and the header of a piece.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>
#include <vector>

#include "mime.h"
#include "mime/identity.hpp"
#include "smtp.h"
#include "support/fault.hpp"
#include "support/support.hpp"

namespace {

using std::string;
using support::times;

const string kDate = "Date: Sat, 14 Feb 2009 08:31:30 +0900\r\n";
const string kIds =
    "Message-Id: <20090214083130.499602d2112347f0100@node.example>\r\nMIME-Version: 1.0\r\n";

struct Case {
    const char* name;
    string in;
    string wanted;
};

// A composition file of its own, on the host node.example, in Japan.
class Compose : public testing::Test {
protected:
    Compose() {
        calls_.node = "node.example";
        set_clock("JST-9", 1234567890);
    }
    ~Compose() override { ::close(fd_); }
    void set_clock(const char* zone, std::time_t now) {
        ::setenv("TZ", zone, 1);
        ::tzset();
        calls_.now = now;
    }

    string save(const string& name, const string& bytes) const {
        support::write_file(dir_.file(name), bytes);
        return dir_.file(name);
    }
    // The file holds these bytes from `at` on, where its position is.
    void restart(const string& bytes = "", off64_t at = 0) {
        save("composed", "");
        calls_.next.clear();
        fault::clear();
        EXPECT_EQ(::pwrite64(fd_, bytes.data(), bytes.size(), at), std::ssize(bytes));
        EXPECT_EQ(::lseek64(fd_, at, SEEK_SET), at);
    }
    [[nodiscard]] string composed() const { return support::read_file(dir_.file("composed")); }
    std::int32_t make_top(const string& body, char* boundary = nullptr) {
        const string path = save("body", body);
        return SMTP_makeTopData(fd_, path.c_str(), "", "", "", boundary, boundary != nullptr, 1,
                                &(err_ = 0));
    }
    // What the text part makes of a body: charset, its quote, an empty line, the text.
    string text_part(const string& body, int longest_read = 1 << 20) {
        restart();
        calls_.plan("read", 1000, {longest_read});
        EXPECT_EQ(make_top(body), 0);
        const string all = composed();
        return all.substr(all.find("charset=\"") + 9);
    }

    support::TempDir dir_;
    int fd_ = ::open(dir_.file("composed").c_str(), O_RDWR | O_CREAT | O_LARGEFILE, 0600);
    std::uint32_t err_ = 0;
    fault::Faults calls_;
};

string attachment_head(const string& name, const string& form = "attachment;\r\n\tfilename=") {
    return "\r\nContent-Type: application/octet-stream; name=\"" + name +
           "\"\r\nContent-Transfer-Encoding: base64\r\nContent-Disposition: " + form + "\"" + name +
           "\"\r\n\r\n";
}

TEST_F(Compose, HeaderWithoutAddressesBodyOrMime) {
    ASSERT_EQ(SMTP_makeTopData(fd_, nullptr, "a@x", "b@y", nullptr, nullptr, 2, 1, nullptr), 0);
    EXPECT_EQ(composed(), "Subject: \r\n" + kIds);
    // Written from the start of the file whatever the position; a comma at the end adds a line.
    ASSERT_EQ(SMTP_makeMIME(fd_, "a@x", "b@y, c@z,", "S", nullptr), 0);
    EXPECT_EQ(composed(), kDate + "From: a@x\r\nTo: b@y,\r\n     c@z,\r\n    \r\nSubject: S\r\n" +
                              kIds.substr(0, kIds.find("MIME")));
}

TEST_F(Compose, TextPart) {
    const string x1023 = times(1023, "x");
    const string a = "\x82\xA0";
    const string jis_a = "\x1b$B$\"\x1b(J";
    const Case ascii[] = {
        {"empty", "", "\r\n"},
        {"katakana alone", "\xB1\xDF\r\n", "\xB1\xDF\r\n\r\n"},
        {"lone CR and LF end nothing", "a\n.b\r.c\r\n", "a\n..b\r..c\r\n\r\n"},
        {"1,022 and CR LF", times(1022, "x") + "\r\ny", times(1022, "x") + "\r\ny\r\n"},
        {"1,024 and CR LF", x1023 + "x\r\ny", x1023 + "x\r\n\r\ny\r\n"},
        {"CR is byte 1,024", x1023 + "\r\n.\r\n", x1023 + "\r\n..\r\n\r\n"},
        {"lone CR is byte 1,024", x1023 + "\r.", x1023 + "\r\r\n..\r\n"},
        {"dot behind the break", x1023 + "x.y", x1023 + "x\r\n..y\r\n"},
    };
    for (const auto& c : ascii)
        EXPECT_EQ(text_part(c.in), "us-ascii\"\r\n\r\n" + c.wanted) << c.name;
    const Case japanese[] = {
        {"dots", ".\r\n." + a + "\r\n", "..\r\n.." + jis_a + "\r\n\r\n"},
        {"invalid pair ends its line", "a\x82 b\r\nc\r\n", "a\x1b$Bc\r\n\r\n"},
        {"pair across the limit", x1023 + a + "y", x1023 + jis_a + "\r\ny\r\n"},
        {"pair up to it", times(1022, "x") + a + "y", times(1022, "x") + jis_a + "\r\ny\r\n"},
        {"trail byte like a lead byte", times(1022, "x") + "\x82\x9F" + "y",
         times(1022, "x") + "\x1b$B$!\x1b(J\r\ny\r\n"},
        {"CR is byte 1,024 behind a pair", times(1021, "x") + a + "\r\n.",
         times(1021, "x") + jis_a + "\r\n..\r\n"},
        {"lead byte at the limit before CR LF", x1023 + "\x82\r\n.", x1023 + "\x82\r\n..\r\n"},
        {"lead bytes before CR LF", a + "\x82\r\n\x82\r\n", jis_a + "\x82\r\n\x82\r\n\r\n"},
        {"CR as trail byte", a + "\r.\x82\r.\r\ny", jis_a + "\r..\x1b$By\r\n"},
        {"lead byte ends the file", x1023 + "\x82", x1023 + "\r\n"},
        {"chunks of 1,028 end at their zero byte", string("a\0", 2) + times(1026, "\x82") + a,
         "a\x1b$B#b#b$\"\x1b(J\r\n"},
    };
    for (const auto& c : japanese)
        EXPECT_EQ(text_part(c.in), "ISO-2022-JP\"\r\n\r\n" + c.wanted) << c.name;
    const string line = "." + a + "0123456789\r\n";  // short reads are no end of the file
    EXPECT_EQ(text_part(times(20'000, line), 999),
              "ISO-2022-JP\"\r\n\r\n" + times(20'000, ".." + jis_a + "0123456789\r\n") + "\r\n");
}

TEST_F(Compose, BoundaryDoesNotOccurInTheText) {
    const string mark = "---------------OvWexl12345678";
    const Case cases[] = {
        {"free", "text\r\n", "90"},
        {"taken", "--" + mark + "92\r\n--" + mark + "90--\r\n--" + mark + "91\r\n", "93"},
        {"far down", times(131052, "x") + mark + "90" + times(200'000, "y"), "91"},
        {"a part of it", times(400'000, "0") + mark + "9", "90"},
    };
    for (const auto& c : cases) {
        std::array<char, 40> boundary{};
        restart();
        ASSERT_EQ(make_top(c.in, boundary.data()), 0);
        EXPECT_EQ(boundary.data(), mark + c.wanted) << c.name;
        const string all = composed();
        EXPECT_EQ(all.find("\r\n--" + mark + c.wanted + "\r\n"), all.find("\r\n\r\n") + 2);
    }
}

TEST_F(Compose, AttachmentNamesAndLines) {
    ASSERT_EQ(::chdir(dir_.path().c_str()), 0);
    for (const string path : {"x.dat", "C:x.dat", "./x.dat", ":yx.dat", "a\r\n.\nb"}) {
        const string name = path[0] == ':' ? path : path[0] == 'a' ? "a  . b" : "x.dat";
        save(path, "");
        for (Content_D_flg = 0; Content_D_flg <= 1; ++Content_D_flg) {
            restart();
            ASSERT_EQ(SMTP_makeAppendData(fd_, path.c_str(), "B", 1, nullptr), 0);
            EXPECT_EQ(composed(), "\r\n--B" + (Content_D_flg == 1 ? attachment_head(name, "")
                                                                  : attachment_head(name)));
        }
    }
    Content_D_flg = 0;
    for (const std::size_t size : {51U, 102U, 51U * 20'000 + 1}) {
        restart();
        const string path = save("x", string(size, '\0'));
        ASSERT_EQ(SMTP_makeAppendData(fd_, path.c_str(), "B", 0, nullptr), 0);
        EXPECT_TRUE(composed() == "\r\n--B" + attachment_head("x") +
                                      times(size / 51, times(68, "A") + "\r\n") +
                                      (size % 51 == 1 ? "AA==\r\n" : "") + "--B--\r\n")
            << size;
    }
}

TEST_F(Compose, TargetFileLines) {
    const Case cases[] = {
        {"empty", "", ""},
        {"LF, CR stays", "a\n\n.b\r\n", "a\r\n\r\n.b\r\r\n"},
        {"1,026 bytes", times(1026, "x") + "\n", times(1026, "x") + "\r\n"},
        {"1,027 bytes", times(1027, "x") + "\n", times(1027, "x") + "\r\n\r\n"},
        {"1,028 bytes", times(1028, "x") + "\n", times(1027, "x") + "\r\nx\r\n"},
        {"zero byte ends the text", string("a\0b\nc\n", 6), "a\r\nc\r\n"},
        {"long", times(40'000, "0123456789\n"), times(40'000, "0123456789\r\n")},
    };
    for (const auto& c : cases) {
        restart();
        EXPECT_EQ(SMTP_makeAppend_TargetFile(fd_, save("t", c.in).c_str(), &err_), 0);
        EXPECT_EQ(composed(), c.wanted) << c.name;
    }
    const string fifo = dir_.file("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);  // neither waited for nor sent as an empty file
    for (const string& path : {dir_.path(), fifo, string("/dev/null")}) {
        const bool opens = path == dir_.path();
        EXPECT_EQ(SMTP_makeAppend_TargetFile(fd_, path.c_str(), &(err_ = 0)), -31);
        EXPECT_EQ(err_, static_cast<unsigned>(opens ? EISDIR : EINVAL));
        EXPECT_EQ(SMTP_makeAppendData(fd_, path.c_str(), "B", 0, &(err_ = 0)), opens ? -32 : -31);
        EXPECT_EQ(err_, static_cast<unsigned>(opens ? EISDIR : EINVAL));
    }
}

TEST_F(Compose, DatesByZone) {
    const std::pair<const char*, const char*> cases[] = {
        {"UTC0", "-0000"},
        {"JST-9", "+0900"},
        {"IST-5:30", "+0500"},
        {"NST3:30", "-0300"},
        {"CET-1CEST,M3.5.0,M10.5.0/3", "+0100"},  // also in summer, beside the clock of summer
    };
    for (const auto& [zone, offset] : cases) {
        for (int step = 0; step < 14; ++step) {  // 27 days each: every month and day of the week
            set_clock(zone, 1'234'567'890 + step * 27 * 86400);
            std::array<char, 32> date{}, wanted{};
            std::strftime(wanted.data(), 32, "%a, %d %b %Y %H:%M:%S ", std::localtime(&calls_.now));
            EXPECT_EQ(SMTP_makeDate(date.data()), 31);
            EXPECT_EQ(date.data(), wanted.data() + string(offset));
        }
    }
}

TEST_F(Compose, HostNames) {
    const Case cases[] = {
        {"a.b", "domain d\n", "a.b"},
        {"host", "search s\ndomain d.example e\ndomain f\n", "host.d.example"},
        {"host", "domain\td\r\n", "host.d"},
        {"host", " domain d\n#domain e\n", "host"},
        {"host", "domainname x\ndomain d", "host.d"},
        {"host", "domain\ndomain d\n", "host."},
    };
    std::array<char, ovrmail::mime::kHostSize> name{};
    for (const auto& c : cases) {
        calls_.node = c.name;
        calls_.resolv_conf = save("resolv.conf", c.in);
        ovrmail::mime::find_host_name(name);
        EXPECT_EQ(name.data(), c.wanted) << c.in;
    }
    std::array<char, 200> id{};
    for (const char* node : {"node.example", "node"}) {
        calls_.node = node;
        EXPECT_EQ(SMTP_makeid(id.data(), "a@b@c"), 34);
        EXPECT_STREQ(id.data(), "wexlb499602d211234node7f0100@a.b.c");
    }
}

// To, in more lines and longer ones than are collected at once.
TEST_F(Compose, PieceIsSentBehindItsHeader) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    const int room = 1 << 20;
    ::setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    const string to = times(500, ",") + times(200'000, "x");
    EXPECT_EQ(SMTP_sendData_Partial(ends[0], "piece\r\n", 7, "a@x", to.c_str(), "\x82\xA0", 2, 13,
                                    "ID", &err_),
              0);
    ::close(ends[0]);
    string all(room, '\0');
    all.resize(static_cast<std::size_t>(::recv(ends[1], all.data(), all.size(), MSG_WAITALL)));
    ::close(ends[1]);
    EXPECT_EQ(all, kDate + "From: a@x\r\nTo: ,\r\n" + times(499, "    ,\r\n") + "    " +
                       times(200'000, "x") +
                       "\r\nSubject: =?ISO-2022-JP?B?GyRCJCIbKEo=?= [2/13]\r\n" + kIds +
                       "Content-Type: message/partial; number=2; total=13;\r\n\tid=\"ID\"\r\n\r\n" +
                       "piece\r\n");
    EXPECT_EQ(SMTP_sendData_Partial(-1, "p", 1, "a", "b", "", 1, 1, "ID", &err_), -3);
    EXPECT_EQ(err_, static_cast<unsigned>(EBADF));
}

const char* const kBoundary = "---------------OvWexl1234567890";
const string kDelimiter = string("--") + kBoundary + "\r\n";
const string kHead = kDelimiter + "Content-Type: text/plain\r\nX: y\r\n";

// `size` bytes of lines, the last one as long as it must be (2 bytes at least).
string lines(std::size_t size) {
    const std::size_t whole = size > 2 ? (size - 2) / 64 : 0;
    return times(whole, times(62, "x") + "\r\n") + times(size - 2 - whole * 64, "y") + "\r\n";
}

class Pieces : public Compose {
protected:
    // Cuts a file, beyond what an offset of 32 bits can tell, and checks what holds for every
    // piece: a NUL follows where its buffer has room, but nothing that was read, and nothing is
    // written behind the buffer; together they are the file.
    std::vector<string> cut(const string& text, int size_kb, int longest_read = 1 << 20) {
        restart(text, 0x7FFFFC00);
        calls_.plan("read", 1000, {longest_read});
        std::vector<string> pieces;
        const std::size_t room = static_cast<std::size_t>(size_kb) * 1024;
        string all;
        for (std::size_t size = 1; size > 0; all += pieces.back()) {
            string buffer = times(room, "#") + "guard";
            const int got = SMTP_getSendData(fd_, buffer.data(), size_kb, kBoundary, &err_);
            size = static_cast<std::size_t>(std::max(got, 0));
            pieces.push_back(buffer.substr(0, size));
            buffer.erase(0, size);
            const std::size_t zeros = buffer.find_first_not_of('\0');
            EXPECT_EQ(buffer.substr(zeros), times(room - size - zeros, "#") + "guard");
            EXPECT_TRUE(zeros != 0 || size == room);
        }
        EXPECT_TRUE(all == text);
        return pieces;
    }
};

// Pieces of 2 KiB: 1,024 bytes are read, and 1,024 are left to grow.
TEST_F(Pieces, WhereTheFirstOneEnds) {
    const string end = string("--") + kBoundary + "--\r\n";
    const Case cases[] = {
        // the piece, and what follows it
        {"shorter than a piece", "abc\r\ndef", ""},
        {"exactly the size", lines(1024), lines(64)},
        {"ends with the line", lines(1000) + times(60, "z") + "\r\n", lines(100)},
        {"CR and LF on both sides of the size", lines(1025), lines(100)},
        {"no line end behind the size", lines(1000) + times(60, "z"), ""},
        {"a line too long stays whole for the next piece", lines(960), times(2000, "z") + "\r\n"},
        {"a line just fits", lines(960) + times(1086, "z") + "\r\n", lines(100)},
        {"a line ends with piece and file", lines(960) + times(1088, "z"), ""},
        {"a header ends with piece and file", lines(1000) + kHead + times(1048 - kHead.size(), "z"),
         ""},
        {"a line longer than a piece is cut", times(2048, "z"), "z\r\n" + lines(100)},
        {"not before a dot", times(2046, "z"), "z..\r\nMAIL\r\n" + lines(100)},
        {"not inside CR LF", times(2046, "z"), "z\r\n" + lines(100)},
        {"two dots where there is nothing else", times(2046, "."), "...\r\n" + lines(100)},
        {"cut on the delimiter", lines(1000) + kHead + "\r\nfirst\r\n", lines(2000)},
        {"cut in the header", lines(950) + kHead + "\r\nfirst\r\n", lines(2000)},
        {"cut behind the fields", lines(1024 - kHead.size()) + kHead + "\r\nfirst\r\n",
         lines(2000)},
        {"the blank line behind the header is not counted: to the next one",
         lines(1022 - kHead.size()) + kHead + "\r\nfirst\r\nsecond\r\n\r\nthird\r\n", lines(2000)},
        {"a later blank line at the end: one line more",
         lines(1013 - kHead.size()) + kHead + "\r\nfirst\r\n\r\nsecond\r\n", lines(2000)},
        {"two blank lines behind the header",
         lines(1011 - kHead.size()) + kHead + "\r\nfirst\r\n\r\n\r\n", lines(2000)},
        {"header complete, ends in text", lines(900) + kHead + "\r\n" + lines(64), lines(2000)},
        {"closing delimiter", lines(900) + end + lines(128), lines(2000)},
        {"closing delimiter at the end", lines(1000) + end, ""},
        {"delimiter in the first line is not seen", kDelimiter + lines(1024 - kDelimiter.size()),
         "X: y\r\n\r\n" + lines(100)},
        {"header too long for the room", lines(1000) + kHead + lines(948), lines(300) + "\r\n"},
    };
    for (const auto& c : cases) EXPECT_EQ(cut(c.in + c.wanted, 2)[0], c.in) << c.name;
}

// A part whose delimiter lies at every offset around the cut.
TEST_F(Pieces, NoneEndsInAHeaderThatFits) {
    const string header = kHead + "\r\n";
    for (std::size_t offset = 2900; offset < 3150; ++offset) {
        const string text = lines(offset) + header + lines(5000) + "\r\n" + header + lines(300) +
                            "--" + kBoundary + "--\r\n";
        std::size_t end = 0;
        for (const string& piece : cut(text, 4, 1 + static_cast<int>(offset % 3 * 450))) {
            end += piece.size();
            const std::size_t start = text.rfind(kDelimiter, end - 1);
            EXPECT_TRUE(start >= end || end > start + header.size()) << offset;
        }
    }
}

TEST_F(Pieces, FailingCallsHaveTheirResults) {
    const string body = times(30'000, ".23456789\r\n");
    const string text = lines(1000) + kHead + "\r\nfirst\r\n" + lines(2000);
    string buffer(2048, '\0');
    const struct {
        const char* call;
        unsigned error;
        std::int32_t composing, cutting;
    } cases[] = {
        {"read", EIO, -32, -32},
        {"write", EFBIG, -33, 0},
        {"lseek", ESPIPE, -33, 0},
        {"lseek64", ESPIPE, 0, -32},
    };
    for (const auto& [call, error, composing, cutting] : cases) {
        for (const int skip : {0, 1}) {  // of pieces: reading them, reading the lines behind them
            restart(text);
            const fault::Watch watch;
            fault::fail_on(call, "", static_cast<int>(error), skip);
            const auto size = SMTP_getSendData(fd_, buffer.data(), 2, kBoundary, &(err_ = 0));
            EXPECT_EQ(std::min(size, 0), cutting) << call;
            EXPECT_EQ(err_, cutting != 0 ? error : 0) << call;
            fault::fail_on(call, "", static_cast<int>(error), skip);
            EXPECT_EQ(make_top(body), composing) << call;
            EXPECT_EQ(err_, composing != 0 ? error : 0) << call;
        }
    }
    restart();
    calls_.plan("write", 1, {1000});
    EXPECT_EQ(make_top(body), -33);
    EXPECT_EQ(err_, static_cast<unsigned>(ENOSPC));
    EXPECT_EQ(SMTP_makeTopData(fd_, "/no/body", "a", "b", "S", nullptr, 0, 0, &err_), -31);
    EXPECT_EQ(err_, static_cast<unsigned>(ENOENT));
    EXPECT_EQ(SMTP_makeAppendData(fd_, "/no/file", "B", 0, nullptr), -31);
    EXPECT_EQ(SMTP_makeAppend_TargetFile(fd_, nullptr, nullptr), -31);
    for (const auto result :
         {SMTP_getSendData(fd_, buffer.data(), 0, "", &err_),
          SMTP_getSendData(fd_, nullptr, 2, "", nullptr), SMTP_addline(fd_, nullptr, 0, &err_)})
        EXPECT_EQ(result, -32);
}

TEST_F(Pieces, LinesBackward) {
    const string text = "first\r\n\r\nlong line\r\nlast\r\n";
    const std::pair<int, const char*> cases[] = {
        {1024, "last\r|long line\r\n|\r\n|first\r\n|"},
        {5, "ast\r|l|ne\r\n|g li|lon|\r\n|st\r\n|fir|"},
    };
    for (const auto& [max, wanted] : cases) {
        string found;
        string line(static_cast<std::size_t>(max), '#');
        for (int end = static_cast<int>(text.size()); end > 1; found += line.c_str() + string("|"))
            end = SMTP_getline(text.data(), end, line.data(), max);
        EXPECT_EQ(found, wanted) << max;
    }
}

TEST_F(Pieces, LinesForward) {
    const struct {
        char previous;
        int blank_lines;
        string wanted, rest;
    } cases[] = {
        {'x', 0, "a\nb\r\n", "c\r\n"},
        {'x', 0, "a", ""},
        {'x', 1, "a\r\n\r\nb\r\n", "c\r\n"},
        {'\n', 1, "\r\nb\r\n", "c\r\n"},          // blank across the start
        {'x', 1, "\r\na\r\n\r\nb\r\n", "c\r\n"},  // not blank
        {'\n', 2, "\r\na\r\n\r\nb\r\n", "c\r\n"},
        {'x', 0, times(1022, "x") + "\r\n", "b\r\n"},
        {'x', 0, times(1024, "x"), "x\r\n"},       // too long for the room: cut
        {'x', 1, "a\r\n" + times(1021, "x"), ""},  // the room is all there is
        {'x', 1, lines(960), times(78, "x") + "\r\n\r\n"},
    };
    for (const auto& c : cases) {
        restart(c.wanted + c.rest);
        string buffer = c.previous + times(1024, "#") + "guard";
        const int size = SMTP_addline(fd_, buffer.data() + 1, c.blank_lines, &err_);
        EXPECT_EQ(buffer, c.previous + c.wanted + times(1024 - c.wanted.size(), "#") + "guard");
        EXPECT_EQ(size, std::ssize(c.wanted));
        EXPECT_EQ(::lseek(fd_, 0, SEEK_CUR), size);
    }
}

}  // namespace

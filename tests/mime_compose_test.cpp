// Composition: header block, text part, attachments, what fails; and the header of a piece.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string>

#include "mime.h"
#include "mime/identity.hpp"
#include "mime_support.hpp"
#include "smtp.h"

namespace {

using std::string;

const string kDate = "Date: Fri, 13 Feb 2009 23:31:30 -0000\r\n";
const string kIds =
    "Message-Id: <20090213233130.499602d212347f0100@node.example>\r\nMIME-Version: 1.0\r\n";

class Compose : public MimeTest {
protected:
    // What the text part makes of a body: charset, its quote, an empty line, the text.
    string text_part(const string& body) {
        restart();
        const string path = save("body", body);
        EXPECT_EQ(SMTP_makeTopData(fd_, path.c_str(), "", "", "", nullptr, 0, 1, &err_), 0);
        const string all = composed();
        return all.substr(all.find("charset=\"") + 9);
    }
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
        {"1,024 at the end", x1023 + "x", x1023 + "x\r\n\r\n"},
        {"dot behind the break", x1023 + "x.y", x1023 + "x\r\n..y\r\n"},
    };
    for (const auto& c : ascii)
        EXPECT_EQ(text_part(c.in), "us-ascii\"\r\n\r\n" + c.wanted) << c.name;
    const Case japanese[] = {
        {"lead byte", a, jis_a + "\r\n"},
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
    fake::libc.read_max = 999;  // short reads are no end of the file
    const string line = "." + a + "0123456789\r\n";
    EXPECT_EQ(text_part(times(20'000, line)),
              "ISO-2022-JP\"\r\n\r\n" + times(20'000, ".." + jis_a + "0123456789\r\n") + "\r\n");
}

TEST_F(Compose, BoundaryDoesNotOccurInTheText) {
    const string mark = "---------------OvWexl12345678";
    const struct {
        string body;
        const char* wanted;  // the last two digits
    } cases[] = {
        {"text\r\n", "90"},
        {"--" + mark + "92\r\n--" + mark + "90--\r\n--" + mark + "91\r\n", "93"},
        {string(128 * 1024 - 20, 'x') + mark + "90" + string(200'000, 'y'), "91"},
        {times(40'000, "0123456789") + mark + "9", "90"},
    };
    for (const auto& c : cases) {
        std::array<char, 40> boundary{};
        restart();
        ASSERT_EQ(SMTP_makeTopData(fd_, save("body", c.body).c_str(), "", "", "", boundary.data(),
                                   1, 1, &err_),
                  0);
        EXPECT_EQ(boundary.data(), mark + c.wanted);
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
    for (const std::size_t size : {0U, 51U, 52U, 102U, 51U * 20'000 + 1}) {
        restart();
        ASSERT_EQ(SMTP_makeAppendData(fd_, save("x", string(size, '\0')).c_str(), "B", 0, nullptr),
                  0);
        EXPECT_TRUE(composed() == "\r\n--B" + attachment_head("x") +
                                      times(size / 51, times(68, "A") + "\r\n") +
                                      (size % 51 == 1 ? "AA==\r\n" : "") + "--B--\r\n")
            << size;
    }
}

TEST_F(Compose, TargetFileLines) {
    const Case cases[] = {
        {"empty", "", ""},
        {"LF", "a\n\n.b", "a\r\n\r\n.b\r\n"},
        {"CR stays", "a\r\nb\n", "a\r\r\nb\r\n"},
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
    EXPECT_EQ(SMTP_makeAppend_TargetFile(fd_, dir_.path().c_str(), &err_), -31) << "a directory";
    const string fifo = dir_.file("fifo");
    EXPECT_EQ(err_, static_cast<unsigned>(EISDIR));
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);  // neither waited for nor sent as an empty file
    for (const char* path : {fifo.c_str(), "/dev/null"}) {
        EXPECT_EQ(SMTP_makeAppend_TargetFile(fd_, path, &err_), -31);
        EXPECT_EQ(err_, static_cast<unsigned>(EINVAL));
        EXPECT_EQ(SMTP_makeAppendData(fd_, path, "B", 0, &(err_ = 0)), -31);
        EXPECT_EQ(err_, static_cast<unsigned>(EINVAL));
    }
}

TEST_F(Compose, FailingCallsHaveTheirResults) {
    const string body = save("body", times(30'000, ".23456789\r\n"));
    const int errors[] = {EIO, EFBIG, ENOSPC, ESPIPE};
    for (const fake::Call call : {fake::kRead, fake::kWrite, fake::kShortWrite, fake::kSeek}) {
        fake::libc = {.now = 1};
        fake::libc.fail[call] = 2;
        EXPECT_EQ(SMTP_makeTopData(fd_, body.c_str(), "a", "b", "S", nullptr, 1, 0, &err_),
                  call == fake::kRead ? -32 : -33);
        EXPECT_EQ(err_, static_cast<unsigned>(errors[call]));
    }
    fake::libc = {.now = 1};
    EXPECT_EQ(SMTP_makeTopData(fd_, "/no/body", "a", "b", "S", nullptr, 0, 0, &err_), -31);
    EXPECT_EQ(err_, static_cast<unsigned>(ENOENT));
    EXPECT_EQ(SMTP_makeAppendData(fd_, "/no/file", "B", 0, nullptr), -31);
    EXPECT_EQ(SMTP_makeAppend_TargetFile(fd_, nullptr, nullptr), -31);
}

TEST_F(Compose, DatesByZone) {
    const struct {
        const char* zone;
        std::time_t now;
        const char* wanted;
    } cases[] = {
        {"UTC0", 1, "Thu, 01 Jan 1970 00:00:01 -0000"},
        {"JST-9", 1234567890, "Sat, 14 Feb 2009 08:31:30 +0900"},
        {"IST-5:30", 1234567890, "Sat, 14 Feb 2009 05:01:30 +0500"},
        {"NST3:30", 1234567890, "Fri, 13 Feb 2009 20:01:30 -0300"},
        // In summer the clock is the summer one, the offset that of winter.
        {"CET-1CEST,M3.5.0,M10.5.0/3", 1246000000, "Fri, 26 Jun 2009 09:06:40 +0100"},
    };
    for (const auto& c : cases) {
        ::setenv("TZ", c.zone, 1);
        ::tzset();
        fake::libc.now = c.now;
        std::array<char, 32> date{};
        EXPECT_EQ(SMTP_makeDate(date.data()), 31);
        EXPECT_STREQ(date.data(), c.wanted);
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
        fake::libc.node = c.name;
        fake::libc.resolv_conf = save("resolv.conf", c.in);
        ovrmail::mime::find_host_name(name);
        EXPECT_EQ(name.data(), c.wanted) << c.in;
    }
    std::array<char, 200> id{};
    fake::libc = {.now = 1234567890, .node = "node.example"};
    EXPECT_EQ(SMTP_makeid(id.data(), "a@b@c"), 33);
    EXPECT_STREQ(id.data(), "wexlb499602d21234node7f0100@a.b.c");
    fake::libc.node = "short";
    SMTP_makeid(id.data(), "plain");
    EXPECT_STREQ(id.data(), "wexlb499602d21234short7f0100@plain");
}

// To, in more lines and longer ones than are collected at once.
TEST_F(Compose, PieceIsSentBehindItsHeader) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    const int room = 1 << 20;
    ::setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    const string to = times(500, ",") + string(200'000, 'x');
    EXPECT_EQ(SMTP_sendData_Partial(ends[0], "piece\r\n", 7, "a@x", to.c_str(), "\x82\xA0", 2, 13,
                                    "ID", &err_),
              0);
    ::close(ends[0]);
    string all(room, '\0');
    all.resize(static_cast<std::size_t>(::recv(ends[1], all.data(), all.size(), MSG_WAITALL)));
    ::close(ends[1]);
    EXPECT_EQ(all, kDate + "From: a@x\r\nTo: ,\r\n" + times(499, "    ,\r\n") + "    " +
                       string(200'000, 'x') +
                       "\r\nSubject: =?ISO-2022-JP?B?GyRCJCIbKEo=?= [2/13]\r\n" + kIds +
                       "Content-Type: message/partial; number=2; total=13;\r\n\tid=\"ID\"\r\n\r\n" +
                       "piece\r\n");
    EXPECT_EQ(SMTP_sendData_Partial(-1, "p", 1, "a", "b", "", 1, 1, "ID", &err_), -3);
    EXPECT_EQ(err_, static_cast<unsigned>(EBADF));
}

}  // namespace

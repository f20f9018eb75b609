// Pieces: where they are cut, and that nothing is lost between them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "mime.h"
#include "mime_support.hpp"

namespace {

using std::string;

const char* const kBoundary = "---------------OvWexl1234567890";
const string kDelimiter = string("--") + kBoundary + "\r\n";
const string kFields = "Content-Type: text/plain\r\nX: y\r\n";

// `size` bytes of lines, the last one as long as it must be (2 bytes at least).
string lines(std::size_t size) {
    const std::size_t whole = size > 2 ? (size - 2) / 64 : 0;
    return times(whole, string(62, 'x') + "\r\n") + string(size - 2 - whole * 64, 'y') + "\r\n";
}

class Pieces : public MimeTest {
protected:
    // Cuts a file and checks what holds for every piece: none is larger than its buffer, which is
    // clear behind it, and together they are the file.
    std::vector<string> cut(const string& text, int size_kb, const char* boundary = kBoundary) {
        restart(text);
        std::vector<string> pieces;
        string all;
        const std::size_t room = static_cast<std::size_t>(size_kb) * 1024;
        for (int size = 1; size > 0;) {
            string buffer = string(room, '\0') + "guard";
            size = SMTP_getSendData(fd_, buffer.data(), size_kb, boundary, &err_);
            pieces.push_back(buffer.substr(0, static_cast<std::size_t>(size)));
            all += pieces.back();
            EXPECT_EQ(buffer.substr(pieces.back().size()),
                      string(room - pieces.back().size(), '\0') + "guard");
        }
        EXPECT_TRUE(all == text);
        return pieces;
    }
};

// Pieces of 2 KiB: 1,024 bytes are read, and 1,024 are left to grow.
TEST_F(Pieces, WhereTheFirstOneEnds) {
    const string head = kDelimiter + kFields;
    const Case cases[] = {
        // the piece, and what follows it
        {"shorter than a piece", "abc\r\ndef", ""},
        {"exactly the size", lines(1024), lines(64)},
        {"ends with the line", lines(1000) + string(60, 'z') + "\r\n", lines(100)},
        {"CR and LF on both sides of the size", lines(1025), lines(100)},
        {"no line end behind the size", lines(1000) + string(60, 'z'), ""},
        {"a line too long stays whole for the next piece", lines(960), string(2000, 'z') + "\r\n"},
        {"a line just fits", lines(960) + string(1086, 'z') + "\r\n", lines(100)},
        {"a line ends with piece and file", lines(960) + string(1088, 'z'), ""},
        {"a header ends with piece and file", lines(1000) + head + string(1048 - head.size(), 'z'),
         ""},
        {"a line longer than a piece is cut", string(2048, 'z'), "z\r\n" + lines(100)},
        {"not before a dot", string(2046, 'z'), "z..\r\nMAIL\r\n" + lines(100)},
        {"not inside CR LF", string(2046, 'z'), "z\r\n" + lines(100)},
        {"two dots where there is nothing else", string(2046, '.'), "...\r\n" + lines(100)},
        {"cut on the delimiter", lines(1000) + head + "\r\nfirst\r\n", lines(2000)},
        {"cut in the header", lines(950) + head + "\r\nfirst\r\n", lines(2000)},
        {"cut behind the fields", lines(1024 - head.size()) + head + "\r\nfirst\r\n", lines(2000)},
        {"the blank line behind the header is not counted: to the next one",
         lines(1022 - head.size()) + head + "\r\nfirst\r\nsecond\r\n\r\nthird\r\n", lines(2000)},
        {"a later blank line at the end: one line more",
         lines(1013 - head.size()) + head + "\r\nfirst\r\n\r\n" + "second\r\n", lines(2000)},
        {"two blank lines behind the header",
         lines(1011 - head.size()) + head + "\r\nfirst\r\n\r\n\r\n", lines(2000)},
        {"header complete, ends in text", lines(900) + head + "\r\n" + lines(64), lines(2000)},
        {"closing delimiter", lines(900) + "--" + kBoundary + "--\r\n" + lines(128), lines(2000)},
        {"closing delimiter at the end", lines(1000) + "--" + kBoundary + "--\r\n", ""},
        {"delimiter in the first line is not seen", kDelimiter + lines(1024 - kDelimiter.size()),
         "X: y\r\n\r\n" + lines(100)},
        {"header too long for the room", lines(1000) + head + lines(948), lines(300) + "\r\n"},
    };
    for (const auto& c : cases) EXPECT_EQ(cut(c.in + c.wanted, 2)[0], c.in) << c.name;
}

// A part whose delimiter lies at every offset around the cut.
TEST_F(Pieces, NoneEndsInAHeaderThatFits) {
    for (std::size_t offset = 2 * 1024; offset < 2 * 1024 + 1100; ++offset) {
        const string header = kDelimiter + kFields + "\r\n";
        const string text = lines(offset) + header + lines(5000) + "\r\n" + header + lines(300) +
                            "--" + kBoundary + "--\r\n";
        fake::libc.read_max = offset % 3 == 0 ? 1 + offset % 900 : 0;
        std::size_t end = 0;
        for (const string& piece : cut(text, 4)) {
            end += piece.size();
            const std::size_t start = text.rfind(kDelimiter, end - 1);
            EXPECT_TRUE(start >= end || end > start + header.size()) << offset;
        }
    }
}

// A composition file grows beyond what an offset of 32 bits can tell.
TEST_F(Pieces, BeyondTwoGibibytes) {
    constexpr off64_t kFar = 0x7FFFFC00;
    const string text = lines(1000) + string(60, 'z') + "\r\n" + lines(2000);
    EXPECT_GT(::pwrite64(fd_, text.data(), text.size(), kFar), 0);
    EXPECT_EQ(::lseek64(fd_, kFar, SEEK_SET), kFar);
    string all, buffer(2048, '\0');
    for (int size = 1; size > 0; all.append(buffer, 0, static_cast<std::size_t>(size)))
        size = std::max(SMTP_getSendData(fd_, buffer.data(), 2, kBoundary, &err_), 0);
    EXPECT_EQ(all, text);
}

TEST_F(Pieces, FailuresAreReadErrors) {
    string buffer(2048, '\0');
    for (const int n : {1, 2}) {  // reading the piece, reading the lines behind it
        for (const fake::Call call : {fake::kRead, fake::kSeek}) {
            restart(lines(1000) + kDelimiter + kFields + "\r\nfirst\r\n" + lines(2000));
            fake::libc = {};
            fake::libc.fail[call] = n;
            EXPECT_EQ(SMTP_getSendData(fd_, buffer.data(), 2, kBoundary, &err_), -32);
            EXPECT_EQ(err_, static_cast<unsigned>(call == fake::kRead ? EIO : ESPIPE));
        }
    }
    EXPECT_EQ(SMTP_getSendData(fd_, buffer.data(), 0, "", &err_), -32);
    EXPECT_EQ(SMTP_getSendData(fd_, nullptr, 2, "", nullptr), -32);
}

TEST_F(Pieces, LinesBackward) {
    const string text = "first\r\n\r\nlong line\r\nlast\r\n";
    const Case cases[] = {{"1024", "last\r|long line\r\n|\r\n|first\r\n|", ""},
                          {"11", "last\r|ong line\r\n|l|\r\n|first\r\n|", ""},
                          {"5", "ast\r|l|ne\r\n|g li|lon|\r\n|st\r\n|fir|", ""}};
    for (const auto& c : cases) {
        const int max = std::stoi(c.name);
        string found;
        string line(static_cast<std::size_t>(max), '#');
        for (int end = static_cast<int>(text.size()); end > 1; found += line.c_str() + string("|"))
            end = SMTP_getline(text.data(), end, line.data(), max);
        EXPECT_EQ(found, c.in) << max;
    }
}

TEST_F(Pieces, LinesForward) {
    const struct {
        char previous;
        int blank_lines;
        string wanted;
        string rest;
    } cases[] = {
        {'x', 0, "a\nb\r\n", "c\r\n"},
        {'x', 0, "a", ""},
        {'x', 1, "", ""},
        {'x', 1, "a\r\n\r\nb\r\n", "c\r\n"},
        {'\n', 1, "\r\nb\r\n", "c\r\n"},          // blank across the start
        {'x', 1, "\r\na\r\n\r\nb\r\n", "c\r\n"},  // not blank
        {'\n', 2, "\r\na\r\n\r\nb\r\n", "c\r\n"},
        {'x', 0, string(1022, 'x') + "\r\n", "b\r\n"},
        {'x', 0, string(1024, 'x'), "x\r\n"},       // too long for the room: cut
        {'x', 1, "a\r\n" + string(1021, 'x'), ""},  // the room is all there is
        {'x', 1, lines(960), string(78, 'x') + "\r\n\r\n"},
    };
    for (const auto& c : cases) {
        restart(c.wanted + c.rest);
        string buffer = c.previous + string(1024, '#') + "guard";
        const int size = SMTP_addline(fd_, buffer.data() + 1, c.blank_lines, &err_);
        EXPECT_EQ(buffer, c.previous + c.wanted + string(1024 - c.wanted.size(), '#') + "guard");
        EXPECT_EQ(size, static_cast<int>(c.wanted.size()));
        EXPECT_EQ(::lseek(fd_, 0, SEEK_CUR), size);
    }
    EXPECT_EQ(SMTP_addline(fd_, nullptr, 0, &err_), -32);
}

}  // namespace

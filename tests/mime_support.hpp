// mime_support.hpp - for the mime tests: cases, a composition file, and libc calls underneath: a
// clock that stands still, a host name, calls that fail on demand. What is not set is real.
#pragma once

#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "support/support.hpp"

namespace fake {

enum Call { kRead, kWrite, kShortWrite, kSeek };

struct Libc {
    std::time_t now = 0;           // time() and gettimeofday(), at 0x1234 microseconds
    std::string node = {};         // node and host name
    std::string resolv_conf = {};  // opened in place of /etc/resolv.conf
    int fail[4] = {};              // the n-th call fails: EIO, EFBIG, one byte less, ESPIPE
    int calls[4] = {};             // so far
    std::size_t read_max = 0;      // most bytes of one read
};
inline Libc libc;

}  // namespace fake

struct Case {
    const char* name;
    std::string in;
    std::string wanted;
};

std::string times(std::size_t n, const std::string& text);

// A composition file of its own, on the host node.example, at Fri, 13 Feb 2009 23:31:30 UTC.
class MimeTest : public testing::Test {
protected:
    MimeTest();
    ~MimeTest() override;
    std::string save(const std::string& name, const std::string& bytes) const;  // returns the path
    void restart(const std::string& bytes = "") const;  // the file's content, position at 0
    [[nodiscard]] std::string composed() const { return support::read_file(dir_.file("composed")); }

    support::TempDir dir_;
    int fd_;
    std::uint32_t err_ = 0;
};

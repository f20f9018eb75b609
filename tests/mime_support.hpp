// mime_support.hpp - for the mime tests: cases, a composition file, and libc calls underneath: a
// clock that stands still, a host name, calls that fail on demand. What is not set is real.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
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

inline std::string times(std::size_t n, const std::string& text) {
    std::string all;
    while (n-- > 0) all += text;
    return all;
}

// A composition file of its own, on the host node.example, at Fri, 13 Feb 2009 23:31:30 UTC.
class MimeTest : public testing::Test {
protected:
    MimeTest() {
        fake::libc = {.now = 1234567890, .node = "node.example"};
        ::setenv("TZ", "UTC0", 1);
    }
    ~MimeTest() override { ::close(fd_); }

    std::string save(const std::string& name, const std::string& bytes) const {
        support::write_file(dir_.file(name), bytes);
        return dir_.file(name);
    }
    void restart(const std::string& bytes = "") const {  // the file's content, position at 0
        save("composed", bytes);
        fake::libc.fail[fake::kSeek] = 0;
        ::lseek(fd_, 0, SEEK_SET);
    }
    [[nodiscard]] std::string composed() const { return support::read_file(dir_.file("composed")); }

    support::TempDir dir_;
    int fd_ = ::open(dir_.file("composed").c_str(), O_RDWR | O_CREAT | O_LARGEFILE, 0600);
    std::uint32_t err_ = 0;
};

// open_file.cpp - opens a file that may be a FIFO or a device; see open_file.hpp.
//
// Profiles, trace rings, mail logs and the files that a mail is made from are opened here. No
// state.
#include "common/open_file.hpp"

#include <fcntl.h>

#include <cerrno>

namespace ovrmail::common {

UniqueFd open_at_once(const char* path, int flags, mode_t mode, int attempts) noexcept {
    const auto open_with = [&](int more) {
        return retry_eintr(
            attempts, [&] { return ::open(path, flags | more | O_CLOEXEC | O_LARGEFILE, mode); });
    };
    const int fd = open_with(O_NONBLOCK);
    // EWOULDBLOCK means a lease, which only a regular file can have (fcntl(2)): wait for its end.
    return UniqueFd(fd < 0 && errno == EWOULDBLOCK ? open_with(0) : fd);
}

}  // namespace ovrmail::common

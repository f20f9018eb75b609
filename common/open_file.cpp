// open_file.cpp - see open_file.hpp.
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
    // Only a lease is in the way like this, and only a regular file has one (fcntl(2)).
    return UniqueFd(fd < 0 && errno == EWOULDBLOCK ? open_with(0) : fd);
}

}  // namespace ovrmail::common

// files.cpp - see files.hpp.
#include "mime/files.hpp"

#include <fcntl.h>

#include "common/error_word.hpp"
#include "common/retry.hpp"

namespace ovrmail::mime {

common::UniqueFd open_to_read(const char* path) noexcept {
    const char* const name = path != nullptr ? path : "";
    // Without waiting: a FIFO in place of a file is empty, or fails to be read, but holds up
    // nobody.
    constexpr int kFlags = O_CLOEXEC | O_NONBLOCK | O_LARGEFILE;
    return common::UniqueFd(
        common::retry_eintr(common::kNoLimit, [name] { return ::open(name, O_RDONLY | kFlags); }));
}

std::int32_t fail(log::TraceScope& trace, const char* point, Result result, int error,
                  std::uint32_t* err) noexcept {
    const auto word = static_cast<std::uint32_t>(error);
    common::set_error(err, word);
    return trace.fail(point, result, word);
}

}  // namespace ovrmail::mime

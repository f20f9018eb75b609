// files.cpp - see files.hpp.
#include "mime/files.hpp"

#include <fcntl.h>

#include "common/error_word.hpp"
#include "common/retry.hpp"

namespace ovrmail::mime {

common::UniqueFd open_to_read(const char* path) noexcept {
    const char* const name = path != nullptr ? path : "";
    return common::UniqueFd(common::retry_eintr(
        common::kNoLimit, [name] { return ::open(name, O_RDONLY | O_CLOEXEC | O_LARGEFILE); }));
}

std::int32_t fail(log::TraceScope& trace, const char* point, Result result, int error,
                  std::uint32_t* err) noexcept {
    const auto word = static_cast<std::uint32_t>(error);
    common::set_error(err, word);
    return trace.fail(point, result, word);
}

}  // namespace ovrmail::mime

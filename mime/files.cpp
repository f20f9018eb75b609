// files.cpp - opens the files of a mail and reports failures of file calls; see files.hpp.
//
// Called by every step of composition, streaming and cutting that works on files. No state.
#include "mime/files.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "common/error_word.hpp"
#include "common/open_file.hpp"

namespace ovrmail::mime {

common::UniqueFd open_to_read(const char* path) noexcept {
    common::UniqueFd fd = common::open_at_once(path != nullptr ? path : "", O_RDONLY);
    struct stat64 status {};
    if (!fd.valid() || ::fstat64(fd.get(), &status) != 0) return {};
    if (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode))
        return fd;  // reading a directory fails later
    errno = EINVAL;
    return {};
}

std::int32_t fail(log::TraceScope& trace, const char* point, Result result, int error,
                  std::uint32_t* err) noexcept {
    const auto word = static_cast<std::uint32_t>(error);
    common::set_error(err, word);
    return trace.fail(point, result, word);
}

}  // namespace ovrmail::mime

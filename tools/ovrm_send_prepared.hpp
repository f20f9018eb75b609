// ovrm_send_prepared.hpp - prepared files as the library takes them.
#pragma once

#include <optional>
#include <string>

#include "ovrmail.hpp"

namespace ovrm_send {

// Copies of prepared files with LF at the end of each line and leading dots doubled, in TMPDIR for
// as long as the object lives.
class PreparedCopy {
public:
    explicit PreparedCopy(const ovrmail::Prepared& files);

    // Why there is no copy: a file cannot be read, or holds what no mail carries.
    [[nodiscard]] const std::optional<ovrmail::Outcome>& problem() const { return problem_; }
    [[nodiscard]] const ovrmail::Prepared& files() const { return files_; }

private:
    void copy(const std::string& path, std::optional<ovrmail::detail::TemporaryFile>& out);

    ovrmail::Prepared files_;
    std::optional<ovrmail::Outcome> problem_;
    std::optional<ovrmail::detail::TemporaryFile> content_;
    std::optional<ovrmail::detail::TemporaryFile> header_;
};

}  // namespace ovrm_send

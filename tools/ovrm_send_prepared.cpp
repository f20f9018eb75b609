// ovrm_send_prepared.cpp - makes dots and line ends of prepared files right (RFC 5321 4.5.2).
//
// The library sends a prepared file as it is stored: a lone dot would end the mail, CR LF would
// become CR CR LF. A line that no server has to take, or a NUL, cannot be made right without
// changing what may be signed.
#include "ovrm_send_prepared.hpp"

#include "ovrm_send_files.hpp"

namespace ovrm_send {

PreparedCopy::PreparedCopy(const ovrmail::Prepared& files) {
    copy(files.content, content_);
    if (problem_) return;
    files_.content = content_->path();
    if (files.header.empty()) return;
    copy(files.header, header_);
    if (!problem_) files_.header = header_->path();
}

void PreparedCopy::copy(const std::string& path,
                        std::optional<ovrmail::detail::TemporaryFile>& out) {
    namespace detail = ovrmail::detail;
    std::string bytes;
    if (const int error = read_file(path, bytes); error != 0) {
        problem_.emplace(MAIL_E_WORK_FILE, path, detail::system_words(error), error);
        return;
    }
    detail::MessageWriter writer;
    const std::string lines = detail::with_plain_line_ends(bytes);
    for (std::string_view rest = lines; !rest.empty();) writer.add_line(detail::take_line(rest));
    if (writer.problem()) {
        const std::string& said = writer.problem()->text();
        problem_.emplace(MAIL_E_ARGUMENT, path, said.substr(said.find("line ")));
        return;
    }
    out.emplace(writer.take());
    problem_ = out->problem();
}

}  // namespace ovrm_send

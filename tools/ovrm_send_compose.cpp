// ovrm_send_compose.cpp - the composing half of a send, for a dry run and for the warnings.
//
// It calls the exported functions that the library itself uses, in the same order. The pieces' own
// headers exist only on the wire: they are taken from a socket pair.
#include "ovrm_send_compose.hpp"

#include <sys/socket.h>
#include <sysexits.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>

#include "file_util.h"
#include "mime.h"
#include "ovrm_send_places.hpp"
#include "ovrm_send_results.hpp"
#include "ovrm_send_show.hpp"
#include "profile.h"
#include "smtp.h"

namespace ovrm_send {
namespace {

constexpr MailTimeout kTimeOuts = MAIL_TIMEOUT_DEFAULTS;
constexpr std::uint64_t kKib = 1024;

// What a step says that did not work; the empty text is success.
using Problem = std::string;

Problem failed(const char* step, std::int32_t result, std::uint32_t err) {
    const std::string why = err == 0 ? "" : ": " + std::string(std::strerror(int(err)));
    return std::string(step) + " failed (" + std::to_string(result) + ")" + why;
}

// As the library stages a body: one CR before an LF goes, every line ends in CR LF, and one CR LF
// more ends the text.
bool stage_body(const std::string& path, const std::string& body) {
    std::ofstream out(path, std::ios::binary);
    std::istringstream lines(body);
    std::string line;
    while (std::getline(lines, line)) {
        const bool ended = !lines.eof();
        if (ended && !line.empty() && line.back() == '\r') line.pop_back();
        out << line;
        if (ended) out << "\r\n";
    }
    out << "\r\n";
    return static_cast<bool>(out.flush());
}

void read_mail_options() {
    Content_D_flg = 0;
    MailProfile* profile = Com_OpenPrivateProfile(paths::kMailOptions, 0);
    if (profile == nullptr) return;
    Content_D_flg = Com_GetPrivateProfileInt(profile, "RMMAIL", "CONTENT_DISPOSITION", 0, nullptr);
    Com_ClosePrivateProfile(profile, nullptr);
}

class Composer {
public:
    Composer(const Request& request, const ovrmail::Mail& mail, const TemporaryDirectory& directory)
        : options_(request.options()),
          mail_(mail),
          estimated_bytes_(request.estimated_bytes()),
          to_(ovrmail::detail::joined(mail.recipients)),
          subject_(ovrmail::to_library_text(mail.subject).bytes),
          dir_(directory) {}
    ~Composer() {
        if (fd_ >= 0) FileClose(fd_);
    }
    Composer(const Composer&) = delete;
    Composer& operator=(const Composer&) = delete;

    // Composes into a file.
    Problem compose(bool with_attachments);
    Problem print();
    Findings inspect();

private:
    void inspect_fields(Findings& findings) const;
    [[nodiscard]] bool is_split() const {
        const std::uint64_t kb = (estimated_bytes_ + kKib - 1) / kKib;
        return options_.split_kb && kb > static_cast<std::uint64_t>(*options_.split_kb);
    }
    Problem compose_ordinary(bool with_attachments);
    Problem compose_prepared();
    Problem print_pieces();
    std::int32_t next_piece();
    Problem print_piece(std::int32_t length, std::int32_t number, std::int32_t total,
                        const char* id);

    const Options& options_;
    const ovrmail::Mail& mail_;
    const std::uint64_t estimated_bytes_;
    const std::string to_; /* as the library takes them */
    const std::string subject_;
    const TemporaryDirectory& dir_;
    std::int32_t fd_ = -1;
    std::uint32_t err_ = 0;
    std::array<char, 40> boundary_{};
    std::string piece_;
};

Problem Composer::compose(bool with_attachments) {
    if (dir_.path().empty()) return failed("making a temporary directory", -1, 0);
    fd_ = FileOpen(dir_.file("composed").c_str());
    if (fd_ < 0) return failed("making a working file", fd_, static_cast<std::uint32_t>(errno));
    return mail_.prepared ? compose_prepared() : compose_ordinary(with_attachments);
}

Problem Composer::compose_ordinary(bool with_attachments) {
    const std::string body_path = dir_.file("body");
    if (!stage_body(body_path, ovrmail::to_library_text(mail_.body).bytes))
        return failed("staging the body", -1, 0);
    const auto& files = mail_.attachments;
    std::int32_t result =
        SMTP_makeTopData(fd_, body_path.c_str(), mail_.sender.c_str(), to_.c_str(),
                         subject_.c_str(), boundary_.data(), !files.empty(), is_split(), &err_);
    if (result < 0) return failed("composing the header and text", result, err_);
    for (std::size_t i = 0; with_attachments && i < files.size(); ++i) {
        const char* path = files[i].path.c_str();
        result = SMTP_makeAppendData(fd_, path, boundary_.data(), i + 1 < files.size(), &err_);
        if (result < 0) return failed(path, result, err_);
    }
    return {};
}

Problem Composer::compose_prepared() {
    const ovrmail::Prepared& files = *mail_.prepared;
    std::int32_t result = 0;
    if (files.header.empty()) {
        result = SMTP_makeMIME(fd_, mail_.sender.c_str(), to_.c_str(), subject_.c_str(), &err_);
    } else {
        result = SMTP_makeAppend_TargetFile(fd_, files.header.c_str(), &err_);
    }
    if (result < 0) return failed("composing the header", result, err_);
    result = SMTP_makeAppend_TargetFile(fd_, files.content.c_str(), &err_);
    return result < 0 ? failed(options_.prepared.c_str(), result, err_) : Problem();
}

// Those that the library writes.
void Composer::inspect_fields(Findings& findings) const {
    inspect_names(mail_.attachments, findings);
    if (!mail_.prepared || mail_.prepared->header.empty()) inspect_date();
}

Findings Composer::inspect() {
    Inspector inspector(mail_.prepared.has_value());
    std::ifstream message(dir_.file("composed"), std::ios::binary);
    inspector.read(message);
    Findings findings = inspector.findings();
    inspect_fields(findings);
    return findings;
}

Problem Composer::print() {
    Findings findings;
    inspect_fields(findings);
    if (is_split()) return print_pieces();
    std::ifstream message(dir_.file("composed"), std::ios::binary);
    Inspector(mail_.prepared.has_value()).print(message);
    return {};
}

std::int32_t Composer::next_piece() {
    piece_.assign(static_cast<std::size_t>(*options_.split_kb) * kKib, '\0');
    return SMTP_getSendData(fd_, piece_.data(), *options_.split_kb, boundary_.data(), &err_);
}

Problem Composer::print_pieces() {
    std::int32_t total = 0;
    std::int32_t length = 0;
    FileSeek(fd_, 0, SEEK_SET);
    while ((length = next_piece()) > 0) ++total;
    std::array<char, 1029> id{};
    SMTP_makeid(id.data(), mail_.sender.c_str());
    SMTP_SetTimeOutInfo(&kTimeOuts);
    FileSeek(fd_, 0, SEEK_SET);
    for (std::int32_t number = 1; length >= 0 && number <= total; ++number) {
        length = next_piece();
        if (Problem problem = print_piece(length, number, total, id.data()); !problem.empty())
            return problem;
    }
    return length < 0 ? failed("cutting the message", length, err_) : Problem();
}

Problem Composer::print_piece(std::int32_t length, std::int32_t number, std::int32_t total,
                              const char* id) {
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0)
        return failed("making a socket pair", -1, 0);
    std::stringstream wire;
    std::thread reader([&wire, fd = pair[0]] {
        std::array<char, 8192> block{};
        ssize_t got = 0;
        while ((got = read(fd, block.data(), block.size())) > 0) wire.write(block.data(), got);
    });
    const std::int32_t result =
        SMTP_sendData_Partial(pair[1], piece_.data(), length, mail_.sender.c_str(), to_.c_str(),
                              subject_.c_str(), number, total, id, &err_);
    close(pair[1]);
    reader.join();
    close(pair[0]);
    if (result < 0) return failed("writing a piece", result, err_);
    std::cout << "--- piece " << number << " of " << total << " ---\r\n";
    Inspector(false).print(wire);
    return {};
}

}  // namespace

int print_mail(const Request& request, const ovrmail::Mail& mail,
               const TemporaryDirectory& directory) {
    read_mail_options();
    Composer composer(request, mail, directory);
    Problem problem = composer.compose(true);
    if (problem.empty()) problem = composer.print();
    std::cout.flush();
    if (problem.empty()) return EX_OK;
    complain(problem);
    return EX_CANTCREAT;
}

int print_message(const std::string& message) {
    ovrmail::detail::Message ready;
    if (const auto problem = ovrmail::detail::split_message(message, ready))
        return report_problem(*problem);
    std::string_view lines = ready.header += ready.content;
    std::stringstream wire;
    while (!lines.empty()) wire << ovrmail::detail::take_line(lines) << "\r\n";
    Inspector(false).print(wire);
    std::cout.flush();
    return EX_OK;
}

Findings inspect_mail(const Request& request, const ovrmail::Mail& mail,
                      const TemporaryDirectory& directory) {
    Composer composer(request, mail, directory);
    if (directory.path().empty() || !composer.compose(false).empty()) return {};
    return composer.inspect();
}

}  // namespace ovrm_send

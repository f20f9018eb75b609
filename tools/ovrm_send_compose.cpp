// ovrm_send_compose.cpp - the composing half of a send, with the exported functions that the
// library itself uses, in the same order. The pieces' own headers exist only on the wire: they are
// taken from a socket pair.
#include "ovrm_send_compose.hpp"

#include <sys/socket.h>
#include <sysexits.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>

#include "file_util.h"
#include "mime.h"
#include "ovrm_send_inspect.hpp"
#include "profile.h"
#include "smtp.h"

namespace ovrm_send {
namespace {

namespace fs = std::filesystem;

constexpr MailTimeout kTimeOuts = MAIL_TIMEOUT_DEFAULTS;

class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::error_code error;
        std::string pattern = fs::temp_directory_path(error).string() + "/ovrm-send-XXXXXX";
        if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
    }
    ~TemporaryDirectory() {
        std::error_code error;
        if (usable()) fs::remove_all(path_, error);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    [[nodiscard]] bool usable() const { return !path_.empty(); }
    [[nodiscard]] std::string file(const char* name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

int failed(const char* step, std::int32_t result, std::uint32_t err) {
    std::cerr << "ovrm-send: " << step << " failed (" << result << ")";
    if (err != 0) std::cerr << ": " << std::strerror(static_cast<int>(err));
    std::cerr << "\n";
    return EX_CANTCREAT;
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
    MailProfile* profile = Com_OpenPrivateProfile("/etc/opt/Quorvin/rmmail.ini", 0);
    if (profile == nullptr) return;
    Content_D_flg = Com_GetPrivateProfileInt(profile, "RMMAIL", "CONTENT_DISPOSITION", 0, nullptr);
    Com_ClosePrivateProfile(profile, nullptr);
}

class Composer {
public:
    Composer(const Options& options, const Request& request)
        : options_(options),
          mail_(request.mail()),
          estimated_bytes_(request.estimated_bytes()),
          subject_(ovrmail::to_library_text(mail_.subject).bytes),
          inspector_(mail_.prepared.has_value()) {}
    ~Composer() {
        if (fd_ >= 0) FileClose(fd_);
    }
    Composer(const Composer&) = delete;
    Composer& operator=(const Composer&) = delete;

    int run();

private:
    [[nodiscard]] bool is_split() const {
        const std::uint64_t kb = (estimated_bytes_ + kBlock - 1) / kBlock;
        return options_.split_kb && kb > static_cast<std::uint64_t>(*options_.split_kb);
    }
    int compose_ordinary();
    int compose_prepared();
    int print_whole();
    int print_pieces();
    std::int32_t next_piece();
    int print_piece(std::int32_t length, std::int32_t number, std::int32_t total, const char* id);

    const Options& options_;
    const ovrmail::Mail& mail_;
    const std::uint64_t estimated_bytes_;
    const std::string subject_; /* as the library takes it */
    Inspector inspector_;
    TemporaryDirectory dir_;
    std::int32_t fd_ = -1;
    std::uint32_t err_ = 0;
    std::array<char, 40> boundary_{};
    std::string piece_;
};

int Composer::run() {
    if (!dir_.usable()) return failed("making a temporary directory", -1, 0);
    fd_ = FileOpen(dir_.file("composed").c_str());
    if (fd_ < 0) return failed("making a working file", fd_, static_cast<std::uint32_t>(errno));
    const int status = !mail_.prepared ? compose_ordinary() : compose_prepared();
    if (status != EX_OK) return status;
    inspect_host_name();
    return is_split() ? print_pieces() : print_whole();
}

int Composer::compose_ordinary() {
    const std::string body_path = dir_.file("body");
    if (!stage_body(body_path, ovrmail::to_library_text(mail_.body).bytes))
        return failed("staging the body", -1, 0);
    const auto& files = mail_.attachments;
    std::int32_t result =
        SMTP_makeTopData(fd_, body_path.c_str(), options_.from.c_str(), options_.to.c_str(),
                         subject_.c_str(), boundary_.data(), !files.empty(), is_split(), &err_);
    if (result < 0) return failed("composing the header and text", result, err_);
    for (std::size_t i = 0; i < files.size(); ++i) {
        const char* path = files[i].path.c_str();
        result = SMTP_makeAppendData(fd_, path, boundary_.data(), i + 1 < files.size(), &err_);
        if (result < 0) return failed(path, result, err_);
    }
    return EX_OK;
}

int Composer::compose_prepared() {
    std::int32_t result = 0;
    if (options_.prepared_header.empty()) {
        result =
            SMTP_makeMIME(fd_, options_.from.c_str(), options_.to.c_str(), subject_.c_str(), &err_);
    } else {
        result = SMTP_makeAppend_TargetFile(fd_, options_.prepared_header.c_str(), &err_);
    }
    if (result < 0) return failed("composing the header", result, err_);
    result = SMTP_makeAppend_TargetFile(fd_, options_.prepared.c_str(), &err_);
    return result < 0 ? failed(options_.prepared.c_str(), result, err_) : EX_OK;
}

int Composer::print_whole() {
    std::ifstream message(dir_.file("composed"), std::ios::binary);
    inspector_.copy(message, std::cout);
    return EX_OK;
}

std::int32_t Composer::next_piece() {
    piece_.assign(static_cast<std::size_t>(*options_.split_kb) * kBlock, '\0');
    return SMTP_getSendData(fd_, piece_.data(), *options_.split_kb, boundary_.data(), &err_);
}

int Composer::print_pieces() {
    std::int32_t total = 0;
    std::int32_t length = 0;
    FileSeek(fd_, 0, SEEK_SET);
    while ((length = next_piece()) > 0) ++total;
    std::array<char, 1029> id{};
    SMTP_makeid(id.data(), options_.from.c_str());
    SMTP_SetTimeOutInfo(&kTimeOuts);
    FileSeek(fd_, 0, SEEK_SET);
    for (std::int32_t number = 1; length >= 0 && number <= total; ++number) {
        length = next_piece();
        const int status = print_piece(length, number, total, id.data());
        if (status != EX_OK) return status;
    }
    return length < 0 ? failed("cutting the message", length, err_) : EX_OK;
}

int Composer::print_piece(std::int32_t length, std::int32_t number, std::int32_t total,
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
        SMTP_sendData_Partial(pair[1], piece_.data(), length, options_.from.c_str(),
                              options_.to.c_str(), subject_.c_str(), number, total, id, &err_);
    close(pair[1]);
    reader.join();
    close(pair[0]);
    if (result < 0) return failed("writing a piece", result, err_);
    std::cout << "--- piece " << number << " of " << total << " ---\r\n";
    Inspector(false).copy(wire, std::cout);
    return EX_OK;
}

}  // namespace

int dry_run(const Options& options, const Request& request) {
    read_mail_options();
    Composer composer(options, request);
    const int status = composer.run();
    std::cout.flush();
    return status;
}

}  // namespace ovrm_send

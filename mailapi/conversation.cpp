// conversation.cpp - from the connection to QUIT (RFC 5321), for a composed message sent whole or
// in pieces and for a prepared one.
//
// Last step of a send. A Conversation owns the connection; no other state. The table of calls says
// which failure leaves what in the detail buffer.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <optional>

#include "common/unique_fd.hpp"
#include "file_util.h"
#include "mailapi/result_map.hpp"
#include "mailapi/steps.hpp"
#include "mime.h"
#include "mime/result.hpp"
#include "mime/stream.hpp"
#include "smtp.h"
#include "smtp/result.hpp"

namespace ovrmail::mailapi {
namespace {

// What a failing call leaves in the detail buffer, by the result its code maps to.
struct Call {
    const char* point;
    bool rejected_reply = false;    // MAIL_E_REJECTED: the server's reply
    bool system_number = false;     // MAIL_E_SYSTEM: the error word
    bool work_file_number = false;  // MAIL_E_WORK_FILE: the error word
    bool any_number = false;        // whatever the result: the error word
    bool is_mail = false;           // MAIL_E_REJECTED depends on the authentication status
};
constexpr Call kConnect{.point = "EMAILAPI0110", .any_number = true};
constexpr Call kInitialize{.point = "EMAILAPI0120", .rejected_reply = true, .system_number = true};
constexpr Call kMail{
    .point = "EMAILAPI0130", .rejected_reply = true, .system_number = true, .is_mail = true};
constexpr Call kStartData{.point = "EMAILAPI0140", .rejected_reply = true, .system_number = true};
constexpr Call kSendData{.point = "EMAILAPI0150", .system_number = true, .work_file_number = true};
constexpr Call kPieceMemory{.point = "EMAILAPI0160"};
constexpr Call kGetPiece{.point = "EMAILAPI0170", .work_file_number = true};
constexpr Call kSendPiece{.point = "EMAILAPI0180", .system_number = true};
constexpr Call kEndData{.point = "EMAILAPI0190", .rejected_reply = true, .system_number = true};
constexpr Call kQuit{.point = "EMAILAPI01A0", .system_number = true};

// The call that ended a conversation early.
struct Failure {
    const Call* call = nullptr;  // null: no call failed
    std::int32_t code = 0;
    std::uint32_t err = 0;
};

// One conversation. Its end always closes the connection and deletes the composed file.
class Conversation {
public:
    explicit Conversation(SendJob& job) noexcept : job_(job) {}
    ~Conversation() {
        std::optional<log::TraceFrame> trace;  // only a composed message has these points
        if (!job_.is_prepared()) trace.emplace("ENDPROC0000", "ENDPROCFFFF");
        sock_.reset();
        piece_.reset();
        job_.composed.discard();
    }
    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    Failure run() noexcept {
        if (open() && (job_.partial ? send_pieces() : send_whole()))
            passed(kQuit, SMTP_QUIT(sock_.get(), &err_));
        return failure_;
    }

private:
    // Whether a call succeeded. A failure ends the conversation and is traced with its arguments.
    bool passed(const Call& call, std::int32_t code) noexcept {
        if (code >= 0) return true;
        failure_ = {&call, code, err_};
        for (const auto value :
             {static_cast<std::uint32_t>(code), static_cast<std::uint32_t>(sock_.get()), err_})
            fail_at(call.point, code, value);
        for (const char* const text :
             {job_.args.sender, job_.recipients, static_cast<const char*>(job_.boundary.data())})
            Twrite(g_trace, log::kLevelFailure, call.point, text,
                   static_cast<std::uint32_t>(std::strlen(text)));
        for (const std::int32_t value : {piece_number_, job_.piece_count})
            fail_at(call.point, value);
        return false;
    }

    bool open() noexcept {
        const std::int32_t sock = SMTP_connect(job_.args.server, job_.split.ulPort, &err_);
        if (!passed(kConnect, sock)) return false;
        sock_.reset(sock);
        const std::int32_t status = SMTP_initialize(sock, job_.args.auth, &err_);
        if (!passed(kInitialize, status)) return false;
        job_.auth_status = status;
        return true;
    }

    bool name_addresses() noexcept {
        return passed(kMail, SMTP_MAIL(sock_.get(), job_.args.sender, job_.recipients, &err_));
    }
    bool start_data() noexcept { return passed(kStartData, SMTP_startData(sock_.get(), &err_)); }
    bool end_data() noexcept { return passed(kEndData, SMTP_endData(sock_.get(), &err_)); }

    bool send_whole() noexcept {
        return name_addresses() && start_data() &&
               passed(kSendData, mime::stream_file(sock_.get(), job_.composed.fd(),
                                                   job_.composed_size, &err_)) &&
               end_data();
    }

    bool send_pieces() noexcept {
        piece_ = common::make_zeroed<char>(job_.piece_size());
        if (piece_ == nullptr) return passed(kPieceMemory, kNoMemory);
        if (FileSeek(job_.composed.fd(), 0, SEEK_SET) < 0) return lose_file(GetErrorCode());
        for (piece_number_ = 1; piece_number_ <= job_.piece_count; ++piece_number_)
            if (!send_piece()) return false;
        return true;
    }

    bool send_piece() noexcept {
        if (!name_addresses()) return false;
        // Kept: the status decides how refused addresses of the first piece are reported, but not
        // the result of a split mail. Existing callers rely on these results.
        job_.auth_status = smtp::kOk;
        std::int32_t length = 0;
        if (!start_data() || !read_piece(length) ||
            !passed(kSendPiece,
                    SMTP_sendData_Partial(sock_.get(), piece_.get(), length, job_.args.sender,
                                          job_.recipients, job_.subject.data(), piece_number_,
                                          job_.piece_count, job_.message_id.data(), &err_)) ||
            !end_data())
            return false;
        // Kept: RSET follows every piece, also the last, and its reply is ignored. Existing sites
        // rely on this documented dialogue.
        static_cast<void>(SMTP_RSET(sock_.get(), &err_));
        return true;
    }

    // When the composed file has become shorter since it was finished, the mail is incomplete and
    // gets no end mark.
    bool read_piece(std::int32_t& length) noexcept {
        length = SMTP_getSendData(job_.composed.fd(), piece_.get(), job_.split.lSplitSize,
                                  job_.boundary.data(), &err_);
        if (!passed(kGetPiece, length)) return false;
        struct stat64 status {};
        if (::fstat64(job_.composed.fd(), &status) != 0) return lose_file(errno);
        const bool whole = length > 0 && status.st_size >= job_.composed_size;
        return whole || lose_file(EIO);
    }

    bool lose_file(int error) noexcept {
        err_ = static_cast<std::uint32_t>(error);
        return passed(kGetPiece, mime::kReadFailed);
    }

    SendJob& job_;
    common::UniqueFd sock_;
    common::HeapPtr<char[]> piece_;
    std::int32_t piece_number_ = 0;
    std::uint32_t err_ = 0;
    Failure failure_;
};

// A refused sender or recipient has other results when the requested authentication failed.
std::int32_t refusal(const Call& call, std::int32_t auth_status) noexcept {
    if (call.is_mail && auth_status == smtp::kAuthRefused) return MAIL_E_REJECTED_AUTH_FAILED;
    if (call.is_mail && auth_status == smtp::kNoMechanism) return MAIL_E_REJECTED_NO_AUTH;
    return MAIL_E_REJECTED;
}

// The result of a failed conversation, with its detail.
std::int32_t report(SendJob& job, const Failure& failure) noexcept {
    const Call& call = *failure.call;
    const std::int32_t result = map_result(failure.code);
    if (result == MAIL_E_REJECTED && call.rejected_reply) SMTP_GetSmtpSvResponce(job.args.detail);
    if (call.any_number || (result == MAIL_E_SYSTEM && call.system_number) ||
        (result == MAIL_E_WORK_FILE && call.work_file_number)) {
        detail_number(job.detail(), failure.err);
    }
    return result == MAIL_E_REJECTED ? refusal(call, job.auth_status) : result;
}

}  // namespace

std::int32_t converse(SendJob& job) noexcept {
    const Failure failure = Conversation(job).run();
    return failure.call == nullptr ? 0 : report(job, failure);
}

}  // namespace ovrmail::mailapi

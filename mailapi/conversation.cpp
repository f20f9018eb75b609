// conversation.cpp - from the connection to QUIT (RFC 5321), for a composed message sent whole or
// in pieces and for a prepared one.
//
// Last step of a send. Owns the rules that say which failure leaves what in the detail buffer.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

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
    bool rejected_reply;    // MAIL_E_REJECTED: the server's reply
    bool system_number;     // MAIL_E_SYSTEM: the error word
    bool work_file_number;  // MAIL_E_WORK_FILE: the error word
    bool any_number;        // whatever the result: the error word
};
constexpr Call kConnect{"EMAILAPI0110", false, false, false, true};
constexpr Call kInitialize{"EMAILAPI0120", true, true, false, false};
constexpr Call kMail{"EMAILAPI0130", true, true, false, false};
constexpr Call kStartData{"EMAILAPI0140", true, true, false, false};
constexpr Call kSendData{"EMAILAPI0150", false, true, true, false};
constexpr Call kPieceMemory{"EMAILAPI0160", false, false, false, false};
constexpr Call kGetPiece{"EMAILAPI0170", false, false, true, false};
constexpr Call kSendPiece{"EMAILAPI0180", false, true, false, false};
constexpr Call kEndData{"EMAILAPI0190", true, true, false, false};
constexpr Call kQuit{"EMAILAPI01A0", false, true, false, false};

void trace_text(const char* point, const char* text) noexcept {
    Twrite(g_trace, log::kLevelFailure, point, text, static_cast<std::uint32_t>(std::strlen(text)));
}

void trace_values(const SendJob& job, const char* point, std::int32_t code) noexcept {
    fail_at(point, code);
    fail_at(point, job.sock.get());
    fail_at(point, code, job.err);
    trace_text(point, job.args.sender);
    trace_text(point, job.recipient);
    trace_text(point, job.boundary.data());
    fail_at(point, job.piece_number);
    fail_at(point, job.piece_count);
}

// What the conversation held open ends here, after success and after every failure.
void end_processing(SendJob& job) noexcept {
    log::TraceScope trace("ENDPROC0000", "ENDPROCFFFF");
    job.sock.reset();
    job.piece.reset();
    job.composed.discard();
    trace.leave();
}

std::int32_t fail_call(SendJob& job, const Call& call, std::int32_t code) noexcept {
    trace_values(job, call.point, code);
    end_processing(job);
    const std::int32_t result = map_result(code);
    if (result == MAIL_E_REJECTED && call.rejected_reply) {
        SMTP_GetSmtpSvResponce(job.args.detail);
    }
    if (call.any_number || (result == MAIL_E_SYSTEM && call.system_number) ||
        (result == MAIL_E_WORK_FILE && call.work_file_number)) {
        detail_number(job.detail(), job.err);
    }
    return result;
}

// A refused sender or recipient is told apart when authentication was asked for in vain.
std::int32_t fail_mail(SendJob& job, std::int32_t code) noexcept {
    const std::int32_t result = fail_call(job, kMail, code);
    if (result != MAIL_E_REJECTED) return result;
    if (job.initialize_status == smtp::kAuthRefused) return MAIL_E_REJECTED_AUTH_FAILED;
    if (job.initialize_status == smtp::kNoMechanism) return MAIL_E_REJECTED_NO_AUTH;
    return result;
}

std::int32_t open_session(SendJob& job) noexcept {
    const std::int32_t sock = SMTP_connect(job.args.server, job.split.ulPort, &job.err);
    if (sock < 0) return fail_call(job, kConnect, sock);
    job.sock.reset(sock);
    const std::int32_t status = SMTP_initialize(sock, job.args.auth, &job.err);
    if (status < 0) return fail_call(job, kInitialize, status);
    job.initialize_status = status;
    return 0;
}

std::int32_t send_whole(SendJob& job) noexcept {
    const int sock = job.sock.get();
    std::int32_t rc = SMTP_MAIL(sock, job.args.sender, job.recipient, &job.err);
    if (rc < 0) return fail_mail(job, rc);
    rc = SMTP_startData(sock, &job.err);
    if (rc < 0) return fail_call(job, kStartData, rc);
    rc = mime::stream_file(sock, job.composed.fd(), job.composed_size, &job.err);
    if (rc < 0) return fail_call(job, kSendData, rc);
    rc = SMTP_endData(sock, &job.err);
    if (rc < 0) return fail_call(job, kEndData, rc);
    return 0;
}

// 0, or EIO when somebody has shortened the composed file since it was finished: what is read of it
// then is not the mail. The error of fstat() when that cannot be found out.
std::uint32_t find_loss(const SendJob& job) noexcept {
    struct stat64 status {};
    if (::fstat64(job.composed.fd(), &status) != 0) return static_cast<std::uint32_t>(errno);
    return status.st_size < job.composed_size ? EIO : 0;
}

std::int32_t send_piece(SendJob& job) noexcept {
    const int sock = job.sock.get();
    std::int32_t rc = SMTP_MAIL(sock, job.args.sender, job.recipient, &job.err);
    if (rc < 0) return fail_mail(job, rc);
    // Kept: the status counts for the first piece only, and not for the result of a split mail.
    job.initialize_status = 0;
    rc = SMTP_startData(sock, &job.err);
    if (rc < 0) return fail_call(job, kStartData, rc);
    const std::int32_t length = SMTP_getSendData(
        job.composed.fd(), job.piece.get(), job.split.lSplitSize, job.boundary.data(), &job.err);
    if (length < 0) return fail_call(job, kGetPiece, length);
    job.err = length == 0 ? EIO : find_loss(job);
    if (job.err != 0) return fail_call(job, kGetPiece, mime::kReadFailed);
    rc = SMTP_sendData_Partial(sock, job.piece.get(), length, job.args.sender, job.recipient,
                               job.subject.data(), job.piece_number, job.piece_count,
                               job.message_id.data(), &job.err);
    if (rc < 0) return fail_call(job, kSendPiece, rc);
    rc = SMTP_endData(sock, &job.err);
    if (rc < 0) return fail_call(job, kEndData, rc);
    // Kept: RSET follows every piece, the last one too, and its reply decides nothing.
    static_cast<void>(SMTP_RSET(sock, &job.err));
    return 0;
}

std::int32_t send_pieces(SendJob& job) noexcept {
    job.piece = common::make_zeroed<char>(job.piece_size());
    if (job.piece == nullptr) return fail_call(job, kPieceMemory, kNoMemory);
    if (FileSeek(job.composed.fd(), 0, SEEK_SET) < 0) {
        job.err = static_cast<std::uint32_t>(GetErrorCode());
        return fail_call(job, kGetPiece, mime::kReadFailed);
    }
    for (job.piece_number = 1; job.piece_number <= job.piece_count; ++job.piece_number) {
        if (const std::int32_t rc = send_piece(job); rc < 0) return rc;
    }
    job.piece.reset();
    return 0;
}

}  // namespace

std::int32_t converse(SendJob& job) noexcept {
    job.err = 0;
    std::int32_t rc = open_session(job);
    if (rc < 0) return rc;
    rc = job.partial ? send_pieces(job) : send_whole(job);
    if (rc < 0) return rc;
    rc = SMTP_QUIT(job.sock.get(), &job.err);
    if (rc < 0) return fail_call(job, kQuit, rc);
    end_processing(job);
    return 0;
}

}  // namespace ovrmail::mailapi

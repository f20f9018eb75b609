// stream.cpp - SMTP_sendData: sends the composition file to the server.
//
// Called between DATA and the end mark. The file is in wire form already and is sent unchanged
// through the input block (RFC 5321 section 4.1.1.4). No other state.
#include "mime/stream.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "common/block_io.hpp"
#include "common/error_word.hpp"
#include "mime.h"
#include "mime/files.hpp"
#include "mime/scratch.hpp"
#include "smtp.h"
#include "smtp/blocks.hpp"

namespace ovrmail::mime {
namespace {

// The unit of the clock and of the trace, not of the system calls.
constexpr std::size_t kSendBlock = 1028;

}  // namespace

std::int32_t stream_file(int sock, int fd, off64_t size, std::uint32_t* err) noexcept {
    log::TraceScope trace("smtp0500", "smtp05FF");
    if (::lseek(fd, 0, SEEK_SET) != 0) return fail(trace, "smtp0505", kReadFailed, errno, err);
    SMTP_SetTimeOut(g_stMailTimeout.ulSendDataTimeOut);
    const auto block = input_block().first<whole_units(kInputSize, kSendBlock)>();
    for (;;) {
        const ssize_t got = common::read_full(fd, block);
        if (got < 0) return fail(trace, "smtp0505", kReadFailed, errno, err);
        const auto bytes = block.first(static_cast<std::size_t>(got));
        const std::int32_t sent = smtp::send_blocks(sock, bytes, kSendBlock, err);
        if (sent < 0) return trace.fail("smtp0510", sent);
        size -= got;
        if (bytes.size() == block.size()) continue;
        if (size > 0) return fail(trace, "smtp0505", kReadFailed, EIO, err);
        common::set_error(err, 0);  // an empty file sends nothing that would clear it
        return trace.leave(kOk);
    }
}

}  // namespace ovrmail::mime

std::int32_t SMTP_sendData(std::int32_t sock, std::int32_t fd, std::uint32_t* err) noexcept {
    struct stat64 status {};
    const bool known = ::fstat64(fd, &status) == 0;  // otherwise reading fails too
    return ovrmail::mime::stream_file(sock, fd, known ? status.st_size : 0, err);
}

// work_file.cpp - names, creates and deletes working files; see work_file.hpp.
//
// Staging, composition and prepared messages use it. Process and thread id in the name keep
// concurrent senders in one directory apart. No state beyond the WorkFile.
#include "mailapi/work_file.hpp"

#include <fcntl.h>
#include <pthread.h>

#include <cerrno>

#include "common/retry.hpp"
#include "common/text.hpp"
#include "file_util.h"
#include "log/trace_scope.hpp"

namespace ovrmail::mailapi {
namespace {

constexpr mode_t kFileMode = 0644;
constexpr int kRounds = 16;  // another container may use the same process id, and so the name

}  // namespace

bool WorkFile::name(const char* dir, const char* prefix, pid_t pid) noexcept {
    log::TraceScope trace("MKTMP0000", "MKTMPFFFF");
    const int length = common::format_into(path_, "%s/%s%d-%d", dir, prefix, pid,
                                           static_cast<int>(::pthread_self()));
    if (length < 0) {
        trace.fail("MKTMP0020", -1);
        return false;
    }
    trace.leave(0);
    return true;
}

// O_EXCL creates a new file and follows no link: an existing file could add the end of another mail
// to this one, or belong to another user.
bool WorkFile::open() noexcept {
    constexpr int kNew = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_LARGEFILE;
    for (int round = 1;; ++round) {
        fd_.reset(common::retry_eintr(common::kNoLimit,
                                      [&] { return ::open(path_.data(), kNew, kFileMode); }));
        exists_ = fd_.valid();
        if (exists_ || errno != EEXIST || round == kRounds) return exists_;
        FileDelete(path_.data());
    }
}

bool WorkFile::settle() noexcept {
    const int copy = ::fcntl(fd_.get(), F_DUPFD_CLOEXEC, 0);
    return copy < 0 || FileClose(copy) == 0;  // not checked without a spare descriptor
}

bool WorkFile::close() noexcept { return FileClose(fd_.release()) == 0; }

void WorkFile::discard() noexcept {
    const common::ErrnoKeeper keep;
    fd_.reset();
    if (exists_) FileDelete(path_.data());
    exists_ = false;
}

}  // namespace ovrmail::mailapi

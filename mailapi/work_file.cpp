// work_file.cpp - working-file names and their owner; see work_file.hpp.
// Process and thread id in the name keep concurrent senders in one directory apart.
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
constexpr int kRounds = 16;  // others may use the name too: a container with the same process id

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

// Exclusively, which follows no link either: opening what lies there would put the end of another
// mail into this one, or this mail into somebody else's file.
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
    return copy < 0 || FileClose(copy) == 0;  // without a spare descriptor nothing can be asked
}

bool WorkFile::close() noexcept { return FileClose(fd_.release()) == 0; }

void WorkFile::discard() noexcept {
    const common::ErrnoKeeper keep;
    fd_.reset();
    if (exists_) FileDelete(path_.data());
    exists_ = false;
}

}  // namespace ovrmail::mailapi

// work_file.cpp - working-file names and their owner; see work_file.hpp.
// Process and thread id in the name keep concurrent senders in one directory apart.
#include "mailapi/work_file.hpp"

#include <fcntl.h>
#include <pthread.h>

#include "common/retry.hpp"
#include "common/text.hpp"
#include "file_util.h"
#include "log/trace_scope.hpp"

namespace ovrmail::mailapi {
namespace {

constexpr mode_t kFileMode = 0644;

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

bool WorkFile::open() noexcept {
    constexpr int kNew = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_LARGEFILE;
    fd_.reset(common::retry_eintr(common::kNoLimit,
                                  [&] { return ::open(path_.data(), kNew, kFileMode); }));
    if (!fd_.valid() && errno == EEXIST) {
        FileDelete(path_.data());
        fd_.reset(FileOpen(path_.data()));
    }
    exists_ = fd_.valid();
    return exists_;
}

void WorkFile::discard() noexcept {
    const common::ErrnoKeeper keep;
    fd_.reset();
    if (exists_) FileDelete(path_.data());
    exists_ = false;
}

}  // namespace ovrmail::mailapi

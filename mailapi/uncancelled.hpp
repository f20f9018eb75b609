// uncancelled.hpp - delays the cancellation of the calling thread until the send has ended, because
// a cancelled thread runs no destructors of this library.
#pragma once

#include <pthread.h>

namespace ovrmail::mailapi {

class Uncancelled {
public:
    Uncancelled() noexcept { ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~Uncancelled() { ::pthread_setcancelstate(before_, nullptr); }
    Uncancelled(const Uncancelled&) = delete;
    Uncancelled& operator=(const Uncancelled&) = delete;

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace ovrmail::mailapi

// retry.hpp - the one place where interrupted system calls are repeated.
#pragma once

#include <cerrno>

namespace ovrmail::common {

inline constexpr int kNoLimit = 0;

// Calls until the result is not "-1 with EINTR", or `limit` attempts are made (kNoLimit: any).
template <class Call>
auto retry_eintr(int limit, Call call) noexcept -> decltype(call()) {
    for (int attempt = 1;; ++attempt) {
        const auto result = call();
        if (result != -1 || errno != EINTR || attempt == limit) return result;
    }
}

}  // namespace ovrmail::common

// report.hpp - how a network step ended. The steps neither log nor trace: the client turns a report
// into the result code, log entry and trace point of its protocol.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace ovrmail::net {

struct Report {
    enum class End { kDone, kTimedOut, kFailed };

    End end = End::kDone;
    const char* call = nullptr;  // the call that failed or timed out: "send", "recv", ...
    std::int32_t result = 0;     // its return value
    int error = 0;               // its errno, or the resolver's error; 0 for a peer that has closed

    [[nodiscard]] bool done() const noexcept { return end == End::kDone; }
};

inline Report failed(const char* call, ssize_t result, int error) noexcept {
    return {Report::End::kFailed, call, static_cast<std::int32_t>(result), error};
}

inline Report timed_out(const char* call) noexcept { return {Report::End::kTimedOut, call, 0, 0}; }

}  // namespace ovrmail::net

// trace_scope.hpp - frames a function in the trace: entry point at construction, and exactly one
// end, leave() with the exit point or fail() with the failing point; finish() chooses. A function
// without a result uses a TraceFrame. Trace points are written as whole literals, so that a search
// finds a point of a ring in the source.
//
// Levels: 0 failure, 1 entry and exit, 2 detail. A null handle writes nothing; errno is kept.
#pragma once

#include <cassert>
#include <cstdint>
#include <string_view>

#include "trace.h"

namespace ovrmail::log {

inline constexpr std::uint32_t kLevelFailure = 0;
inline constexpr std::uint32_t kLevelFrame = 1;
inline constexpr std::uint32_t kLevelDetail = 2;

// A detail outside a frame.
inline void note(const char* point, std::string_view bytes, TraceHandle* trace = g_trace) noexcept {
    if (trace == nullptr) return;
    Twrite(trace, kLevelDetail, point, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
}

class TraceScope {
public:
    TraceScope(const char* entry, const char* exit, TraceHandle* trace = g_trace) noexcept
        : trace_(trace), exit_(exit) {
        write(kLevelFrame, entry);
    }
    TraceScope(const TraceScope&) = delete;
    TraceScope& operator=(const TraceScope&) = delete;
    ~TraceScope() { assert(ended_ && "a return was not traced"); }

    // Ends the frame: exit point with the result, which is returned.
    std::int32_t leave(std::int32_t result) noexcept {
        ended_ = true;
        write(kLevelFrame, exit_, &result, sizeof result);
        return result;
    }
    void leave() noexcept {
        ended_ = true;
        write(kLevelFrame, exit_);
    }

    // leave() with 0, fail() at `point` with anything else.
    std::int32_t finish(const char* point, std::int32_t result) noexcept {
        return result == 0 ? leave(result) : fail(point, result);
    }

    // Ends the frame: failing point with the result, or with another word that tells more.
    std::int32_t fail(const char* point, std::int32_t result) noexcept {
        ended_ = true;
        mark(point, result);
        return result;
    }
    std::int32_t fail(const char* point, std::int32_t result, std::uint32_t word) noexcept {
        ended_ = true;
        write(kLevelFailure, point, &word, sizeof word);
        return result;
    }

    std::int32_t fail(const char* point, std::int32_t result, std::string_view bytes) noexcept {
        ended_ = true;
        write(kLevelFailure, point, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
        return result;
    }

    // A failure that does not end the function.
    void mark(const char* point, std::int32_t value) noexcept {
        write(kLevelFailure, point, &value, sizeof value);
    }

    // A detail of the step.
    void note(const char* point) noexcept { write(kLevelDetail, point); }
    void note(const char* point, std::int32_t value) noexcept {
        write(kLevelDetail, point, &value, sizeof value);
    }
    void note(const char* point, std::string_view bytes) noexcept {
        write(kLevelDetail, point, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    }

private:
    void write(std::uint32_t level, const char* point, const void* data = nullptr,
               std::uint32_t length = 0) noexcept {
        if (trace_ != nullptr) Twrite(trace_, level, point, data, length);
    }

    TraceHandle* trace_;
    const char* exit_;
    bool ended_ = false;
};

// The frame of a function without a result: the destructor writes the exit point.
class TraceFrame : public TraceScope {
public:
    using TraceScope::TraceScope;
    ~TraceFrame() { leave(); }
};

}  // namespace ovrmail::log

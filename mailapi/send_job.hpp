// send_job.hpp - the working state of one call and its owners. It is on the stack of the call; its
// working files and buffers end with it.
#pragma once

#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "common/heap.hpp"
#include "log/trace_scope.hpp"
#include "mail_types.h"
#include "mailapi/work_file.hpp"

namespace ovrmail::mailapi {

inline constexpr std::size_t kSubjectSize = MAIL_SUBJECT_MAX + 1;
inline constexpr std::size_t kDetailSize = MAIL_DETAIL_SIZE;
inline constexpr std::size_t kBytesPerKb = 1024;

// The arguments as the caller gave them.
struct SendArguments {
    const MailEntry* recipients;
    std::uint32_t recipient_count;
    const MailEntry* parts;
    std::uint32_t part_count;
    const char* sender;
    const char* subject;
    const char* server;
    std::uint32_t partial_flag;
    const MailSplitOption* split;
    const MailTimeout* time_out;
    const MailEntry* auth;
    char* detail;
    const char* work_dir;
};

struct SendJob {
    explicit SendJob(const SendArguments& arguments) noexcept : args(arguments) {}

    // The request, checked.
    const SendArguments args;
    const char* recipients = nullptr;  // addresses, separated by commas
    std::span<const MailEntry> parts;
    MailSplitOption split{MAIL_SPLIT_DEFAULT, 0};
    bool partial = false;

    // Text in the code that composition expects.
    std::array<char, kSubjectSize> subject{};
    std::size_t body_length = 0;
    common::HeapPtr<char[]> body;
    bool unconverted = false;

    // The message on disk.
    const pid_t pid = ::getpid();
    WorkFile body_file;
    WorkFile composed;
    off64_t composed_size = 0;
    std::array<char, 40> boundary{};
    bool has_attachment = false;
    std::uint32_t file_err = 0;

    // Pieces.
    std::int32_t piece_count = 0;
    std::array<char, 1029> message_id{};

    // Result of the requested SMTP AUTH: kOk, kNoMechanism or kAuthRefused of smtp/result.hpp.
    std::int32_t auth_status = 0;

    [[nodiscard]] const char* body_text() const noexcept {
        return static_cast<const char*>(parts[0].value);
    }
    [[nodiscard]] bool is_prepared() const noexcept {
        return parts.size() > 1 && parts[1].kind == MAIL_KIND_PREPARED;
    }
    [[nodiscard]] std::span<const MailEntry> attachments() const noexcept {
        return parts.subspan(1);
    }
    [[nodiscard]] std::span<char, kDetailSize> detail() const noexcept {
        return std::span<char, kDetailSize>(args.detail, kDetailSize);
    }
    [[nodiscard]] std::size_t piece_size() const noexcept {
        return static_cast<std::size_t>(split.lSplitSize) * kBytesPerKb;
    }
};

// A step returns 0, or the negative result that ends the call.
using Step = std::int32_t (*)(SendJob& job) noexcept;

// Traces a failing point with a word that tells more than the result. Returns the result.
inline std::int32_t fail_at(const char* point, std::int32_t result, std::uint32_t word) noexcept {
    Twrite(g_trace, log::kLevelFailure, point, &word, sizeof word);
    return result;
}
inline std::int32_t fail_at(const char* point, std::int32_t result) noexcept {
    return fail_at(point, result, static_cast<std::uint32_t>(result));
}

}  // namespace ovrmail::mailapi

// result_map.cpp - layer codes to results; see result_map.hpp.
// This table is all the driver knows of the codes below it.
#include "mailapi/result_map.hpp"

#include "common/text.hpp"

namespace ovrmail::mailapi {
namespace {

struct CodeRange {
    std::int32_t first;
    std::int32_t last;
    std::int32_t result;
};

constexpr CodeRange kMapping[] = {
    {-33, -31, MAIL_E_WORK_FILE},  // open, read, write of a working file
    {-27, -21, MAIL_E_REJECTED},   // a command refused
    {kNoMemory, kNoMemory, MAIL_E_MEMORY},
    {-6, -6, MAIL_E_TIMEOUT},  // budget spent
    {-5, -5, MAIL_E_CONNECT},  // name not resolved
    {-4, -3, MAIL_E_SYSTEM},   // receive, send
    {-2, -2, MAIL_E_CONNECT},  // connection failed
    {-1, -1, MAIL_E_SYSTEM},   // no socket
};

}  // namespace

std::int32_t map_result(std::int32_t code) noexcept {
    for (const CodeRange& range : kMapping) {
        if (code >= range.first && code <= range.last) return range.result;
    }
    return fail_at("CHANGE0060", MAIL_E_INTERNAL, static_cast<std::uint32_t>(code));
}

void detail_number(std::span<char, kDetailSize> detail, std::uint32_t code) noexcept {
    common::format_into(detail, "%d", static_cast<std::int32_t>(code));
}

std::int32_t composition_failed(SendJob& job, const char* point, std::int32_t code) noexcept {
    fail_at(point, code);
    fail_at(point, code, job.file_err);
    const std::int32_t result = map_result(code);
    if (result == MAIL_E_WORK_FILE) detail_number(job.detail(), job.file_err);
    return result;
}

}  // namespace ovrmail::mailapi

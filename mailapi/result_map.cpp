// result_map.cpp - turns codes of the layers below into results; see result_map.hpp.
//
// Called when staging, composition or the conversation fails. The table is all that the driver
// knows of the codes below it. No state.
#include "mailapi/result_map.hpp"

#include "common/text.hpp"
#include "mime/result.hpp"
#include "smtp/result.hpp"

namespace ovrmail::mailapi {
namespace {

struct CodeRange {
    std::int32_t first;
    std::int32_t last;
    std::int32_t result;
};

constexpr CodeRange kMapping[] = {
    {mime::kWriteFailed, mime::kOpenFailed, MAIL_E_WORK_FILE},
    {smtp::kResetRefused, smtp::kHeloRefused, MAIL_E_REJECTED},
    {kNoMemory, kNoMemory, MAIL_E_MEMORY},
    {smtp::kTimeOut, smtp::kTimeOut, MAIL_E_TIMEOUT},
    {smtp::kName, smtp::kName, MAIL_E_CONNECT},
    {smtp::kReceive, smtp::kSend, MAIL_E_SYSTEM},
    {smtp::kConnect, smtp::kConnect, MAIL_E_CONNECT},
    {smtp::kSocket, smtp::kSocket, MAIL_E_SYSTEM},
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

std::int32_t composition_failed(const SendJob& job, const char* point, std::int32_t code) noexcept {
    fail_at(point, code);
    fail_at(point, code, job.file_err);
    const std::int32_t result = map_result(code);
    if (result == MAIL_E_WORK_FILE) detail_number(job.detail(), job.file_err);
    return result;
}

}  // namespace ovrmail::mailapi

// text_prepare.cpp - subject and body in the code that composition expects, which is Shift_JIS.
//
// Runs after the checks and before staging. Text is converted only when the process locale is an
// EUC locale; any other text stays unchanged. A failed conversion never stops a mail: the text is
// sent unconverted and the call returns MAIL_SENT_UNCONVERTED. No state beyond the SendJob.
#include <algorithm>
#include <clocale>
#include <cstring>
#include <string_view>

#include "codeset.h"
#include "common/text.hpp"
#include "file_util.h"
#include "mailapi/steps.hpp"

namespace ovrmail::mailapi {
namespace {

constexpr std::size_t kLineMax = 1028;
constexpr std::int32_t kNoConverter = -1;
enum NameMatch : std::int32_t { kEndOfTable = 0, kExact = 1, kAnyCase = 2 };

bool is_listed(std::span<const MailLangInfo> table, const char* locale) noexcept {
    for (const MailLangInfo& entry : table) {
        if (entry.kind == kEndOfTable) return false;
        if (entry.kind == kExact && std::strcmp(locale, entry.name) == 0) return true;
        if (entry.kind == kAnyCase && CheckString_NotUpLow(locale, entry.name) == 0) return true;
    }
    return false;
}

std::size_t euc_length(char lead) noexcept {
    const auto byte = static_cast<unsigned char>(lead);
    if (byte == 0x8F) return 3;  // JIS X 0212
    return byte == 0x8E || (byte >= 0xA1 && byte <= 0xFE) ? 2 : 1;
}

// Removes the next line from `text` and returns it: through its CR LF (a lone LF ends no line),
// at most kLineMax bytes and never inside a character.
std::string_view take_line(std::string_view& text) noexcept {
    const std::size_t end = text.find("\r\n");
    std::size_t length = end == std::string_view::npos ? text.size() : end + 2;
    if (length > kLineMax) {
        for (length = 0; length + euc_length(text[length]) <= kLineMax;) {
            length += euc_length(text[length]);
        }
    }
    const std::string_view line = text.substr(0, length);
    text.remove_prefix(line.size());
    return line;
}

// Converts `text` into `out`, which is zero-filled and one byte larger than the text. Returns the
// length, or -1; `out` then holds the text unconverted, or nothing when there is no converter.
std::int32_t euc_to_sjis(std::int32_t converter, std::string_view text,
                         std::span<char> out) noexcept {
    log::TraceScope trace("CHANGE0000", "CHANGEFFFF");
    // Kept: without a converter the text is sent empty. Existing callers rely on
    // MAIL_SENT_UNCONVERTED as the result, not on a failure.
    if (converter == kNoConverter) return trace.fail("CHANGE0010", -1);
    std::size_t produced = 0;
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view line = take_line(rest);
        std::int32_t length = 0;
        const std::int32_t rc = Cnv_euctosjis(
            converter, static_cast<std::int32_t>(line.size()), line.data(),
            static_cast<std::int32_t>(out.size() - produced), out.data() + produced, &length);
        if (rc < 0) {
            common::copy_into(out, text);
            out.back() = '\0';
            return trace.fail("CHANGE0020", -1, static_cast<std::uint32_t>(rc));
        }
        produced += static_cast<std::size_t>(length);
    }
    return trace.leave(static_cast<std::int32_t>(::strnlen(out.data(), out.size())));
}

class Converter {
public:
    Converter() noexcept : handle_(Cnv_open("eucJP", "SJIS")) {}
    ~Converter() { Cnv_close(handle_); }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    [[nodiscard]] std::int32_t handle() const noexcept { return handle_; }

private:
    std::int32_t handle_;
};

void convert_text(SendJob& job) noexcept {
    const std::array<char, kSubjectSize> given = job.subject;
    job.subject.fill('\0');
    const Converter converter;
    if (converter.handle() == kNoConverter) fail_at("EMAILAPI1060", kNoConverter);
    bool converted = euc_to_sjis(converter.handle(), common::bounded(given), job.subject) >= 0;
    if (job.body != nullptr) {
        const std::string_view body(job.body_text(), job.body_length);
        const std::span<char> room(job.body.get(), job.body_length + 1);
        converted = euc_to_sjis(converter.handle(), body, room) >= 0 && converted;
    }
    if (!converted) job.unconverted = true;
}

}  // namespace

TextCode locale_text_code() noexcept {
    log::TraceScope trace("GETLANG0000", "GETLANGFFFF");
    const char* const locale = std::setlocale(LC_ALL, nullptr);
    auto code = TextCode::kOther;
    if (locale == nullptr) {
        trace.mark("GETLANG0010", 0);
    } else if (is_listed(stEucLangInfo, locale)) {
        code = TextCode::kEuc;
    } else if (is_listed(stSjisLangInfo, locale)) {
        code = TextCode::kShiftJis;
    }
    trace.leave(static_cast<std::int32_t>(code));
    return code;
}

std::int32_t prepare_text(SendJob& job) noexcept {
    if (job.body_text() != nullptr) {
        job.body = common::make_zeroed<char>(job.body_length + 1);
        if (job.body == nullptr) return fail_at("EMAILAPI1050", MAIL_E_MEMORY);
    }
    if (locale_text_code() == TextCode::kEuc) {
        convert_text(job);
    } else if (job.body != nullptr) {
        std::memcpy(job.body.get(), job.body_text(), job.body_length);
    }
    return 0;
}

}  // namespace ovrmail::mailapi

// ovrm_trace_verdict.cpp - what became of a call; see ovrm_trace_verdict.hpp.
#include "ovrm_trace_verdict.hpp"

#include <algorithm>
#include <string_view>

#include "ovrm_trace_failure.hpp"
#include "ovrm_trace_points.hpp"
#include "ovrm_trace_text.hpp"
#include "ovrmail_outcome.hpp"

namespace ovrm_trace {
namespace {

constexpr std::string_view kQueryEnds = "STATUSFFFF";
constexpr std::string_view kAccepted = "smtp04FF";
constexpr std::string_view kEndFailed = "smtp0410";
constexpr std::string_view kQuitFailed = "smtp0410-2";
constexpr std::string_view kEhloEnds = "AUTHRFFFF";
constexpr std::string_view kSessionOpen = "smtp01FF";
constexpr std::string_view kNoConverter = "CHANGE0010";
constexpr std::string_view kNotConverted = "CHANGE0020";

// One behind the last record with this point; 0 when there is none.
std::size_t behind(std::string_view point, const Items& items) {
    for (std::size_t i = items.size(); i > 0; --i) {
        const Record* const record = as_record(items[i - 1]);
        if (record != nullptr && record->point == point) return i;
    }
    return 0;
}

std::string failure_at(std::string_view point, const Items& items) {
    const std::size_t end = behind(point, items);
    return end == 0 ? "" : Failure(items, end).text();
}

// " in 7 pieces", as the mail log knows; empty for a whole mail.
std::string in_pieces(const Items& items) {
    const auto pieces = std::count_if(items.begin(), items.end(), [](const Item& item) {
        const LogLine* const line = as_line(item);
        return line != nullptr && line->entry == Entry::kSent && said(*line) == "DATA";
    });
    return pieces > 1 ? " in " + std::to_string(pieces) + " pieces" : "";
}

std::string accepted(const Items& items) {
    const std::size_t end = behind(kAccepted, items);
    const std::string reply = end == 0 ? "" : reply_before(items, end - 1);
    const std::string sent = "sent" + in_pieces(items);
    return sent + (reply.empty() ? ": the server has the mail" : "; the server said: " + reply);
}

std::string why_unauthenticated(const Items& items) {
    const std::size_t end = behind(kSessionOpen, items);  // a mail may go out without a login
    const std::string why = end == 0 ? "" : Failure(items, end - 1).text();
    return why.empty() && behind(kEhloEnds, items) != 0 ? "the server does not know EHLO" : why;
}

std::string unauthenticated(const Items& items) {
    const std::string why = why_unauthenticated(items);
    return why.empty() ? "" : "sent, but without SMTP AUTH: " + why;
}

std::string unconverted(const Items& items) {
    std::string why = failure_at(kNotConverted, items);
    if (why.empty()) why = failure_at(kNoConverter, items);
    return why.empty() ? "" : "sent, but subject or text are not converted: " + why;
}

std::string not_sent(const Items& items, std::size_t end, std::int32_t result) {
    const Failure failure(items, end);
    std::string text = failure.text();
    if (failure.step() == kQuitFailed) text += "; the server has the mail";
    if (failure.step() == kEndFailed && failure.ending() != Ending::kRefused)
        text += "; the server may or may not have it";
    if (result == MAIL_E_REJECTED_AUTH_FAILED || result == MAIL_E_REJECTED_NO_AUTH) {
        const std::string before = why_unauthenticated(items);
        if (!before.empty()) text += "; before that: " + before;
    }
    return text;
}

std::string what_happened(const Items& items, std::size_t end, std::int32_t result) {
    switch (result) {
        case MAIL_SENT:
            return accepted(items);
        case MAIL_SENT_UNCONVERTED:
            return unconverted(items);
        case MAIL_SENT_UNAUTHENTICATED:
            return unauthenticated(items);
        default:
            return not_sent(items, end, result);
    }
}

// The functions that were entered and not left, innermost last, from the driver of a send on.
std::string where_it_is(const Items& items) {
    std::vector<const Meaning*> open;
    for (const Item& item : items) {
        const Record* const record = as_record(item);
        const Meaning* const meaning = record != nullptr ? meaning_of(record->point) : nullptr;
        if (meaning == nullptr || meaning->role == Role::kDetail) continue;
        if (meaning->role == Role::kEntry) {
            open.push_back(meaning);
        } else if (!open.empty() && open.back()->function == std::string_view(meaning->function)) {
            open.pop_back();
        }
    }
    std::string text;
    for (const Meaning* const meaning : open)
        text += (text.empty() ? "" : ", ") + std::string(meaning->text);
    return text;
}

std::string unfinished(const Items& items) {
    std::string text = "not ended: the call still runs, or its process has died";
    const std::string where = where_it_is(items);
    if (!where.empty()) text += ", in: " + where;
    for (std::size_t i = items.size(); i-- > 0;) {
        const LogLine* const line = as_line(items[i]);
        if (line == nullptr || line->entry != Entry::kSent) continue;
        return text + "; the last command: " + escaped(said(*line));
    }
    return text;
}

}  // namespace

std::string verdict(const Call& call) {
    const auto end = end_of(call);
    if (!end) return unfinished(call.items);
    const Record& record = *as_record(call.items[*end]);
    const std::int32_t result = number(record).value_or(0);
    const std::string tail = "; result " + std::to_string(result);
    if (record.point == kQueryEnds) {
        const std::string why = Failure(call.items, *end).text();
        return "the status query " + (why.empty() ? "has ended" : "failed: " + why) + tail;
    }
    const std::string happened = what_happened(call.items, *end, result);
    if (!happened.empty()) return happened + tail;
    return ovrmail::Outcome(result, "").text() + " (the records do not tell why)" + tail;
}

}  // namespace ovrm_trace

// ovrm_trace_call.cpp - cuts the records of a ring into calls; see ovrm_trace_call.hpp.
//
// A call begins at the entry of an exported function that opens a ring, or at that of the driver
// alone, for callers that bring a ring of their own. It lasts until the next one begins.
#include "ovrm_trace_call.hpp"

#include <algorithm>
#include <string_view>

#include "ovrm_trace_points.hpp"

namespace ovrm_trace {
namespace {

constexpr std::string_view kSendBegins = "SNDEMAIL0000";
constexpr std::string_view kStepsBegin = "EMAILAPI0000";
constexpr std::string_view kQueryBegins = "STATUS0000";
constexpr std::string_view kSendEnds = "ACERTFFFF";
constexpr std::string_view kQueryEnds = "STATUSFFFF";
constexpr std::string_view kEnds[] = {kSendEnds, kQueryEnds, "EMAILAPIFFFF", "EMAILAPI00FF"};

// Whether both are records, of one step that ended well.
bool is_step(const Item& entry, const Item& exit) {
    const Record* const first = as_record(entry);
    const Record* const last = as_record(exit);
    if (first == nullptr || last == nullptr) return false;
    const Meaning* const begin = meaning_of(first->point);
    const Meaning* const end = meaning_of(last->point);
    return begin != nullptr && begin->role == Role::kEntry && end != nullptr &&
           end->role == Role::kExit && begin->text == std::string_view(end->text) &&
           number(*last).value_or(0) >= 0;
}

bool is_whole(const Item& item) {
    const Record* const record = as_record(item);
    return record != nullptr && record->whole;
}

}  // namespace

bool begins_call(const Record& record, const Record* before) {
    if (record.point == kSendBegins || record.point == kQueryBegins) return true;
    return record.point == kStepsBegin && (before == nullptr || before->point != kSendBegins);
}

std::vector<Call> calls_of(const std::vector<Record>& records, int process) {
    std::vector<Call> calls;
    const Record* before = nullptr;
    for (const Record& record : records) {
        if (calls.empty() || begins_call(record, before)) calls.push_back({process, {}});
        calls.back().items.emplace_back(record);
        before = &record;
    }
    return calls;
}

std::optional<std::size_t> end_of(const Call& call) {
    for (std::size_t i = call.items.size(); i-- > 0;) {
        const Record* const record = as_record(call.items[i]);
        if (record == nullptr || !number(*record)) continue;
        if (std::find(std::begin(kEnds), std::end(kEnds), record->point) != std::end(kEnds))
            return i;
    }
    return std::nullopt;
}

bool has_ended(const Call& call) {
    const auto end = end_of(call);
    if (!end || *end + 1 != call.items.size()) return false;
    const Record* const first = as_record(call.items.front());
    const std::string_view last = as_record(call.items.back())->point;
    const bool only_steps = first != nullptr && first->point == kStepsBegin;
    return only_steps || last == kSendEnds || last == kQueryEnds;
}

std::vector<Item> in_brief(const std::vector<Item>& items) {
    std::vector<Item> brief;
    for (const Item& item : items) {
        const std::size_t inside = !brief.empty() && is_whole(brief.back()) ? 2 : 1;
        const bool whole = brief.size() >= inside && is_step(brief[brief.size() - inside], item);
        if (whole) brief.resize(brief.size() - inside);
        brief.push_back(item);
        if (whole) std::get<Record>(brief.back()).whole = true;
    }
    return brief;
}

Span span_of(const Call& call) {
    Span span{0, 0};
    for (const Item& item : call.items) {
        const Record* const record = as_record(item);
        if (record == nullptr) continue;
        if (span.first == 0) span.first = record->time;
        span.last = record->time;
    }
    return span;
}

}  // namespace ovrm_trace

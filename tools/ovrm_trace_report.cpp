// ovrm_trace_report.cpp - verdicts and lines in their order; see ovrm_trace_report.hpp.
#include "ovrm_trace_report.hpp"

#include <algorithm>
#include <iostream>

#include "ovrm_trace_points.hpp"
#include "ovrm_trace_verdict.hpp"

namespace ovrm_trace {
namespace {

bool is_known(const Call& call) {
    return std::any_of(call.items.begin(), call.items.end(), [](const Item& item) {
        const Record* const record = as_record(item);
        return record != nullptr && meaning_of(record->point) != nullptr;
    });
}

std::optional<std::int32_t> result_of(const Call& call) {
    const auto end = end_of(call);
    return end ? number(*as_record(call.items[*end])) : std::nullopt;
}

bool has_failed(const Call& call) { return result_of(call).value_or(-1) < 0; }

Verdict verdict_of(const Call& call, const char* label) {
    return {span_of(call).last, label, verdict(call), result_of(call)};
}

}  // namespace

void Report::add_verdicts(const std::vector<Call>& calls, const Origin& ring) {
    if (is_raw(options_.form) || calls.empty() || !is_known(calls.back())) return;
    verdicts_ += shown(verdict_of(calls.back(), "verdict"), ring, options_.form);
    const auto failed = std::count_if(calls.begin(), calls.end() - 1, has_failed);
    if (failed == 0) return;
    const auto last = std::find_if(calls.rbegin() + 1, calls.rend(), has_failed);
    Verdict before = verdict_of(*last, "before");
    before.text += " (" + std::to_string(failed) + " of " + std::to_string(calls.size() - 1) +
                   " calls before failed)";
    verdicts_ += shown(before, ring, options_.form);
}

void Report::add(const Call& call, const Origin& ring) {
    const bool brief = options_.form == Form::kPlain && options_.prefix.empty();
    for (const Item& item : brief ? in_brief(call.items) : call.items) add(item, ring);
}

void Report::add(const Item& item, const Origin& ring) {
    if (const LogLine* const line = as_line(item)) {
        time_ = std::max<std::int64_t>(time_, line->time);
        lines_.push_back({time_, shown(*line, {options_.mail_log, ""}, options_.form)});
        return;
    }
    const Record& record = *as_record(item);
    time_ = std::max(time_, record.time);
    if (record.point.starts_with(options_.prefix))
        lines_.push_back({time_, shown(record, ring, options_.form)});
}

void Report::add_verdict(const Call& call, const Origin& ring) {
    if (!is_raw(options_.form))
        lines_.push_back({time_, shown(verdict_of(call, "verdict"), ring, options_.form)});
}

void Report::print() {
    std::stable_sort(lines_.begin(), lines_.end(),
                     [](const Line& a, const Line& b) { return a.time < b.time; });
    std::cout << verdicts_;
    if (!verdicts_.empty() && !is_json(options_.form)) std::cout << "\n";
    for (const Line& line : lines_) std::cout << line.text;
    std::cout.flush();
    verdicts_.clear();
    lines_.clear();
}

}  // namespace ovrm_trace

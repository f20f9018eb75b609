// ovrm_trace_call.hpp - the calls of the library that a ring tells of, each with its records and,
// woven into them, its entries of the mail log.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <variant>
#include <vector>

#include "ovrm_trace_log.hpp"
#include "ovrm_trace_ring.hpp"

namespace ovrm_trace {

using Item = std::variant<Record, LogLine>;

inline const Record* as_record(const Item& item) { return std::get_if<Record>(&item); }
inline const LogLine* as_line(const Item& item) { return std::get_if<LogLine>(&item); }

struct Call {
    int process = 0;  // 0: not known
    std::vector<Item> items;
};

// Whether a call begins with this record; `before` is the one in front of it, or null.
bool begins_call(const Record& record, const Record* before);

// The records in calls, in their order. The first one may lack its beginning.
std::vector<Call> calls_of(const std::vector<Record>& records, int process);

// Where in the call its result stands, the last one of them: nullopt when it has none.
std::optional<std::size_t> end_of(const Call& call);

// Whether the call ends with its last record.
bool has_ended(const Call& call);

// Without what adds nothing for a reader: a step that ended well, and in which nothing happened or
// one such step, is its exit alone.
std::vector<Item> in_brief(const std::vector<Item>& items);

// The time of the first and of the last record.
struct Span {
    std::int64_t first;
    std::int64_t last;
};
Span span_of(const Call& call);

}  // namespace ovrm_trace

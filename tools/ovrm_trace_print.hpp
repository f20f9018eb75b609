// ovrm_trace_print.hpp - records, log entries and verdicts as text or as JSON, one object a line.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "ovrm_trace_log.hpp"
#include "ovrm_trace_ring.hpp"

namespace ovrm_trace {

enum class Form { kPlain, kRaw, kJson, kRawJson };

inline bool is_json(Form form) { return form == Form::kJson || form == Form::kRawJson; }
inline bool is_raw(Form form) { return form == Form::kRaw || form == Form::kRawJson; }

// Where a line comes from. The plain form shows the name, unless it is empty; JSON the file.
struct Origin {
    std::string file;
    std::string name;
};

// Raw: the point and its data. Else also what they mean, and the data as what it is.
std::string shown(const Record& record, const Origin& origin, Form form);

// Lines that go on with the entry are marked, and stand below it.
std::string shown(const LogLine& line, const Origin& origin, Form form);

struct Verdict {
    std::int64_t time;
    std::string label;  // of the plain form
    std::string text;
    std::optional<std::int32_t> result;
};
std::string shown(const Verdict& verdict, const Origin& origin, Form form);

}  // namespace ovrm_trace

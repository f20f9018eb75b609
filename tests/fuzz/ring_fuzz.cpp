// ring_fuzz.cpp - trace rings and mail logs as ovrm-trace reads them: any bytes at all.
#include <algorithm>

#include "fuzz.hpp"
#include "tools/ovrm_trace_merge.hpp"
#include "tools/ovrm_trace_print.hpp"
#include "tools/ovrm_trace_verdict.hpp"

namespace {

using fuzz::demand;
using namespace ovrm_trace;

// What goes to a terminal has no control characters but its line ends, also none of U+0080 to
// U+009F, and what goes on with a line is indented.
void check_shown(const std::string& shown) {
    demand(shown.ends_with('\n'), "whole lines");
    demand(std::ranges::none_of(shown, [](unsigned char c) { return c < ' ' && c != '\n'; }),
           "harmless to a terminal");
    for (std::size_t at = 0; (at = shown.find('\xC2', at)) != shown.npos; ++at)
        demand(shown[at + 1] >= '\xA0', "harmless to a terminal that knows 8-bit controls");
    for (std::size_t at = 0; (at = shown.find('\n', at) + 1) != shown.size();)
        demand(shown[at] == ' ', "no text begins a line");
}
void check_json(const std::string& shown) {
    check_shown(shown);
    demand(std::ranges::count(shown, '\n') == 1, "one object a line");
}

template <class What>
void check(const What& what) {
    for (const Form form : {Form::kPlain, Form::kRaw})
        check_shown(shown(what, {"ring", "r"}, form));
    for (const Form form : {Form::kJson, Form::kRawJson})
        check_json(shown(what, {"ring", "r"}, form));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view file = fuzz::text(data, size);
    const Ring ring = read_ring(file);
    std::size_t bytes = 0;
    for (const Record& record : ring.records) {
        demand(record.at >= 4 && record.at < size, "a record lies in the file");
        bytes += record.point.size() + record.data.size() + 16;
        check(record);
    }
    demand(bytes <= size, "no byte belongs to two records");
    const auto lines = read_mail_log(file, 1'000'000'000);
    for (const LogLine& line : lines) check(line);

    std::vector<std::vector<Call>> calls{calls_of(ring.records, 0)};
    std::size_t items = weave(calls, lines).size();
    for (const Call& call : calls[0]) {
        items += call.items.size();
        check(Verdict{0, "verdict", verdict(call), {}});
    }
    demand(items == ring.records.size() + lines.size(), "nothing is lost between ring and log");
    return 0;
}

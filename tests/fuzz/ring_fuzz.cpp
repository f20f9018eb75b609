// ring_fuzz.cpp - trace rings and mail logs as ovrm-trace reads them: any bytes at all.
#include <algorithm>

#include "fuzz.hpp"
#include "tools/ovrm_trace_log.hpp"
#include "tools/ovrm_trace_print.hpp"
#include "tools/ovrm_trace_ring.hpp"

namespace {

using fuzz::demand;

// What goes to a terminal has no control characters but its line ends.
void check_shown(const std::string& shown) {
    demand(shown.ends_with('\n'), "whole lines");
    demand(std::ranges::none_of(shown, [](unsigned char c) { return c < ' ' && c != '\n'; }),
           "harmless to a terminal");
}
void check_json(const std::string& shown) {
    check_shown(shown);
    demand(std::ranges::count(shown, '\n') == 1, "one object a line");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view file = fuzz::text(data, size);
    const ovrm_trace::Ring ring = ovrm_trace::read_ring(file);
    std::size_t bytes = 0;
    for (const auto& record : ring.records) {
        demand(record.at >= 4 && record.at < size, "a record lies in the file");
        bytes += record.point.size() + record.data.size() + 16;
        check_shown(as_text(record, "ring"));
        check_json(as_json(record, "ring"));
    }
    demand(bytes <= size, "no byte belongs to two records");
    for (const auto& line : ovrm_trace::read_mail_log(file, 1'000'000'000)) {
        check_shown(ovrm_trace::as_text(line.time, line.text));
        check_json(ovrm_trace::as_json(line.time, line.text, "log"));
    }
    return 0;
}

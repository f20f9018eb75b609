// ovrm_trace_report.hpp - all that is to be printed, in its order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ovrm_trace_call.hpp"
#include "ovrm_trace_options.hpp"

namespace ovrm_trace {

class Report {
public:
    explicit Report(const Options& options) : options_(options) {}

    // What became of the last of the calls of a ring, and, where there are some, of the last one
    // before it that failed. Nothing in a raw form, or of points that the library does not have.
    void add_verdicts(const std::vector<Call>& calls, const Origin& ring);

    // The items that follow are of another ring, or of the log alone.
    void begin_stream() { time_ = 0; }

    // The items of a call, in brief in the plain form.
    void add(const Call& call, const Origin& ring);

    // A record is shown when its point begins as the options want it.
    void add(const Item& item, const Origin& ring);

    // The verdict on a call as a line among the others.
    void add_verdict(const Call& call, const Origin& ring);

    // Prints what was added, and forgets it: verdicts first, then the streams merged by time. A
    // clock that was set back does not change the order within a stream.
    void print();

private:
    struct Line {
        std::int64_t time;
        std::string text;
    };

    const Options& options_;
    std::string verdicts_;
    std::vector<Line> lines_;
    std::int64_t time_ = 0;  // the latest in the stream so far
};

}  // namespace ovrm_trace

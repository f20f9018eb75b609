// ovrm_trace_follow.cpp - looks at the rings again and again; see ovrm_trace_follow.hpp.
//
// A mapped ring is written without a system call, of which nobody is notified: it is looked at
// five times a second, and so are the directories for rings that were not there yet.
#include "ovrm_trace_follow.hpp"

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <utility>

#include "ovrm_trace_find.hpp"

namespace ovrm_trace {
namespace {

constexpr std::chrono::milliseconds kPoll{200};

// A ring, and the call that is running in it.
struct Watched {
    Source source;
    std::vector<Record> records;
    Call call;

    explicit Watched(Source ring) : source(std::move(ring)) {}

    void read(Report& report) {
        records.clear();
        source.read_new(records);
        report.begin_stream();
        for (const Record& record : records) {
            const bool first = call.items.empty();
            if (begins_call(record, first ? nullptr : as_record(call.items.back())))
                call.items.clear();
            call.items.emplace_back(record);
            report.add(call.items.back(), source.origin());
            if (has_ended(call)) report.add_verdict(call, source.origin());
        }
    }
};

class Follower {
public:
    Follower(const Options& options, std::vector<Source> sources) {
        for (Source& source : sources) rings_.emplace_back(std::move(source));
        patterns_ = options.rings;
        if (!options.last) return;
        patterns_ = {pattern_of_rings()};
        for (const std::string& path : unknown()) {
            rings_.emplace_back(Source(path, true));
            rings_.back().source.read_new(rings_.back().records);
        }
    }

    void look(Report& report) {
        for (const std::string& path : unknown()) rings_.emplace_back(Source(path, true));
        for (Watched& ring : rings_)
            if (ring.source.has_grown()) ring.read(report);
        report.print();
    }

private:
    // Files of the patterns that are not watched yet.
    [[nodiscard]] std::vector<std::string> unknown() const {
        std::vector<std::string> files;
        for (const std::string& pattern : patterns_)
            for (const std::string& path : matching(pattern))
                if (!is_watched(path)) files.push_back(path);
        return files;
    }
    [[nodiscard]] bool is_watched(const std::string& path) const {
        return std::any_of(rings_.begin(), rings_.end(),
                           [&](const Watched& ring) { return ring.source.origin().file == path; });
    }

    std::vector<std::string> patterns_;
    std::vector<Watched> rings_;
};

}  // namespace

void follow(const Options& options, std::vector<Source> sources, Report& report) {
    for (Follower follower(options, std::move(sources));; follower.look(report))
        std::this_thread::sleep_for(kPoll);
}

}  // namespace ovrm_trace

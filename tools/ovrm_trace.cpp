// ovrm_trace.cpp - what became of the calls in trace rings, and their records, merged with a mail
// log; see ovrm-trace(1).
//
// It reads the files only, so it may be used on the rings of a running program.
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <set>

#include "ovrm_trace_find.hpp"
#include "ovrm_trace_follow.hpp"
#include "ovrm_trace_merge.hpp"
#include "ovrm_trace_options.hpp"
#include "ovrm_trace_report.hpp"
#include "ovrm_trace_source.hpp"

namespace {

using namespace ovrm_trace;

// The ring that --last stands for, and its log when there is one. False: there is no ring.
bool find_last(Options& options) {
    const std::string ring = newest(matching(pattern_of_rings()));
    if (ring.empty()) {
        complain(pattern_of_rings(), options.follow ? "no ring yet, waiting" : "no ring there");
        return false;
    }
    options.rings = {ring};
    const std::string log = log_of(process_of_ring(ring));
    if (options.follow || !options.mail_log.empty()) return true;
    if (std::filesystem::exists(log)) {
        options.mail_log = log;
    } else {
        complain(log, "no such mail log; the ring alone is shown");
    }
    return true;
}

// The rings that are there. A name that is followed may stand for files that are not there yet.
std::vector<Source> sources_of(const Options& options) {
    std::vector<Source> sources;
    for (const std::string& name : options.rings) {
        if (options.follow) {
            const auto files = matching(name);
            if (files.empty()) complain(name, "not there yet, waiting");
            for (const std::string& file : files)
                sources.emplace_back(file,
                                     options.last || options.rings.size() > 1 || file != name);
        } else {
            sources.emplace_back(name, options.rings.size() > 1);
        }
    }
    return sources;
}

bool read_log(const std::string& path, std::vector<LogLine>& lines) {
    if (path.empty()) return true;
    const auto bytes = load(path);
    if (!bytes) return false;
    struct stat status {};
    ::stat(path.c_str(), &status);
    lines = read_mail_log(*bytes, status.st_mtime);
    return true;
}

// Calls of rings that are not shown, whose entries stand in the same mail log.
void add_siblings(const Options& options, std::vector<std::vector<Call>>& rings) {
    std::set<std::string> siblings;
    for (const std::string& ring : options.rings)
        for (const std::string& sibling : siblings_of(ring)) siblings.insert(sibling);
    for (const std::string& ring : options.rings) siblings.erase(ring);
    for (const std::string& ring : siblings) {
        std::vector<Record> records;
        Source source(ring, false);
        if (source.read_new(records)) rings.push_back(calls_of(records, source.process()));
    }
}

// Reads all there is, and prints it. Whether every file was sound.
bool print_all(const Options& options, std::vector<Source>& sources, Report& report) {
    bool sound = true;
    std::vector<std::vector<Call>> rings;
    for (Source& source : sources) {
        std::vector<Record> records;
        sound = source.read_new(records) && sound;
        rings.push_back(calls_of(records, source.process()));
    }
    std::vector<LogLine> lines;
    sound = read_log(options.mail_log, lines) && sound;
    if (!lines.empty()) add_siblings(options, rings);
    const std::vector<LogLine> others = weave(rings, lines);

    for (std::size_t i = 0; i < sources.size(); ++i) {
        report.begin_stream();
        report.add_verdicts(rings[i], sources[i].origin());
        for (const Call& call : rings[i]) report.add(call, sources[i].origin());
    }
    report.begin_stream();
    for (const LogLine& line : others) report.add(line, {});
    report.print();
    return sound;
}

}  // namespace

int main(int argc, char** argv) {
    Options options = parse_options(argc, argv);
    if (options.last && !find_last(options) && !options.follow) return EXIT_FAILURE;
    std::vector<Source> sources = sources_of(options);
    Report report(options);
    const bool sound = print_all(options, sources, report);
    if (options.follow) follow(options, std::move(sources), report);
    return sound ? EXIT_SUCCESS : EXIT_FAILURE;
}

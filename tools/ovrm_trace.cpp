// ovrm_trace.cpp - prints trace rings, and merges them with a mail log; see ovrm-trace(1).
//
// It reads the files only, so it may be used on the rings of a running program.
#include <getopt.h>
#include <sys/stat.h>
#include <sysexits.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ovrm_trace_log.hpp"
#include "ovrm_trace_print.hpp"
#include "ovrm_trace_ring.hpp"

namespace {

using ovrm_trace::Record;
using ovrm_trace::Ring;

constexpr std::chrono::milliseconds kPoll{200};

struct Options {
    bool json = false;
    bool follow = false;
    std::string prefix;
    std::string mail_log;
    std::vector<std::string> rings;
};

// What is printed, with the time by which it is placed among the rest.
struct Line {
    std::uint64_t time;
    std::string text;
};
using Lines = std::vector<Line>;

void complain(const std::string& file, const std::string& what) {
    std::cerr << "ovrm-trace: " << file << ": " << what << std::endl;
}

std::optional<std::string> load(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (file && !std::filesystem::is_directory(path))
        return std::string(std::istreambuf_iterator<char>(file), {});
    complain(path, file ? "is a directory" : std::strerror(errno));
    return std::nullopt;
}

// One ring: its records so far, and later what was added.
class Source {
public:
    Source(std::string path, const Options& options) : path_(std::move(path)), options_(options) {}

    // Appends the records that are new since the last call. Returns false, having said why, when
    // the file is missing or damaged.
    bool read_new(Lines& lines) {
        const auto bytes = load(path_);
        if (!bytes) return false;
        const Ring ring = ovrm_trace::read_ring(*bytes);
        if (!ring.problem.empty() && !next_) complain(path_, ring.problem);
        std::uint64_t time = 0;  // of the latest so far: a clock set back does not change the order
        for (auto record = first_new(ring); record != ring.records.end(); ++record) {
            time = std::max<std::uint64_t>(time, record->time);
            if (record->point.starts_with(options_.prefix)) lines.push_back({time, text(*record)});
        }
        next_ = ring.next;
        return ring.problem.empty();
    }

    [[nodiscard]] bool has_grown() const {
        std::uint32_t next = 0;
        std::ifstream file(path_, std::ios::binary);
        return file.read(reinterpret_cast<char*>(&next), sizeof next) && next != next_;
    }

private:
    using Position = std::vector<Record>::const_iterator;

    // The record that began where the last reading ended; all of them when it was overwritten.
    [[nodiscard]] Position first_new(const Ring& ring) const {
        if (!next_) return ring.records.begin();
        const auto found = std::find_if(ring.records.begin(), ring.records.end(),
                                        [&](const Record& record) { return record.at == *next_; });
        if (found != ring.records.end() || *next_ == ring.next) return found;
        complain(path_, "some records were overwritten before they could be read");
        return ring.records.begin();
    }

    [[nodiscard]] std::string text(const Record& record) const {
        if (options_.json) return as_json(record, path_);
        const bool named = options_.rings.size() > 1;
        return as_text(record, named ? std::filesystem::path(path_).stem().string() : "");
    }

    std::string path_;
    const Options& options_;
    std::optional<std::uint32_t> next_;
};

bool read_log(const Options& options, Lines& lines) {
    const auto bytes = load(options.mail_log);
    if (!bytes) return false;
    struct stat status {};
    ::stat(options.mail_log.c_str(), &status);
    std::uint64_t time = 0;
    for (const auto& line : ovrm_trace::read_mail_log(*bytes, status.st_mtime)) {
        time = std::max(time, static_cast<std::uint64_t>(line.time));
        lines.push_back({time, options.json
                                   ? ovrm_trace::as_json(line.time, line.text, options.mail_log)
                                   : ovrm_trace::as_text(line.time, line.text)});
    }
    return true;
}

void print(Lines& lines) {
    std::stable_sort(lines.begin(), lines.end(),
                     [](const Line& a, const Line& b) { return a.time < b.time; });
    for (const Line& line : lines) std::cout << line.text;
    std::cout.flush();
    lines.clear();
}

[[noreturn]] void follow(std::vector<Source>& sources) {
    for (Lines lines;; print(lines)) {
        std::this_thread::sleep_for(kPoll);
        for (Source& source : sources) {
            if (source.has_grown()) source.read_new(lines);
        }
    }
}

void usage(std::ostream& to) {
    to << "usage: ovrm-trace [--json] [--follow] [--grep PREFIX] FILE...\n"
          "       ovrm-trace --mail-log LOG [--json] [--grep PREFIX] FILE...\n"
          "Prints the records of trace rings, oldest first; see ovrm-trace(1).\n";
}

bool parse(int argc, char** argv, Options& options) {
    static const option kLong[] = {
        {"json", no_argument, nullptr, 'j'},       {"follow", no_argument, nullptr, 'f'},
        {"grep", required_argument, nullptr, 'g'}, {"mail-log", required_argument, nullptr, 'l'},
        {"help", no_argument, nullptr, 'h'},       {},
    };
    for (int c = 0; (c = ::getopt_long(argc, argv, "jfg:l:h", kLong, nullptr)) != -1;) {
        switch (c) {
            case 'j':
                options.json = true;
                break;
            case 'f':
                options.follow = true;
                break;
            case 'g':
                options.prefix = optarg;
                break;
            case 'l':
                options.mail_log = optarg;
                break;
            case 'h':
                usage(std::cout);
                std::exit(EX_OK);
            default:
                return false;
        }
    }
    options.rings.assign(argv + optind, argv + argc);
    return !options.rings.empty() && !(options.follow && !options.mail_log.empty());
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) {
        usage(std::cerr);
        return EX_USAGE;
    }
    bool sound = true;
    Lines lines;
    std::vector<Source> sources;
    for (const std::string& ring : options.rings) {
        sources.emplace_back(ring, options);
        sound = sources.back().read_new(lines) && sound;
    }
    if (!options.mail_log.empty()) sound = read_log(options, lines) && sound;
    print(lines);
    if (options.follow) follow(sources);
    return sound ? EXIT_SUCCESS : EXIT_FAILURE;
}

// ovrm_trace_source.cpp - reads files; see ovrm_trace_source.hpp.
#include "ovrm_trace_source.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "ovrm_trace_find.hpp"
#include "ovrm_trace_text.hpp"

namespace ovrm_trace {
namespace {

// The first word, where the ring says how far it is written; 0 when there is none yet.
std::uint32_t header_of(std::istream& file) {
    std::uint32_t header = 0;
    return file.read(reinterpret_cast<char*>(&header), sizeof header) ? header : 0;
}
std::uint32_t header_at(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return header_of(file);
}

// The ring at one moment: what is written while it is read stands where the oldest records are
// looked for, so it is read again then.
std::optional<std::string> load_ring(const std::string& path, std::uint32_t& header) {
    constexpr int kAttempts = 50;
    std::optional<std::string> bytes;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        bytes = load(path);
        if (!bytes) break;
        std::istringstream begin(bytes->substr(0, sizeof header));
        header = header_of(begin);
        if (header == header_at(path)) break;
    }
    return bytes;
}

}  // namespace

void complain(const std::string& file, const std::string& what) {
    std::cerr << "ovrm-trace: " << escaped(file) << ": " << what << std::endl;
}

std::optional<std::string> load(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (file && !std::filesystem::is_directory(path)) {
        std::ostringstream bytes;
        bytes << file.rdbuf();
        return bytes.str();
    }
    complain(path, file ? "is a directory" : std::strerror(errno));
    return std::nullopt;
}

Source::Source(const std::string& path, bool named)
    : origin_{path, named ? std::filesystem::path(path).stem().string() : ""},
      process_(process_of_ring(path)) {}

bool Source::read_new(std::vector<Record>& records) {
    const auto bytes = load_ring(origin_.file, header_);
    if (!bytes) return false;
    const Ring ring = read_ring(*bytes);
    if (!ring.problem.empty() && !next_) complain(origin_.file, ring.problem);
    records.insert(records.end(), first_new(ring), ring.records.end());
    next_ = ring.next;
    return ring.problem.empty();
}

bool Source::has_grown() const {
    const std::uint32_t header = header_at(origin_.file);
    return header != 0 && header != header_;
}

// The record that began where the last reading ended; all of them when it was overwritten.
Source::Position Source::first_new(const Ring& ring) const {
    if (!next_) return ring.records.begin();
    const auto found = std::find_if(ring.records.begin(), ring.records.end(),
                                    [&](const Record& record) { return record.at == *next_; });
    if (found != ring.records.end() || *next_ == ring.next) return found;
    complain(origin_.file, "some records were overwritten before they could be read");
    return ring.records.begin();
}

}  // namespace ovrm_trace

// ovrm_trace_source.hpp - the files that are read: a ring, and what is added to it later.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ovrm_trace_print.hpp"
#include "ovrm_trace_ring.hpp"

namespace ovrm_trace {

// Tells on standard error what is wrong with a file.
void complain(const std::string& file, const std::string& what);

// The whole file; nullopt, having said why, when it cannot be read.
std::optional<std::string> load(const std::string& path);

class Source {
public:
    // `named`: its lines bear the name of the ring.
    Source(const std::string& path, bool named);

    // Appends the records that are new since the last call. Returns false, having said why, when
    // the file is missing or damaged.
    bool read_new(std::vector<Record>& records);

    [[nodiscard]] bool has_grown() const;
    [[nodiscard]] const Origin& origin() const { return origin_; }
    [[nodiscard]] int process() const { return process_; }

private:
    using Position = std::vector<Record>::const_iterator;
    [[nodiscard]] Position first_new(const Ring& ring) const;

    Origin origin_;
    int process_;
    std::optional<std::uint32_t> next_;  // where the last reading ended
    std::uint32_t header_ = 0;           // what stood there then, as it stands in the file
};

}  // namespace ovrm_trace

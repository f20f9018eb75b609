// ovrm_trace_ring.hpp - the records of a trace ring, read back from the bytes of its file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ovrm_trace {

struct Record {
    std::int64_t time = 0;  // seconds since the Epoch
    std::string point;
    std::string data;      // empty: none
    std::size_t at = 0;    // offset in the file at which the record starts
    std::size_t nth = 0;   // how many records with the same point stand directly in front
    bool swapped = false;  // written by a machine of the other byte order
    bool whole = false;    // the exit of a step, and in place of its entry too: see in_brief()
};

// The data as a number, of records with 4 bytes.
std::optional<std::int32_t> number(const Record& record);

struct Ring {
    std::vector<Record> records;  // oldest first
    std::uint32_t next = 0;       // offset at which the next record will start
    std::string problem;          // what is wrong with the file; empty: nothing
};

Ring read_ring(std::string_view file);

}  // namespace ovrm_trace

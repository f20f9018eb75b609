// ovrm_trace_ring.hpp - the records of a trace ring, read back from the bytes of its file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ovrm_trace {

struct Record {
    std::uint32_t time;  // seconds since the Epoch
    std::string point;
    std::string data;  // empty: none
    std::size_t at;    // offset in the file at which the record starts
};

struct Ring {
    std::vector<Record> records;  // oldest first
    std::uint32_t next = 0;       // offset at which the next record will start
    std::string problem;          // what is wrong with the file; empty: nothing
};

Ring read_ring(std::string_view file);

}  // namespace ovrm_trace

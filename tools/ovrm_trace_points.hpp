// ovrm_trace_points.hpp - what each trace point of the library means.
//
// One row for each point: where it is written, what its data is, and words for people. The build
// compares the table with the sources (check_trace_points.py), in both directions.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ovrm_trace {

enum class Role {
    kEntry,
    kExit,
    kDetail,
    kStep,   // a step that failed: `text` names the step
    kWrong,  // `text` says what is wrong
    kCarry,  // hands on what failed below it, or moves bytes for a step
};

enum class Data {
    kNone,
    kResult,    // result of the call, as in mail_types.h
    kSmtp,      // a code of smtp/result.hpp
    kPop,       // a code of pop3/transport.hpp
    kMime,      // a code of mime/result.hpp
    kCode,      // a number that says no more than that it failed
    kErrno,     // errno
    kResolver,  // a code of netdb.h
    kLookup,    // either: 1 to 4 are the resolver's
    kNumber,    // `text` says of what
    kText,
    kSent,      // bytes as they go to the server
    kReceived,  // bytes as they came from it
    kOfCall,    // several records: code, socket, error, sender, recipients, boundary, piece, pieces
    kOfFile,    // two records: code, errno
};

struct Meaning {
    const char* file;
    const char* function;  // or the table that holds the point
    Role role;
    Data data;
    const char* text;
};

// Null for a point that the library does not have.
const Meaning* meaning_of(std::string_view point);

inline bool is_failure(Role role) {
    return role == Role::kStep || role == Role::kWrong || role == Role::kCarry;
}

// What the n-th of several records with one point holds, counted from 0.
Data data_of(const Meaning& meaning, std::size_t n);

// What that is called behind a comma: ", sender". Empty for the code, which needs no name.
std::string part_of(const Meaning& meaning, std::size_t n);

// How the step ended that a code of the clients tells of.
enum class Ending {
    kUnknown,
    kRefused,
    kTimedOut,
    kNotSent,
    kNotReceived,
    kNoMechanism,
};
Ending ending_of(Data data, std::int32_t code);

}  // namespace ovrm_trace

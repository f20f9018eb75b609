// ovrm_trace_words.cpp - numbers in words; see ovrm_trace_words.hpp.
#include "ovrm_trace_words.hpp"

#include <netdb.h>

#include <cstring>

namespace ovrm_trace {
namespace {

bool is_number(Data data) {
    switch (data) {
        case Data::kNone:
        case Data::kText:
        case Data::kSent:
        case Data::kReceived:
            return false;
        default:
            return true;
    }
}

const char* words_of(Ending ending) {
    switch (ending) {
        case Ending::kRefused:
            return "refused";
        case Ending::kTimedOut:
            return "time-out";
        case Ending::kNotSent:
            return "sending failed";
        case Ending::kNotReceived:
            return "receiving failed";
        case Ending::kNoMechanism:
            return "no mechanism in common";
        case Ending::kUnknown:
            break;
    }
    return "";
}

// Resolver and system share the field; below 5 it is the resolver in practice.
const char* message_of(Data data, std::int32_t error) {
    const bool is_resolver = data == Data::kResolver || (data == Data::kLookup && error <= NO_DATA);
    return is_resolver ? ::hstrerror(error) : std::strerror(error);
}

const char* role_words(Role role, bool whole) {
    switch (role) {
        case Role::kEntry:
            return "begin: ";
        case Role::kExit:
            return whole ? "done: " : "end: ";
        case Role::kWrong:
            return "wrong: ";
        case Role::kStep:
        case Role::kCarry:
            return "failed: ";
        case Role::kDetail:
            break;
    }
    return "";
}

}  // namespace

std::string number_words(Data data, std::int32_t value) {
    const std::string digits = std::to_string(value);
    const bool is_error = data == Data::kErrno || data == Data::kResolver || data == Data::kLookup;
    const std::string words =
        is_error && value != 0 ? message_of(data, value) : words_of(ending_of(data, value));
    return words.empty() ? digits : digits + " (" + words + ")";
}

std::string error_words(Data data, std::int32_t error) {
    return std::string(message_of(data, error)) + " (" + std::to_string(error) + ")";
}

bool fits(const Meaning& meaning, const Record& record) {
    const Data data = data_of(meaning, record.nth);
    if (data == Data::kNone) return record.data.empty();
    return !is_number(data) || record.data.size() == sizeof(std::int32_t);
}

std::string record_words(const Meaning& meaning, const Record& record) {
    const std::string words = std::string(role_words(meaning.role, record.whole)) + meaning.text +
                              part_of(meaning, record.nth);
    const Data data = data_of(meaning, record.nth);
    const auto value = number(record);
    return is_number(data) && value ? words + ": " + number_words(data, *value) : words;
}

}  // namespace ovrm_trace

// ovrm_trace_failure.hpp - a failure in the records of a call, explained.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ovrm_trace_call.hpp"
#include "ovrm_trace_points.hpp"

namespace ovrm_trace {

using Items = std::vector<Item>;

// The chain of failing points that ends in front of item `end`, or right there: the step that
// failed, those that moved its bytes, those that handed its code on.
class Failure {
public:
    Failure(const Items& items, std::size_t end);

    // "RCPT TO:<ann@example.com> was refused: 550 5.1.1 user unknown". Empty when there is none.
    [[nodiscard]] std::string text() const;

    // The point of the step that failed; empty when there is none.
    [[nodiscard]] std::string_view step() const;

    // How the step ended, kUnknown where there is none.
    [[nodiscard]] Ending ending() const;

private:
    [[nodiscard]] const Record& record(std::size_t i) const { return *as_record(items_[i]); }
    [[nodiscard]] std::string sentence() const;
    [[nodiscard]] std::string subject() const;
    [[nodiscard]] std::string what_is_wrong() const;
    [[nodiscard]] std::string refusal() const;
    [[nodiscard]] std::string time_out() const;
    [[nodiscard]] std::string error() const;
    [[nodiscard]] std::string piece() const;
    [[nodiscard]] const LogLine* error_entry() const;

    const Items& items_;
    std::vector<std::size_t> chain_;  // innermost first
    std::size_t step_ = 0;
    const Meaning* meaning_ = nullptr;  // of the step; null: no failure
    bool sending_ = false;              // it failed while bytes went out
};

// The reply that was complete right in front of item `end`: of the mail log, or where every detail
// is traced, of the ring. Escaped; empty when neither has it.
std::string reply_before(const Items& items, std::size_t end);

}  // namespace ovrm_trace

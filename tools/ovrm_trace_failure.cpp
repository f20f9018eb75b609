// ovrm_trace_failure.cpp - finds what failed, and says it; see ovrm_trace_failure.hpp.
//
// The innermost step is named, with the command, the reply, the time-out or the system's error
// that goes with it. Each of these is looked for next to the failing points, in the entries of the
// mail log first: what stands further away belongs to another step.
#include "ovrm_trace_failure.hpp"

#include <algorithm>
#include <charconv>
#include <iterator>

#include "ovrm_trace_text.hpp"
#include "ovrm_trace_words.hpp"

namespace ovrm_trace {
namespace {

constexpr std::string_view kReplyBegins[] = {"smtp0d00", "Pop3_0a00"};
constexpr std::string_view kReplyEnds[] = {"smtp0dFF", "Pop3_0aff"};
constexpr std::string_view kSendFails[] = {"smtp0e10", "smtp0e01", "Pop3_0b10"};
constexpr std::string_view kCleanUp[] = {"ENDPROC0000", "ENDPROCFFFF", "GETSMTP0000",
                                         "GETSMTPFFFF"};

template <std::size_t N>
bool is_one_of(const std::string_view (&points)[N], const Record& record) {
    return std::find(std::begin(points), std::end(points), record.point) != std::end(points);
}

bool is_detail(const Record& record) {
    const Meaning* const meaning = meaning_of(record.point);
    return meaning != nullptr && meaning->role == Role::kDetail;
}

bool holds(const Record& record, Data data) {
    const Meaning* const meaning = meaning_of(record.point);
    return meaning != nullptr && meaning->data == data;
}

// What may stand among the points of a failure.
bool is_passed_over(const Meaning& meaning, const Record& record) {
    const bool failed_exit = meaning.role == Role::kExit && number(record).value_or(0) < 0;
    return failed_exit || meaning.role == Role::kDetail || is_one_of(kCleanUp, record);
}

std::string one_line(std::string_view bytes) {
    constexpr std::size_t kMost = 255;
    while (bytes.ends_with('\n') || bytes.ends_with('\r')) bytes.remove_suffix(1);
    return escaped(bytes.substr(0, kMost)) + (bytes.size() > kMost ? "..." : "");
}

// The number behind `key` in the entry; 0 when there is none.
std::int32_t number_behind(std::string_view key, const LogLine& entry) {
    std::int32_t value = 0;
    const std::size_t at = entry.text.find(key);
    if (at == std::string::npos) return value;
    const char* const end = entry.text.data() + entry.text.size();
    std::from_chars(entry.text.data() + at + key.size(), end, value);
    return value;
}

}  // namespace

std::string reply_before(const Items& items, std::size_t end) {
    for (bool in_reply = false; end-- > 0;) {
        if (const LogLine* const line = as_line(items[end])) {
            if (line->entry == Entry::kReceived) return one_line(said(*line));
            continue;
        }
        const Record& record = *as_record(items[end]);
        if (in_reply && holds(record, Data::kReceived)) return one_line(record.data);
        in_reply = in_reply || is_one_of(kReplyEnds, record);
        const bool elsewhere = !in_reply && !is_detail(record);
        if (elsewhere || is_one_of(kReplyBegins, record)) break;
    }
    return {};
}

Failure::Failure(const Items& items, std::size_t end) : items_(items) {
    for (std::size_t i = end; i-- > 0;) {
        if (as_record(items[i]) == nullptr) continue;
        const Meaning* const meaning = meaning_of(record(i).point);
        if (meaning == nullptr) break;
        if (!is_failure(meaning->role)) {
            if (is_passed_over(*meaning, record(i))) continue;
            break;
        }
        chain_.insert(chain_.begin(), i);
        sending_ = sending_ || is_one_of(kSendFails, record(i));
        if (meaning->role == Role::kCarry && meaning_ != nullptr) continue;
        step_ = i;
        meaning_ = meaning;
    }
}

std::string Failure::text() const { return meaning_ == nullptr ? "" : sentence() + piece(); }

std::string_view Failure::step() const {
    return meaning_ == nullptr ? std::string_view() : record(step_).point;
}

std::string Failure::sentence() const {
    if (meaning_->role == Role::kWrong) return what_is_wrong();
    const std::string why = error();
    switch (ending()) {
        case Ending::kRefused:
            return refusal();
        case Ending::kTimedOut:
            return time_out();
        case Ending::kNotSent:
            return subject() + ": sending failed" + why;
        case Ending::kNotReceived:
            return subject() + (why.empty() ? ": the server closed the connection"
                                            : ": receiving failed" + why);
        case Ending::kNoMechanism:
            return subject() + ": the server offers none of the mechanisms allowed";
        case Ending::kUnknown:
            break;
    }
    return subject() + " failed" + why;
}

Ending Failure::ending() const {
    if (meaning_ == nullptr) return Ending::kUnknown;
    const Data data = data_of(*meaning_, record(step_).nth);
    const Ending ending = ending_of(data, number(record(step_)).value_or(0));
    const bool moved_bytes = data == Data::kPop && ending == Ending::kUnknown;
    if (!moved_bytes) return ending;
    return sending_ ? Ending::kNotSent : Ending::kNotReceived;
}

// The command, where it is known, else the name of the step. A command that could not be sent is
// not in the mail log: the last one there is another.
std::string Failure::subject() const {
    for (std::size_t i = chain_.front(); i-- > 0;) {
        std::string sent;
        if (const LogLine* const line = as_line(items_[i])) {
            if (line->entry == Entry::kSent && !sending_) sent = one_line(said(*line));
        } else if (holds(record(i), Data::kSent)) {
            sent = one_line(record(i).data);
        }
        if (!sent.empty()) return sent.starts_with(meaning_->text) ? sent : meaning_->text;
    }
    return meaning_->text;
}

std::string Failure::what_is_wrong() const {
    const auto value = number(record(step_));
    return meaning_->data == Data::kNumber && value
               ? std::string(meaning_->text) + ": " + std::to_string(*value)
               : meaning_->text;
}

std::string Failure::refusal() const {
    const bool greeting = std::string_view(meaning_->text).ends_with("greeting");
    const std::string reply = reply_before(items_, chain_.front());
    const bool has_log = std::any_of(items_.begin(), items_.end(),
                                     [](const Item& item) { return as_line(item) != nullptr; });
    return subject() + (greeting ? " is a refusal" : " was refused") +
           (reply.empty() && !has_log ? " (the mail log has the reply)"
                                      : (reply.empty() ? "" : ": ") + reply);
}

std::string Failure::time_out() const {
    const LogLine* const entry = error_entry();
    const std::int32_t seconds = entry != nullptr ? number_behind("(timer=", *entry) : 0;
    return subject() + (sending_ ? ": not sent" : ": no answer") +
           (seconds > 0 ? " within " + std::to_string(seconds) + " seconds" : " in time");
}

// ": Connection refused (111)", or nothing.
std::string Failure::error() const {
    for (const std::size_t i : chain_) {
        const Data data = data_of(*meaning_of(record(i).point), record(i).nth);
        const bool is_error =
            data == Data::kErrno || data == Data::kResolver || data == Data::kLookup;
        const std::int32_t value = is_error ? number(record(i)).value_or(0) : 0;
        if (value != 0) return ": " + error_words(data, value);
    }
    const LogLine* const entry = error_entry();
    const std::int32_t value = entry != nullptr ? number_behind(" detail=", *entry) : 0;
    return value != 0 ? ": " + error_words(Data::kLookup, value) : "";
}

// " (piece 2 of 4)", or nothing.
std::string Failure::piece() const {
    constexpr std::size_t kNumber = 6;  // among the records of Data::kOfCall
    constexpr std::size_t kTotal = 7;
    std::int32_t number_of_piece = 0;
    std::int32_t total = 0;
    for (const std::size_t i : chain_) {
        if (meaning_of(record(i).point)->data != Data::kOfCall) continue;
        if (record(i).nth == kNumber) number_of_piece = number(record(i)).value_or(0);
        if (record(i).nth == kTotal) total = number(record(i)).value_or(0);
    }
    if (number_of_piece == 0 || number_of_piece > total) return {};
    return " (piece " + std::to_string(number_of_piece) + " of " + std::to_string(total) + ")";
}

// The entry that was written with the first of the failing points, or null.
const LogLine* Failure::error_entry() const {
    for (std::size_t i = chain_.front(); i-- > 0;) {
        const LogLine* const line = as_line(items_[i]);
        if (line != nullptr && line->entry == Entry::kError) return line;
        if (line == nullptr && !is_detail(record(i))) break;
    }
    return nullptr;
}

}  // namespace ovrm_trace

// blocks.cpp - sends a buffer in units, each with the trace records of its own SMTP_send; see
// blocks.hpp.
//
// Called between DATA and the end mark, for the blocks of a mail and the header lines of a piece.
// No state. Time-out of a block: RFC 5321 section 4.5.3.2.5.
#include "smtp/blocks.hpp"

#include <algorithm>
#include <optional>

#include "log/trace_bulk.hpp"
#include "log/trace_scope.hpp"
#include "smtp.h"
#include "smtp/transport.hpp"

namespace ovrmail::smtp {
namespace {

using log::TraceScope;

enum Clock : bool { kRunsOn, kRestarts };  // what the clock does when a unit begins

struct Unit {
    std::size_t length;
    const char* point;  // null: not noted
};

// The bytes of all records of a block in the ring, those of its clock included.
std::size_t records_of_block(std::size_t block) noexcept {
    const struct {
        std::uint32_t level;
        std::string_view point;
        std::size_t data;
    } records[] = {
        {log::kLevelFrame, "SETSTART0000", 0},
        {log::kLevelFrame, "SETSTARTFFFF", 0},
        {log::kLevelFrame, "SMTP_s0000", 0},
        {log::kLevelFrame, "smtp0e00", 0},
        {log::kLevelDetail, "smtp0e05", block},
        {log::kLevelFrame, "smtp0eFF", sizeof(std::int32_t)},
        {log::kLevelFrame, "SMTP_sFFFF", sizeof(std::int32_t)},
    };
    std::size_t size = 0;
    for (const auto& record : records)
        size += log::record_size(g_trace, record.level, record.point, record.data);
    return size;
}

// `unit_of(n)` is unit n of the buffer.
template <class UnitOf>
class Units {
public:
    // `block`: the length of every unit but the last, none of which has a point; 0: they differ.
    Units(std::span<const char> bytes, UnitOf unit_of, Clock clock, std::size_t block) noexcept
        : bytes_(bytes), unit_of_(unit_of), clock_(clock), block_(block) {}

    Result send(int sock, std::uint32_t* err) noexcept {
        if (bytes_.empty()) return kOk;
        net::Sender sender(sock, bytes_, send_rules(net::Follow::kMore), running_budget());
        begin_up_to(0);
        net::Report report;
        while (!sender.step(report))
            if (begin_up_to(bytes_.size() - sender.left())) sender.begin_unit();
        const Result result = judge(report, kSend, err);
        if (result == kOk) begin_up_to(bytes_.size());
        end(result);
        return result;
    }

private:
    // Begins the units that start at or below `offset`. Returns whether there are any.
    bool begin_up_to(std::size_t offset) noexcept {
        const std::size_t before = next_;
        if (block_ != 0) pass_over_units(offset);
        while (next_ <= offset && next_ < bytes_.size()) {
            end(kOk);
            if (clock_ == kRestarts) SMTP_SetStartTime();
            const Unit unit = unit_of_(count_++);
            const std::string_view text(bytes_.data() + next_,
                                        std::min(unit.length, bytes_.size() - next_));
            if (unit.point != nullptr) log::note(unit.point, text);
            outer_.emplace("SMTP_s0000", "SMTP_sFFFF");
            inner_.emplace("smtp0e00", "smtp0eFF");
            inner_->note("smtp0e05", text);
            next_ += text.size();
        }
        return next_ != before;
    }

    // Of the blocks that begin together only the last ones leave records that stay in the ring.
    void pass_over_units(std::size_t offset) noexcept {
        const std::size_t beginning = std::min(offset, bytes_.size() - 1);
        if (next_ > beginning) return;
        const std::size_t count = (beginning - next_) / block_ + 1;
        const std::size_t size = records_of_block(block_);
        const std::size_t staying = size == 0 ? 1 : log::record_room(g_trace) / size + 2;
        if (count <= staying) return;
        end(kOk);
        log::pass_over(g_trace, std::uint64_t{count - staying} * size);
        next_ += (count - staying) * block_;
    }

    void end(Result result) noexcept {
        if (!inner_) return;
        result == kOk ? inner_->leave(result) : inner_->fail("smtp0e10", result);
        result == kOk ? outer_->leave(result) : outer_->fail("SMTP_s0010", result);
        inner_.reset();
        outer_.reset();
    }

    std::span<const char> bytes_;
    UnitOf unit_of_;
    Clock clock_;
    std::size_t block_;
    std::optional<TraceScope> outer_, inner_;
    std::size_t next_ = 0;  // where the next unit begins
    std::size_t count_ = 0;
};

}  // namespace

std::int32_t send_blocks(int sock, std::span<const char> bytes, std::size_t block,
                         std::uint32_t* err) noexcept {
    const auto unit = [block](std::size_t) { return Unit{block, nullptr}; };
    return Units(bytes, unit, kRestarts, block).send(sock, err);
}

std::int32_t send_lines(int sock, std::span<const TracedLine> lines, std::uint32_t* err) noexcept {
    if (lines.empty()) return kOk;
    const std::string_view last = lines.back().text;
    const std::span<const char> bytes(lines.front().text.data(), last.data() + last.size());
    const auto unit = [lines](std::size_t n) { return Unit{lines[n].text.size(), lines[n].point}; };
    return Units(bytes, unit, kRunsOn, 0).send(sock, err);
}

}  // namespace ovrmail::smtp

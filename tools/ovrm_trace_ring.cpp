// ovrm_trace_ring.cpp - finds the records of a ring.
//
// The file says where the next record will start, but neither how long the ring is nor where a
// record ends: "SSSS" time zero point ["XXXX" data] "EEEE", broken anywhere at the ring's end. The
// ring is laid out straight, oldest byte first, and cut at what looks like the head of a record;
// heads inside data are told by an impossible time. The oldest record has usually lost its head.
#include "ovrm_trace_ring.hpp"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>
#include <map>

#include "log/trace_handle.hpp"

namespace ovrm_trace {
namespace {

constexpr std::size_t npos = std::string_view::npos;
constexpr std::size_t kUnit = ovrmail::log::kRingUnit;
constexpr std::size_t kFirst = ovrmail::log::kRingStart;
constexpr std::string_view kStart = ovrmail::log::kStartMarker;
constexpr std::string_view kData = ovrmail::log::kDataMarker;
constexpr std::string_view kEnd = ovrmail::log::kEndMarker;
constexpr std::size_t kHead = kStart.size() + 8;  // the mark, time, zero
constexpr std::size_t kLongestPoint = 1024;
constexpr std::size_t kMostLengths = 128;  // ring lengths tried for a file longer than its ring
constexpr std::uint32_t kMonth = 30 * 24 * 3600;

enum class Order : bool { kHost, kOther };  // of the bytes of a word

std::uint32_t word_at(std::string_view bytes, std::size_t at, Order order) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes.data() + at, sizeof word);
    return order == Order::kHost ? word : __builtin_bswap32(word);
}

// Records in the order in which they were written, without a gap between them.
using Run = std::vector<Record>;

// How often data of a length occurs with a trace point.
using Lengths = std::map<std::string, std::map<std::size_t, int>>;

// A record found in the straight ring: [start, end), followed by the next head or by a gap.
struct Cut {
    std::size_t end = 0;
    bool whole = false;
    bool gap = true;  // what follows was not written right after it
    std::size_t next = npos;
};

class Straight {
public:
    Straight(std::string_view file, std::size_t next, std::size_t size, Order order)
        : next_(next), tail_(size - next), order_(order) {
        bytes_.reserve(size - kFirst);
        bytes_ += file.substr(next, tail_);
        bytes_ += file.substr(kFirst, next - kFirst);
        view_ = bytes_;
    }
    Straight(const Straight&) = delete;
    Straight& operator=(const Straight&) = delete;

    [[nodiscard]] std::vector<Run> runs() const {
        std::vector<Run> found(1);
        for (std::size_t at = head_from(0); at != npos;) {
            const Cut cut = cut_at(at);
            if (cut.whole) found.back().push_back(record(at, cut.end));
            if (cut.gap && !found.back().empty()) found.emplace_back();
            at = cut.next;
        }
        return found;
    }

    // How little what lies across `seam` looks like one record after another: 0 is faultless.
    [[nodiscard]] int doubt_at(std::size_t seam, const Lengths& usual) const {
        const std::size_t start = head_before(seam);
        if (start == npos) return 0;
        const Cut cut = cut_at(start);
        if (!cut.whole) return 4;
        if (cut.end <= seam) return cut.gap ? 2 : 0;
        const Record crossing = record(start, cut.end);
        const bool backwards = cut.next != npos && std::int64_t{time_at(cut.next)} < crossing.time;
        return (backwards ? 2 : 0) + (is_odd(crossing, usual) ? 2 : 0);
    }
    [[nodiscard]] std::size_t seam_of(std::size_t file_offset) const { return file_offset - next_; }

private:
    // Whether nearly all others with this trace point have data of one length, and this has not.
    static bool is_odd(const Record& record, const Lengths& usual) {
        constexpr int kFew = 10;  // in one that is not
        const auto found = usual.find(record.point);
        if (found == usual.end()) return false;
        int most = 0;
        int others = 0;
        for (const auto& [length, count] : found->second) {
            if (length == record.data.size() && count > 1) return false;
            others += std::min(most, count);
            most = std::max(most, count);
        }
        return most >= kFew * std::max(1, others);
    }

    [[nodiscard]] std::uint32_t word(std::size_t at) const { return word_at(view_, at, order_); }
    [[nodiscard]] std::uint32_t time_at(std::size_t head) const { return word(head + 4); }

    [[nodiscard]] bool is_head(std::size_t at) const {
        if (view_.size() - at < kHead + kEnd.size() || word(at + 8) != 0) return false;
        const std::string_view rest = view_.substr(at + kHead, kLongestPoint);
        const auto end = std::find_if(rest.begin(), rest.end(),
                                      [](unsigned char c) { return std::isgraph(c) == 0; });
        const std::string_view text = rest.substr(0, static_cast<std::size_t>(end - rest.begin()));
        return text.find(kData) != npos || text.find(kEnd) != npos;
    }
    [[nodiscard]] std::size_t head_from(std::size_t at) const {
        for (;; ++at) {
            at = view_.find(kStart, at);
            if (at == npos || is_head(at)) return at;
        }
    }
    [[nodiscard]] std::size_t head_before(std::size_t at) const {
        std::size_t end = std::min(at + kStart.size() - 1, view_.size());
        while (const void* const last = ::memrchr(view_.data(), kStart.back(), end)) {
            end = static_cast<std::size_t>(static_cast<const char*>(last) - view_.data());
            if (end + 1 < kStart.size()) break;
            const std::size_t start = end + 1 - kStart.size();
            if (view_.substr(start).starts_with(kStart) && is_head(start)) return start;
        }
        return npos;
    }

    [[nodiscard]] bool ends_with_marker(std::size_t start, std::size_t end) const {
        return end - start >= kHead + kEnd.size() && view_.substr(0, end).ends_with(kEnd);
    }

    // Whether the head at `inner`, behind the one at `start`, is a piece of that record's data:
    // its time then fits neither, while the heads around it agree.
    [[nodiscard]] bool is_data(std::size_t start, std::size_t inner) const {
        const std::uint32_t before = time_at(start);
        const std::uint32_t time = time_at(inner);
        const std::size_t after_head = head_from(inner + 1);
        if (after_head == npos) return time + kMonth < before || time > before + kMonth;
        const std::uint32_t after = time_at(after_head);
        return after >= before && (time < before || time > after);
    }

    [[nodiscard]] Cut cut_at(std::size_t start) const {
        std::optional<Cut> fallback;
        for (std::size_t next = head_from(start + 1);; next = head_from(next + 1)) {
            const std::size_t limit = next == npos ? view_.size() : next;
            const bool real = next == npos || !is_data(start, next);
            if (!fallback) fallback = Cut{limit, false, true, next};
            if (!real) continue;
            if (ends_with_marker(start, limit)) return whole(start, limit, next);
            const std::size_t end = end_before_blank(start, limit);
            return end != 0 ? Cut{end, true, true, next} : *fallback;
        }
    }

    // A record that ends where the next one starts. When time runs backwards there, two
    // generations of the ring meet: the record then ends at its first end marker.
    [[nodiscard]] Cut whole(std::size_t start, std::size_t limit, std::size_t next) const {
        if (next == npos || time_at(next) >= time_at(start)) return {limit, true, false, next};
        const std::size_t first = view_.find(kEnd, start + kHead) + kEnd.size();
        return {first, true, first != limit, next};
    }

    // The end of a record that is followed by nothing but zeros, or 0.
    [[nodiscard]] std::size_t end_before_blank(std::size_t start, std::size_t limit) const {
        const std::size_t last = view_.find_last_not_of('\0', limit - 1);
        if (last == npos || last < start || last + 1 == limit) return 0;
        return ends_with_marker(start, last + 1) ? last + 1 : 0;
    }

    [[nodiscard]] Record record(std::size_t start, std::size_t end) const {
        const std::string_view body =
            view_.substr(start + kHead, end - kEnd.size() - start - kHead);
        const std::size_t marker = body.find(kData);
        Record found;
        found.time = time_at(start);
        found.point = body.substr(0, marker);
        found.swapped = order_ == Order::kOther;
        if (marker != npos) found.data = body.substr(marker + kData.size());
        found.at = start < tail_ ? next_ + start : kFirst + start - tail_;
        return found;
    }

    std::size_t next_;
    std::size_t tail_;  // bytes from the next offset to the end of the ring
    Order order_;
    std::string bytes_;
    std::string_view view_;
};

// The length of the ring in the file. A ring that was made smaller leaves its file as long as
// before. The ring then ends where records go on at the beginning of the file without a fault,
// while they are at fault there, or at the end, when the whole file is taken for the ring.
std::size_t ring_size(std::string_view file, std::size_t next, Order order) {
    const Straight whole(file, next, file.size(), order);
    Lengths usual;
    for (const Run& run : whole.runs()) {
        for (const Record& record : run) ++usual[record.point][record.data.size()];
    }
    const int doubt_of_end = whole.doubt_at(whole.seam_of(file.size()), usual);
    std::size_t best = file.size();
    int best_gain = 1;
    std::size_t size = std::max(kUnit, (next + kUnit - 1) / kUnit * kUnit);
    for (std::size_t tried = 0; size < file.size() && tried < kMostLengths;
         size += kUnit, ++tried) {
        const int gain = whole.doubt_at(whole.seam_of(size), usual) + doubt_of_end;
        if (gain < best_gain) continue;
        const Straight ring(file, next, size, order);
        if (ring.doubt_at(ring.seam_of(size), usual) != 0) continue;
        best = size;
        best_gain = gain;
    }
    return best;
}

// A ring from a machine of the other byte order is told by its offset, which makes sense only
// there.
Order order_of(std::string_view file) {
    using ovrmail::log::is_ring_offset;
    const bool host = is_ring_offset(word_at(file, 0, Order::kHost), file.size());
    const bool other = is_ring_offset(word_at(file, 0, Order::kOther), file.size());
    return other && !host ? Order::kOther : Order::kHost;
}

void count_runs(std::vector<Record>& records) {
    for (std::size_t i = 1; i < records.size(); ++i)
        if (records[i].point == records[i - 1].point) records[i].nth = records[i - 1].nth + 1;
}

}  // namespace

Ring read_ring(std::string_view file) {
    Ring ring;
    if (file.size() < kFirst) {
        ring.problem = file.empty() ? "the file is empty" : "too short to be a trace ring";
        return ring;
    }
    const Order order = order_of(file);
    ring.next = word_at(file, 0, order);
    std::size_t size = file.size();
    std::size_t next = ring.next;
    if (!ovrmail::log::is_ring_offset(ring.next, size)) {
        ring.problem = "damaged header: the next record would start at " + std::to_string(next) +
                       " of " + std::to_string(size);
        next = kFirst;
    } else {
        size = ring_size(file, next, order);
        if (file.size() % kUnit != 0) ring.problem = "not as long as a ring: cut short?";
    }
    auto runs = Straight(file, next, size, order).runs();
    std::stable_sort(runs.begin(), runs.end(), [](const Run& a, const Run& b) {
        return !a.empty() && (b.empty() || a.front().time < b.front().time);
    });
    for (Run& run : runs) std::move(run.begin(), run.end(), std::back_inserter(ring.records));
    count_runs(ring.records);
    return ring;
}

std::optional<std::int32_t> number(const Record& record) {
    if (record.data.size() != sizeof(std::int32_t)) return std::nullopt;
    const Order order = record.swapped ? Order::kOther : Order::kHost;
    return static_cast<std::int32_t>(word_at(record.data, 0, order));
}

}  // namespace ovrm_trace

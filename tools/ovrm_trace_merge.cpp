// ovrm_trace_merge.cpp - entries of the log among the records; see ovrm_trace_merge.hpp.
//
// Both have times of whole seconds, and a send takes less. But the library writes an entry at a
// known point: "S: " behind the exit of the send, "R: " behind that of the reply, an error in front
// of the failure. So the log of a call is laid along its records from the end, entry by entry, each
// at the latest point that may have written it. What was sent of the message has no entries, and
// is passed over.
#include "ovrm_trace_merge.hpp"

#include <algorithm>
#include <span>
#include <string_view>

namespace ovrm_trace {
namespace {

enum class Side { kBehind, kInFront };

// A point next to which an entry is written.
struct Anchor {
    std::string_view point;
    Entry entry;
    Side side;
};
constexpr Anchor kAnchors[] = {
    {"SNDEMAIL0000", Entry::kBegin, Side::kBehind},
    {"SETTIMEFFFF", Entry::kNote, Side::kBehind},
    {"SMTP_sFFFF", Entry::kSent, Side::kBehind},
    {"smtp0eFF", Entry::kSent, Side::kBehind},  // of a secret, which SMTP_send does not see
    {"Pop3_0bff", Entry::kSent, Side::kBehind},
    {"smtp0dFF", Entry::kReceived, Side::kBehind},
    {"smtp0fFF", Entry::kReceived, Side::kBehind},
    {"Pop3_0cff", Entry::kReceived, Side::kBehind},
    {"getsmtp0010", Entry::kError, Side::kInFront},
    {"smtp1060", Entry::kError, Side::kInFront},
    {"smtp1070", Entry::kError, Side::kInFront},
    {"smtp0110", Entry::kError, Side::kInFront},
    {"smtp0e01", Entry::kError, Side::kInFront},
    {"smtp0e10", Entry::kError, Side::kInFront},
    {"smtp0f10", Entry::kError, Side::kInFront},
    {"getpop0010", Entry::kError, Side::kInFront},
    {"Pop3_0210", Entry::kError, Side::kInFront},
    {"Pop3_0310", Entry::kError, Side::kInFront},
    {"Pop3_0b10", Entry::kError, Side::kInFront},
    {"Pop3_0c10", Entry::kError, Side::kInFront},
    {"ACERTFFFF", Entry::kEnd, Side::kBehind},
};

// Each line of the reply to EHLO has an entry, of other replies the last one alone.
constexpr std::string_view kLineEnds = "smtp0fFF";
constexpr std::string_view kEhloBegins = "AUTHR0000";
constexpr std::string_view kEhloEnds = "AUTHRFFFF";
constexpr std::string_view kEhloFails = "AUTHR0010";

constexpr std::int64_t kApart = 1;  // seconds between a point and its entry

using Lines = std::span<const LogLine>;

// The log of one call: from one banner up to the next.
struct Section {
    int process;
    Lines lines;
};

std::vector<Section> sections_of(const std::vector<LogLine>& lines) {
    std::vector<Section> sections;
    for (std::size_t begin = 0, i = 1; i <= lines.size(); ++i) {
        if (i < lines.size() && lines[i].entry != Entry::kBegin) continue;
        sections.push_back({process_of(lines[begin]), Lines(lines).subspan(begin, i - begin)});
        begin = i;
    }
    return sections;
}

// One call and what may be its log.
class Weaver {
public:
    Weaver(const Call& call, Lines lines)
        : call_(call),
          lines_(lines),
          places_(lines.size()),
          in_ehlo_(call.items.size()),
          claimed_(call.items.size()) {
        find_ehlo();
        lay_along();
        place_the_rest();
    }

    // Whether replies and entries go together: each reply has its entry, unless the log ends early,
    // and each entry its reply, unless the ring has lost the beginning of the call.
    [[nodiscard]] bool fits() const {
        const bool log_is_whole = lines_.back().entry == Entry::kEnd;
        for (std::size_t i = 0; log_is_whole && i < call_.items.size(); ++i)
            if (!claimed_[i] && anchor_at(i, Entry::kReceived) != nullptr) return false;
        const bool call_is_whole = begins_call(record(0), nullptr);
        for (std::size_t line = 0; call_is_whole && line < lines_.size(); ++line)
            if (!places_[line].known && lines_[line].entry == Entry::kReceived) return false;
        return true;
    }

    [[nodiscard]] std::vector<Item> woven() const {
        std::vector<Item> items;
        std::size_t line = 0;
        for (std::size_t i = 0; i <= call_.items.size(); ++i) {
            for (; line < lines_.size() && places_[line].slot == i; ++line)
                items.emplace_back(lines_[line]);
            if (i < call_.items.size()) items.push_back(call_.items[i]);
        }
        return items;
    }

private:
    // In front of which record an entry goes: known, or at the latest.
    struct Place {
        std::size_t slot;
        bool known;
    };

    [[nodiscard]] const Record& record(std::size_t i) const { return *as_record(call_.items[i]); }

    void find_ehlo() {
        bool inside = false;
        for (std::size_t i = in_ehlo_.size(); i-- > 0; in_ehlo_[i] = inside) {
            const std::string_view point = record(i).point;
            inside = point == kEhloEnds || point == kEhloFails || (inside && point != kEhloBegins);
        }
    }

    [[nodiscard]] const Anchor* anchor_at(std::size_t i, Entry entry) const {
        const auto* const found =
            std::find_if(std::begin(kAnchors), std::end(kAnchors), [&](const Anchor& anchor) {
                return anchor.entry == entry && anchor.point == record(i).point;
            });
        const bool is_one =
            found != std::end(kAnchors) && (found->point != kLineEnds || in_ehlo_[i]);
        return is_one ? found : nullptr;
    }

    void lay_along() {
        Place next{call_.items.size(), false};
        std::size_t end = call_.items.size();  // of the records whose entry is not found yet
        for (std::size_t line = lines_.size(); line-- > 0; places_[line] = next) {
            const LogLine& entry = lines_[line];
            next.known = false;
            std::size_t i = end;
            for (; i > 0 && !next.known; --i) {
                if (record(i - 1).time + kApart < entry.time) break;
                const Anchor* const found = anchor_at(i - 1, entry.entry);
                if (found == nullptr || record(i - 1).time > entry.time + kApart) continue;
                next = {found->side == Side::kBehind ? i : i - 1, true};
                end = i - 1;
                claimed_[end] = true;
            }
            // The ring has lost its beginning: what is left in front is no command's.
            const bool has_point = entry.entry == Entry::kSent || entry.entry == Entry::kReceived;
            if (!next.known && i == 0 && has_point) end = 0;
        }
    }

    // What has no point of its own follows the entry before it, as far as its time tells.
    void place_the_rest() {
        std::size_t slot = 0;
        for (std::size_t line = 0; line < lines_.size(); ++line) {
            Place& place = places_[line];
            while (!place.known && slot < place.slot && record(slot).time < lines_[line].time)
                ++slot;
            if (place.known) slot = place.slot;
            place.slot = slot;
        }
    }

    const Call& call_;
    Lines lines_;
    std::vector<Place> places_;  // of the entries
    std::vector<bool> in_ehlo_;  // of the records
    std::vector<bool> claimed_;  // records that have their entry
};

// A call that has no log yet.
struct Waiting {
    Call* call;
    const void* ring;
    Span span;
};

bool may_belong(const Waiting& waiting, const Section& section) {
    const int process = waiting.call->process;
    const bool same = process == 0 || section.process == 0 || process == section.process;
    return same && waiting.span.first <= section.lines.back().time + kApart &&
           waiting.span.last >= section.lines.front().time - kApart;
}

// The latest call that the section fits. None when calls of several rings do: threads of one
// process may send within the same second, and nothing is guessed.
std::size_t find_call(const std::vector<Waiting>& waiting, const Section& section) {
    std::size_t found = waiting.size();
    for (std::size_t i = waiting.size(); i-- > 0;) {
        if (found != waiting.size() && waiting[found].ring == waiting[i].ring) continue;
        const Waiting& one = waiting[i];
        if (!may_belong(one, section) || !Weaver(*one.call, section.lines).fits()) continue;
        if (found != waiting.size()) return waiting.size();
        found = i;
    }
    return found;
}

}  // namespace

std::vector<LogLine> weave(std::vector<std::vector<Call>>& rings,
                           const std::vector<LogLine>& lines) {
    std::vector<Waiting> waiting;
    for (auto& ring : rings)
        for (Call& call : ring) waiting.push_back({&call, &ring, span_of(call)});
    std::vector<LogLine> others;
    const std::vector<Section> sections = sections_of(lines);
    for (auto section = sections.rbegin(); section != sections.rend(); ++section) {
        const std::size_t found = find_call(waiting, *section);
        if (found == waiting.size()) {
            others.insert(others.begin(), section->lines.begin(), section->lines.end());
            continue;
        }
        Call& call = *waiting[found].call;
        call.items = Weaver(call, section->lines).woven();
        waiting.erase(waiting.begin() + static_cast<std::ptrdiff_t>(found));
    }
    return others;
}

}  // namespace ovrm_trace

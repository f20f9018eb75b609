// peer.cpp - see peer.hpp.
#include "hostile/peer.hpp"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>

namespace hostile {
namespace {

constexpr std::string_view kBase64 =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kMostSegments = 4000;

constexpr const char* kReplies[kPhases] = {
    "220 hi",  "250 hi",  "250 hi",  "334 PDE+", "235 ok", "334 VXNlcg==", "235 ok", "334 UGFzcw==",
    "235 ok",  "250 ok",  "250 ok",  "354 go",   "",       "250 kept",     "250 ok", "221 bye",
    "+OK 0 0", "+OK 0 0", "+OK 0 0", "+OK 0 0",  "+OK 0 0"};

// Numbers around the sizes of the library's buffers.
std::size_t edge(Random& random) {
    const auto size = random.pick({255U, 512U, 684U, 1024U, 1028U, 2056U, 4104U, 8192U});
    return size - 6 + random.below(12);
}

// With other line ends.
std::string replaced(std::string text, std::string_view line_end) {
    for (std::size_t at = 0; (at = text.find("\r\n", at)) != text.npos; at += line_end.size())
        text.replace(at, 2, line_end);
    return text;
}

// The phase that follows a friendly reply most often.
Phase behind(Phase phase) {
    if (phase == kPopQuit || phase == kQuit) return phase;
    if (phase == kData) return kEnd;
    if (phase == kEnd) return kQuit;
    if (phase == kReset || (phase >= kEhlo && phase < kMail)) return kMail;
    return static_cast<Phase>(phase + 1);
}

}  // namespace

std::string printable(std::string_view bytes) {
    constexpr std::size_t kMost = 200;
    std::string out;
    for (const char c : bytes.substr(0, kMost)) {
        char text[8];
        std::snprintf(text, sizeof text, c >= ' ' && c <= '~' ? "%c" : "\\x%02X",
                      static_cast<unsigned char>(c));
        out += text;
    }
    return bytes.size() > kMost ? out + "... (" + std::to_string(bytes.size()) + " bytes)" : out;
}

void tell(std::string& out, Ms at, char direction, std::string_view bytes) {
    char head[32];
    std::snprintf(head, sizeof head, "%" PRId64 ".%03d %c ", at / 1000 % 10'000'000,
                  static_cast<int>(at % 1000), direction);
    out += head + printable(bytes) + "\n";
}

std::size_t Random::below(std::uint64_t limit) {
    state_ += 0x9E3779B97F4A7C15;
    std::uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
    return static_cast<std::size_t>((mixed ^ (mixed >> 31)) % limit);
}

Peer::Peer(const Request& request, std::vector<Row> rows)
    : request_(request), random_(0), rows_(std::move(rows)) {}

Peer::Peer(const Request& request, Random random)
    : request_(request), random_(random), drawn_(true) {
    const std::uint64_t turns = 7U + (request.pieces ? 11U : 0U) +
                                (request.mechanisms != 0 ? 4U : 0U) + (request.pop ? 5U : 0U);
    for (int count = random_.pick({0, 1, 1, 1, 1, 2, 2, 3}); count > 0; --count)
        bad_turns_.push_back(random_.below(turns));
    all_bad_ = random_.chance(4);
    if (random_.chance(4)) {
        refusals_[random_.below(2)] = 1 + static_cast<int>(random_.below(8));
        refusal_ = random_.pick({ECONNREFUSED, ECONNREFUSED, ETIMEDOUT, EHOSTUNREACH});
    }
    if (random_.chance(4)) reader_.resets_after = 1 + random_.below(random_.pick({200U, 5000U}));
    if (!random_.chance(25)) return;
    reader_.at_once = random_.pick<std::size_t>({1, 2, 7, 100, 1000, 1028, SIZE_MAX});
    if (random_.chance(50)) return;
    reader_.room = 1 + random_.below(random_.pick({3U, 40U, 3000U}));
    reader_.refill = random_.chance(20) ? kNever : delay(kMail);
}

int Peer::connect_error(bool pop) { return refusals_[pop ? 1 : 0]-- > 0 ? refusal_ : 0; }

void Peer::turn(Phase phase, Ms now, Wire& wire, std::string* told) {
    const std::uint64_t turn = turns_++;
    if (silent_) return;
    if (owed_ > 0) {
        --owed_;
        return;
    }
    Act act;
    const auto row = std::ranges::find(rows_, phase, &Row::first);
    if (row != rows_.end()) {
        act = row->second;
        rows_.erase(row);
    } else if (all_bad_ || std::ranges::count(bad_turns_, turn) != 0) {
        act = hostile(phase);
    } else {
        act.bytes = friendly(phase);
    }
    silent_ = act.last || act.end != End::kNone;
    owed_ = act.early;
    Ms at = now + act.late;
    std::string_view rest = act.bytes;
    for (std::size_t part = act.first != 0 ? act.first : act.part; !rest.empty();
         part = act.part, at += act.pause) {
        const std::string_view segment = rest.substr(0, part != 0 ? part : rest.size());
        wire.deliver(at, std::string(segment));
        if (told != nullptr) tell(*told, at, '<', segment);
        rest.remove_prefix(segment.size());
    }
    if (act.end == End::kNone) return;
    wire.deliver(at, "", act.end);
    if (told != nullptr) tell(*told, at, '<', act.end == End::kClosed ? "(closed)" : "(reset)");
}

std::string Peer::mechanisms() {
    static constexpr std::string_view kWords[] = {" LOGIN", " PLAIN", " CRAM-MD5"};
    std::string words;
    for (const std::string_view word : kWords)
        if (!drawn_ || random_.chance(75)) words += word;
    return words;
}

std::string Peer::friendly(Phase phase) {
    if (phase == kEhlo) return "250-hi\r\n250-AUTH" + mechanisms() + "\r\n250 SIZE\r\n";
    const bool unwilling = is_auth(phase) && drawn_ && random_.chance(30);
    return std::string(unwilling ? "504 no" : kReplies[phase]) + "\r\n";
}

std::string Peer::noise(std::size_t size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random_.below(256));
    return bytes;
}

// Lines, or one line, that seem to go on for ever.
std::string Peer::endless(const std::string& good) {
    const std::string line_end = random_.chance(70) ? "\r\n" : "";
    const std::string begin = good.substr(0, random_.below(6));
    const std::size_t size = edge(random_);
    if (random_.chance(30)) return begin + noise(size) + line_end;
    if (random_.chance(50)) return begin + std::string(size, 'x') + line_end;
    const std::string text(random_.pick({0U, 10U, 80U, 80U, 1020U, 1021U, 1022U, 1023U}), 'x');
    std::string all;
    for (auto lines = random_.pick({2, 3, 10, 100, 100, 1000}); lines > 0; --lines)
        all += good.substr(0, 3) + '-' + text + "\r\n";
    return random_.chance(70) ? all + good : all;
}

// What one phase alone may trip over.
std::string Peer::special(Phase phase) {
    if (phase == kCramMd5 || phase == kLogin || phase == kLoginUser) {
        std::string line = random_.pick({"334 ", "334-", "334", "3", "334  "});
        for (auto size = random_.chance(50) ? edge(random_) : random_.below(900); size > 0; --size)
            line += kBase64[random_.below(kBase64.size())];
        if (const std::size_t at = random_.below(line.size()); random_.chance(30))
            line[at] = random_.pick({'=', '\0', '-', ' ', '\xFF'});
        return line += random_.pick({"\r\n", "=\r\n", "==\r\n", "===\r\n", "\n", ""});
    }
    if (phase == kEhlo) {
        std::string lines = "250-hi\r\n";
        for (auto count = random_.pick({1, 1, 2, 5}); count > 0; --count) {
            lines += random_.pick({"250-AUTH", "250-AUTH ", "250-auth", "250-AUTH=", "550-AUTH"});
            if (random_.chance(50)) lines.resize(lines.size() + edge(random_), 'x');
            lines += mechanisms();
            lines += random_.pick({"\r\n", "\n\r\n", ""});
        }
        return lines + random_.pick({"250 ok\r\n", "250\r\n", "250 AUTH PLAIN\r\n", "500 no\r\n"});
    }
    if (is_pop(phase))
        return random_.pick(
            {"+OK", "+OK\n", "+O\r\n", "+ok\r\n", "-ERR\r\n", "\r\n", "\n", "+\r\n"});
    return random_.pick({"2\r\n", "25\r\n", "250\r\n", "250-\r\n", "\r\n", "-\r\n", "2\n\r\n",
                         "---- \r\n", "334 \r\n", "550 %s%n%d\r\n", "250 ok\r", " 250 ok\r\n"});
}

std::string Peer::content(Phase phase) {
    const std::string good = friendly(phase);
    const std::size_t at = random_.below(good.size());
    std::string bad = good;
    const auto kind = random_.below(phase == kEhlo || phase == kCramMd5 ? 24 : 16);
    if (kind == 0) return std::string(1, static_cast<char>('0' + random_.below(10))) + "50 x\r\n";
    if (kind == 1) return (bad = noise(random_.below(200))) += random_.pick({"", "\r\n", "\n"});
    if (kind == 2) return noise(random_.below(4000)) + "\r\n";
    if (kind == 3) return bad.insert(at, random_.below(4) + 1, '\0');
    if (kind == 4) return replaced(good, random_.pick({"\n", "\r"}));
    if (kind == 5) return replaced(good, random_.pick({"\r\r\n", "\n\r", "\n\r\n", "\r\n\r\n"}));
    if (kind == 6) return good.substr(0, at) + "\r\n";
    if (kind == 7) return good.substr(0, 3) + "-x\r\n" + special(phase) + good;
    if (kind == 8) return bad += friendly(phase);
    if (kind == 9) return bad[at] = static_cast<char>(random_.below(256)), bad;
    if (kind == 10) return good;
    return kind < 14 ? endless(good) : special(phase);
}

// Around the moment at which the budget is spent.
Ms Peer::delay(Phase phase) {
    const Ms budget = request_.seconds(phase) * 1000;
    return random_.pick<Ms>({1, 999, 1000, budget / 3, budget / 2, budget - 1000, budget - 1,
                             budget, budget + 1, budget + 1000, 2 * budget});
}

// What arrives, when and in which segments, and what comes then.
Act Peer::hostile(Phase phase) {
    Act act;
    act.bytes = content(phase);
    if (random_.chance(10)) {
        act.early = 1 + static_cast<unsigned>(random_.below(2));
        Phase next = phase;
        for (unsigned turn = 0; turn < act.early; ++turn)
            act.bytes += friendly(next = behind(next));
    }
    if (random_.chance(35)) {
        act.last = true;
        act.end = random_.pick({End::kNone, End::kClosed, End::kReset});
        act.bytes.resize(random_.below(act.bytes.size() + 1));
    }
    const std::size_t size = act.bytes.size();
    if (random_.chance(25) && size < kMostSegments)
        act.part = 1;
    else if (random_.chance(30))
        act.part = 1 + random_.below(size + 1) + size / kMostSegments;
    if (random_.chance(20)) act.first = 1 + random_.below(size + 1);
    if (random_.chance(40)) act.late = delay(phase);
    if (random_.chance(40)) act.pause = delay(phase);
    return act;
}

}  // namespace hostile

// peer.hpp - the other end of a conversation: friendly, but for some turns. Everything that it does
// follows from a seed, or from rows.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "hostile/rules.hpp"
#include "hostile/wire.hpp"

namespace hostile {

// A small generator (splitmix64): the same numbers everywhere.
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    std::size_t below(std::uint64_t limit);  // 0 to limit - 1
    bool chance(unsigned percent) { return below(100) < percent; }
    template <class Value>
    Value pick(std::initializer_list<Value> values) {
        return values.begin()[below(values.size())];
    }

private:
    std::uint64_t state_;
};

// What is done at one turn.
struct Act {
    std::string bytes;
    std::size_t first = 0;  // bytes of the first segment; 0: as the others
    std::size_t part = 0;   // bytes of a segment; 0: all
    Ms late = 0;            // before the first segment
    Ms pause = 1;           // before each further one
    End end = End::kNone;   // behind the bytes
    bool last = false;      // nothing is ever said again
    unsigned early = 0;     // further turns that are answered with these bytes
};
using Row = std::pair<Phase, Act>;

// Bytes for a reader; the direction '<' is from the other end.
std::string printable(std::string_view bytes);
void tell(std::string& out, Ms at, char direction, std::string_view bytes);

class Peer {
public:
    Peer(const Request& request, Random random);          // as the seed has it
    Peer(const Request& request, std::vector<Row> rows);  // friendly but for these
    int connect_error(bool pop);                          // 0: the connection is made
    void turn(Phase phase, Ms now, Wire& wire, std::string* told);
    [[nodiscard]] Reader reader() const { return reader_; }
    std::string friendly(Phase phase);

private:
    Act hostile(Phase phase);
    std::string content(Phase phase);
    std::string mechanisms();
    std::string endless(const std::string& good);
    std::string special(Phase phase);
    std::string noise(std::size_t size);
    Ms delay(Phase phase);

    const Request& request_;
    Random random_;
    bool drawn_ = false;
    std::vector<Row> rows_;
    std::vector<std::uint64_t> bad_turns_;
    bool all_bad_ = false;
    std::uint64_t turns_ = 0;
    unsigned owed_ = 0;
    bool silent_ = false;
    int refusals_[2] = {0, 0};  // of connections: SMTP, POP
    int refusal_ = 0;
    Reader reader_;
};

}  // namespace hostile

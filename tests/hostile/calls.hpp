// calls.hpp - the system calls of the library, taken to a conversation in memory, and the account
// of what it took from the heap.
#pragma once

#include <string>

#include "hostile/peer.hpp"
#include "hostile/rules.hpp"
#include "hostile/wire.hpp"

namespace hostile {

// While it lives, the library's sockets, waits and clock are this one's.
class Conversation {
public:
    // `how` the other end behaves: rows, or numbers to draw from.
    template <class How>
    Conversation(const Request& wanted, const How& how, std::string* tell)
        : request(wanted), rules(request, now), peer(request, how), told(tell) {
        begin();
    }
    ~Conversation();
    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    Wire& wire_of(int fd, const char* call);
    void answer();  // the other end's turn

    static constexpr Ms begun = 1'750'000'000'000;
    Ms now = begun;
    Request request;
    Rules rules;
    Peer peer;
    Wire wire;
    int fd = -1;
    std::string* told;  // the dialogue, when it is wanted

private:
    void begin();
};

inline constexpr int kSmtpPort = 2525;
inline constexpr int kPopPort = 1110;

// Blocks and bytes taken from the heap by the library and not given back, and the most bytes since
// the last reset.
struct Heap {
    long blocks = 0;
    long bytes = 0;
    long peak = 0;
};
Heap& heap();

}  // namespace hostile

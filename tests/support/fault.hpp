// fault.hpp - makes system and heap calls of the library fail, and time pass at once: under a Watch
// or Faults no wait takes time, but each moves the clock.
//
// Programs that use it link with fault_support and wrap the functions of OVR_FAULT_WRAP (see
// tests/CMakeLists.txt). Only calls made by the thread that holds a Watch or Faults are concerned.
// Scripted servers work while the library waits in poll(); what they call themselves is not.
#pragma once

#include <netinet/in.h>

#include <cerrno>
#include <ctime>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace fault {

enum class Mode {
    kFail,       // the call fails; the heap always with ENOMEM
    kInterrupt,  // the call is interrupted; only those that a signal may interrupt
    kHalf,       // read, write, send and recv do half of what was asked
};

// What happens to a call, and as often as it is made again, so many times in all.
struct Fault {
    Fault(Mode how, int number = EIO, int in_a_row = 1)
        : mode(how), error(how == Mode::kInterrupt ? EINTR : number), times(in_a_row) {}
    Mode mode;
    int error;
    int times;
};

// While it lives, calls of this thread are counted and fail as ordered.
class Watch {
public:
    Watch();
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
};

struct CallResult {
    long result;      // what the call returns; above 0 for read, write, send, recv: the most bytes
    int error = 0;    // errno, or h_errno for gethostbyname_r
    int seconds = 0;  // that the call takes
};

// While it lives, planned results stand for the next calls, and the clock is its own.
struct Faults {
    Faults();
    ~Faults();
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;
    void plan(const std::string& call, std::size_t times, CallResult result) {
        next[call].insert(next[call].end(), times, result);
    }

    std::map<std::string, std::deque<CallResult>> next;  // by name of the call
    std::map<std::string, int> calls;                    // how often it was called
    std::time_t now = 1'000'000;
    std::vector<std::string> services;  // names asked of getservbyname_r
    std::string node;                   // node and host name, beside a fixed host id; "": the real
    std::string resolv_conf;            // opened in place of /etc/resolv.conf; "": itself
    sockaddr_in peer{};                 // of the last connect()
};

// The n-th call from now on that the fault's mode concerns, counted from 1, is hit.
void fail_nth(int n, Fault fault);

// Every call of `function` that concerns `about` fails, after `skip` of them, with `error`: a path,
// or the path behind a descriptor, or the bytes to be sent, or the size of a block in decimal, must
// contain it. "" concerns every call. With error 0 the call is noticed (was_hit) and goes on.
void fail_on(std::string_view function, std::string_view about, int error, int skip = 0);

void clear();              // no more faults; the counts start anew
bool was_hit();            // whether a fault took place since clear()
std::string last_hit();    // the function hit last
std::string last_about();  // the path or bytes it was about, see fail_on()
int last_error();          // the errno it got
long heap_blocks();        // blocks, mappings, converters taken under a Watch since clear(), and
                           // not given back
int descriptors();         // descriptors and streams opened and not closed, likewise
long passed_ms();          // virtual time since clear(): waits, pauses, planned calls

}  // namespace fault

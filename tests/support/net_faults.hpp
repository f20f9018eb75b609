// net_faults.hpp - the system as a test wants it: outcomes for the next calls, a clock of its own,
// sleeps that cost nothing. Only the thread that asks is affected, so a server thread goes on.
// Link with `WRAP send recv poll socket connect gethostname sleep time gethostbyname_r
// getservbyname_r`.
#pragma once

#include <netinet/in.h>

#include <ctime>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "log/mail_log_handle.hpp"
#include "support/support.hpp"

namespace support {

struct Outcome {
    long result;      // what the call returns; above 0 for send and recv: so many bytes at most
    int error = 0;    // errno, or h_errno for gethostbyname_r
    int seconds = 0;  // that the call takes
};

// In force on this thread while it lives. A wait in vain takes no time, but moves the clock.
struct Faults {
    Faults();
    ~Faults();
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;
    void plan(const std::string& call, std::size_t times, Outcome outcome) {
        next[call].insert(next[call].end(), times, outcome);
    }

    std::map<std::string, std::deque<Outcome>> next;  // by name of the call
    std::map<std::string, int> calls;                 // how often it was called
    std::time_t now = 1'000'000;
    std::vector<std::string> services;  // names asked of getservbyname_r
    sockaddr_in peer{};                 // of the last connect()
    void (*on_sleep)(int nth) = nullptr;
};

// What the library writes to the mail log while this lives.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    [[nodiscard]] std::string text() const;

private:
    MailLogHandle handle_{};
};

// What the library writes to the trace, at the most talkative level, while this lives.
class TraceCapture {
public:
    TraceCapture();
    ~TraceCapture();
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;
    [[nodiscard]] int count(const std::string& bytes) const;

private:
    TempDir dir_;
};

}  // namespace support

// delivery.hpp - one send of each kind, against servers of which single rows are changed, and what
// a test wants to know about it.
#pragma once

#include <string>
#include <vector>

#include "support/sample_mail.hpp"
#include "support/scripted_server.hpp"
#include "support/support.hpp"

namespace support {

enum Kind : unsigned {
    kPlain = 1,      // text and two attachments, one of them temporary; two recipients
    kAuth = 2,       // the same, with SMTP AUTH
    kHelo = 4,       // the same, and a server that knows no EHLO
    kPartial = 8,    // the same, longer, in four pieces
    kPop = 16,       // the same, POP before SMTP
    kPrepared = 32,  // a prepared content file and header file
    kEuc = 64,       // Japanese text and two attachments, in an EucLocale
};
inline constexpr Kind kKinds[] = {kPlain, kAuth, kHelo, kPartial, kPop, kPrepared, kEuc};
const char* name_of(Kind kind);

// While it lives, the process runs in an EUC locale, if localedef can make one.
class EucLocale {
public:
    EucLocale();
    ~EucLocale();
    EucLocale(const EucLocale&) = delete;
    EucLocale& operator=(const EucLocale&) = delete;
    [[nodiscard]] bool is_set() const { return is_set_; }

private:
    bool is_set_ = false;
};

struct SendResult {
    std::int32_t result = 0;
    std::string detail;
    std::string last_log;            // last line of the mail log
    long seconds = 0;                // of the replaced clock
    bool traced = false;             // the ring holds records
    bool temporary_kept = false;     // the temporary attachment is still there
    std::vector<std::string> trash;  // paths of working files left behind
    int descriptors = 0;             // not closed
    long heap_blocks = 0;            // not given back

    // Whether nothing is left that should have gone; the temporary attachment goes on success.
    [[nodiscard]] bool is_clean() const {
        return trash.empty() && descriptors == 0 && heap_blocks == 0 &&
               temporary_kept == (result < 0);
    }
};

// What differs from run to run is replaced: dates, message and partial identifiers, boundaries.
// Every line ends with its LF.
std::string normal(const std::string& text);

class Delivery {
public:
    // The first row of `changes` that fits a command replaces the friendly one.
    explicit Delivery(Kind kind, Script smtp_changes = {}, Script pop_changes = {},
                      Runs runs = Runs::kInClient);

    SendResult run();
    std::string message();  // what the server took, normal(), each piece with an end mark

    SampleMail mail;
    ScriptedServer smtp;
    ScriptedServer pop;

private:
    TempDir files_;
    std::vector<std::string> paths_;
};

// Sets the number of log files and the trace level, 0 for none.
void set_logs(int log_number, int trace_level);
std::vector<std::string> paths_in(const std::string& directory, const std::string& prefix = "");
std::string log_path();
// The mail log of this process, without its time stamps and banners.
std::vector<std::string> log_lines();
// The ring of this process, if there is one.
std::string ring_bytes();

}  // namespace support

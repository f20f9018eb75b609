// rules.hpp - what the library may do next with a connection, how long it may wait, and what the
// send must come to: a second reading of the rules of the conversation, kept apart from the code.
// It is told of every call that the library makes and never looks inside.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "hostile/wire.hpp"
#include "mail_types.h"

namespace hostile {

enum Phase : unsigned {
    kGreeting,
    kEhlo,
    kHelo,
    kCramMd5,
    kPlain,
    kLogin,
    kCramResponse,
    kLoginUser,
    kLoginPassword,
    kMail,
    kRcpt,
    kData,
    kBody,
    kEnd,
    kReset,
    kQuit,
    kPopGreeting,
    kUser,
    kPass,
    kStat,
    kPopQuit,
    kPhases
};
const char* name_of(Phase phase);
inline bool is_pop(Phase phase) { return phase >= kPopGreeting; }
inline bool is_auth(Phase phase) { return phase >= kCramMd5 && phase <= kLoginPassword; }

struct Request {
    bool pieces = false;
    std::uint32_t mechanisms = 0;  // 0: no SMTP AUTH
    bool pop = false;
    std::uint16_t pop_seconds = 60;
    MailTimeout budgets{};

    [[nodiscard]] Ms seconds(Phase phase) const;  // budget of the phase
};

class Rules {
public:
    Rules(const Request& request, const Ms& now);

    // The calls of the library.
    void connecting(Phase greeting);
    void connected(int error);  // 0, or why not
    void sending(std::string_view text);
    bool sent(std::string_view text, std::size_t taken);  // whether the other end is to answer
    void taken(std::string_view bytes);
    void took_nothing();
    void failed(int error);
    void timed_out();
    [[nodiscard]] Ms wait(bool to_write) const;
    void slept(Ms ms) { bound_ += ms; }
    void at_rest(const char* call);  // no call is due any more

    // What came of it.
    void problem(const std::string& what);
    [[nodiscard]] const std::vector<std::string>& problems() const { return problems_; }
    [[nodiscard]] std::int32_t result() const { return result_; }
    [[nodiscard]] const std::string& detail() const { return detail_; }
    [[nodiscard]] const std::vector<std::string>& messages() const { return messages_; }
    [[nodiscard]] Ms bound() const { return bound_; }  // of the time that all of it may take
    [[nodiscard]] Phase phase() const { return phase_; }
    [[nodiscard]] const std::string& unit() const { return unit_; }  // the command sent last

private:
    void enter(Phase phase);
    void allow_time();
    void expect_reply();
    void end_line();
    void end_reply();
    void refused();
    void over(std::int32_t result, std::string detail);
    void broken(std::int32_t smtp, std::int32_t pop, const std::string& detail);
    [[nodiscard]] unsigned next_mechanism();
    [[nodiscard]] Ms left() const;
    [[nodiscard]] Ms now_s() const { return now_ / 1000; }

    const Request& request_;
    const Ms& now_;
    std::vector<std::string> problems_;
    Phase phase_ = kPhases;
    unsigned next_;         // phases that may follow, as bits; 0: none
    bool at_work_ = false;  // a command is being sent
    bool replied_ = true;
    std::string unit_;  // what was sent of a command or a message
    std::string line_;  // what was read of a line
    std::size_t empty_ = 0;
    bool ehlo_refused_ = false;
    std::uint32_t mechanisms_ = 0;  // not yet tried
    std::int32_t status_ = 0;       // 2, 3: no authentication
    bool first_piece_ = true;
    int attempts_ = 0;  // to connect
    Ms start_ = 0;      // of the running budget, in seconds
    Ms line_wait_ = 0;
    Ms bound_ = 0;
    std::int32_t result_ = INT32_MIN;
    std::string detail_;
    std::vector<std::string> messages_;
};

}  // namespace hostile

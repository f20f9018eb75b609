// rules.cpp - see rules.hpp. RFC 5321 4.1 to 4.3 and 4.5.3.2, RFC 4954, RFC 1939.
#include "hostile/rules.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <utility>

namespace hostile {
namespace {

constexpr std::string_view kEndMark = "\r\n.\r\n";
constexpr std::size_t kBlock = 1028;  // of the message: each has the whole budget
constexpr std::size_t kLineMax = 1028;
constexpr std::size_t kPopLineMax = 1027;
constexpr std::size_t kDetailMax = 255;
constexpr std::size_t kChallengeMax = 511;
constexpr std::size_t kEmptyReads = 6;

struct PhaseRule {
    const char* name;
    std::string_view command;  // what is sent, or how it begins
    std::uint32_t MailTimeout::*budget;
    char accepted;  // first digit of the reply; 0: any
    unsigned next;  // phases behind an accepted reply, as bits
};
constexpr unsigned bit(Phase phase) { return 1U << phase; }
constexpr auto kConnect = &MailTimeout::ulConnectTimeOut;
constexpr auto kEndData = &MailTimeout::ulEndDataTimeOut;
constexpr PhaseRule kRules[kPhases] = {
    {"greeting", "", kConnect, '2', bit(kEhlo)},
    {"EHLO", "EHLO ", kConnect, '2', 0},
    {"HELO", "HELO ", kConnect, '2', bit(kMail)},
    {"AUTH CRAM-MD5", "AUTH CRAM-MD5\r\n", kConnect, '3', bit(kCramResponse)},
    {"AUTH PLAIN", "AUTH PLAIN dXNlcgB1c2VyAHNlY3JldA==\r\n", kConnect, '2', bit(kMail)},
    {"AUTH LOGIN", "AUTH LOGIN\r\n", kConnect, '3', bit(kLoginUser)},
    {"CRAM-MD5 response", "dXNlci", kConnect, '2', bit(kMail)},  // "user " and the digest
    {"LOGIN user", "dXNlcg==\r\n", kConnect, '3', bit(kLoginPassword)},
    {"LOGIN password", "c2VjcmV0\r\n", kConnect, '2', bit(kMail)},
    {"MAIL", "MAIL FROM:<bob@example.test>\r\n", &MailTimeout::ulMailFromTimeOut, '2', bit(kRcpt)},
    {"RCPT", "RCPT TO:<ann@example.test>\r\n", &MailTimeout::ulRcptToTimeOut, '2', bit(kData)},
    {"DATA", "DATA\r\n", &MailTimeout::ulDataTimeOut, '3', bit(kBody)},
    {"message", "", &MailTimeout::ulSendDataTimeOut, 0, bit(kEnd)},
    {"end of data", kEndMark, kEndData, '2', bit(kQuit)},
    {"RSET", "RSET\r\n", kEndData, 0, bit(kMail) | bit(kQuit)},
    {"QUIT", "QUIT\r\n", nullptr, 0, 0},
    {"POP greeting", "", nullptr, '+', bit(kUser)},
    {"USER", "USER user\r\n", nullptr, '+', bit(kPass)},
    {"PASS", "PASS secret\r\n", nullptr, '+', bit(kStat)},
    {"STAT", "STAT\r\n", nullptr, '+', bit(kPopQuit)},
    {"POP QUIT", "QUIT\r\n", nullptr, 0, bit(kGreeting)},
};

struct Offer {
    std::string_view word;
    std::uint32_t bit;
    Phase phase;
};
constexpr Offer kOffers[] = {{" CRAM-MD5", MAIL_MECH_CRAM_MD5, kCramMd5},
                             {" PLAIN", MAIL_MECH_PLAIN, kPlain},
                             {" LOGIN", MAIL_MECH_LOGIN, kLogin}};

std::string_view text_of(std::string_view line) { return line.substr(0, line.find('\0')); }

std::string_view behind_code(std::string_view line) {
    const std::string_view text = text_of(line);
    return text.substr(std::min<std::size_t>(text.size(), 4));
}

std::uint32_t offered_in(std::string_view line) {
    std::uint32_t mask = 0;
    for (const Offer& offer : kOffers)
        if (text_of(line).find(offer.word) != std::string_view::npos) mask |= offer.bit;
    return mask;
}

// Bytes that a challenge stands for: to the first group that is not complete.
std::size_t decoded_size(std::string_view text) {
    if (text.ends_with("\r\n")) text.remove_suffix(2);
    const auto counts = [text](std::size_t at) {
        return at < text.size() && (std::isalnum(static_cast<unsigned char>(text[at])) != 0 ||
                                    text[at] == '+' || text[at] == '/');
    };
    std::size_t size = 0;
    for (std::size_t at = 0; at < text.size(); at += 4) {
        if (!counts(at + 2)) return size + 1;
        if (!counts(at + 3)) return size + 2;
        size += 3;
    }
    return size;
}

}  // namespace

const char* name_of(Phase phase) { return phase < kPhases ? kRules[phase].name : "nothing"; }

Ms Request::seconds(Phase phase) const {
    if (is_pop(phase)) return pop_seconds;
    const auto field = kRules[phase].budget;
    return field != nullptr ? budgets.*field : 300;
}

Rules::Rules(const Request& request, const Ms& now)
    : request_(request), now_(now), next_(bit(request.pop ? kPopGreeting : kGreeting)) {}

void Rules::problem(const std::string& what) {
    problems_.push_back(std::string(name_of(phase_)) + ": " + what);
}

void Rules::over(std::int32_t result, std::string detail) {
    next_ = 0;
    at_work_ = false;
    replied_ = true;
    result_ = result;
    detail_ = std::move(detail);
}

Ms Rules::left() const { return std::max<Ms>(0, request_.seconds(phase_) - (now_s() - start_)); }

// A wait more may take place. Clocks count whole seconds.
void Rules::allow_time() { bound_ += (request_.seconds(phase_) + 1) * 1000; }

void Rules::enter(Phase phase) {
    if ((next_ & bit(phase)) == 0) problem(std::string("followed by ") + name_of(phase));
    phase_ = phase;
    start_ = now_s();
    allow_time();
}

void Rules::connecting(Phase greeting) {
    if (attempts_++ == 0)
        enter(greeting);
    else if (next_ == 0)
        problem("connects again");
    at_work_ = true;
}

void Rules::connected(int error) {
    at_work_ = false;
    if (error == 0) {
        attempts_ = 0;
        if (is_pop(phase_)) start_ = now_s();
        return expect_reply();
    }
    const int most = is_pop(phase_) ? 7 : 6;
    if (error == ECONNREFUSED && attempts_ < most) return;
    over(is_pop(phase_) ? MAIL_E_POP_CONNECT : MAIL_E_CONNECT, std::to_string(error));
}

void Rules::sending(std::string_view text) {
    if (at_work_ && !(phase_ == kBody && text == kEndMark)) return;
    if (!replied_) problem("sends before it has the reply");
    if (phase_ == kBody) messages_.push_back(std::exchange(unit_, {}));
    unit_.clear();
    for (unsigned phase = 0; phase < kPhases; ++phase) {
        const std::string_view begin = kRules[phase].command;
        if ((next_ & bit(Phase(phase))) == 0 || !text.starts_with(begin)) continue;
        at_work_ = true;
        return enter(Phase(phase));
    }
    problem("followed by " + std::string(text.substr(0, 40)));
    over(INT32_MIN, "");
}

bool Rules::sent(std::string_view text, std::size_t taken) {
    unit_ += text.substr(0, taken);
    const bool all = taken == text.size();
    if (phase_ == kBody) {
        next_ = kRules[kBody].next;
        // Pieces have one budget each.
        if (!request_.pieces && unit_.size() / kBlock > (unit_.size() - taken) / kBlock) {
            start_ = now_s();
            allow_time();
        }
    } else if (all) {
        if (unit_.find("\r\n", phase_ == kEnd ? 2 : 0) != unit_.size() - 2)
            problem("sent " + unit_);
        at_work_ = false;
        if (is_pop(phase_)) start_ = now_s();
        expect_reply();
    }
    // A part that left when the budget was spent is the last.
    if (!all && taken > 0 && !is_pop(phase_) && left() == 0) timed_out();
    return all && phase_ != kBody;
}

void Rules::expect_reply() {
    if (is_pop(phase_)) allow_time();
    replied_ = false;
    ehlo_refused_ = false;
    line_.clear();
    empty_ = 0;
    line_wait_ = left();
    if (phase_ == kQuit)
        over(status_ != 0 && !request_.pieces ? MAIL_SENT_UNAUTHENTICATED : MAIL_SENT, "");
    if (phase_ == kQuit) replied_ = false;
}

Ms Rules::wait(bool to_write) const {
    return (to_write || is_pop(phase_) ? left() : line_wait_) * 1000;
}

void Rules::taken(std::string_view bytes) {
    empty_ = 0;
    for (const char byte : bytes) {
        if (replied_) return problem("reads behind the reply");
        line_ += byte;
        const bool ends = line_.ends_with(is_pop(phase_) ? "\n" : "\r\n");
        if (ends || line_.size() == (is_pop(phase_) ? kPopLineMax : kLineMax)) end_line();
    }
    if (!replied_ && !line_.empty() && !is_pop(phase_)) allow_time();  // for the next byte
}

void Rules::took_nothing() {
    line_wait_ = left();
    if (++empty_ == kEmptyReads) failed(0);
}

void Rules::end_line() {
    const bool goes_on = !is_pop(phase_) && line_.size() > 3 && line_[3] == '-';
    if (phase_ == kEhlo) {
        ehlo_refused_ |= line_[0] != '2';
        if (behind_code(line_).starts_with("AUTH "))
            mechanisms_ = offered_in(line_) & request_.mechanisms;
        if (goes_on) start_ = now_s(), allow_time();
    }
    if (!goes_on) return end_reply();
    line_.clear();
    line_wait_ = left();
}

unsigned Rules::next_mechanism() {
    for (const Offer& offer : kOffers) {
        if ((mechanisms_ & offer.bit) == 0) continue;
        mechanisms_ &= ~offer.bit;
        status_ = 3;
        return bit(offer.phase);
    }
    return bit(kMail);
}

void Rules::end_reply() {
    replied_ = true;
    const PhaseRule& rule = kRules[phase_];
    bool good = rule.accepted == 0 || line_[0] == rule.accepted;
    if (rule.accepted == '+') good = line_.size() > 3 && line_.starts_with("+OK");
    if (phase_ == kEhlo) {
        if (request_.mechanisms != 0) status_ = 2;
        next_ = ehlo_refused_ ? bit(kHelo) : next_mechanism();
    } else if (phase_ == kCramMd5 && decoded_size(behind_code(line_)) > kChallengeMax) {
        next_ = next_mechanism();
    } else if (!good) {
        refused();
    } else if (phase_ != kQuit) {
        next_ = phase_ == kEnd && request_.pieces ? bit(kReset) : rule.next;
        if (rule.next == bit(kMail) && is_auth(phase_)) status_ = 0;
        if (phase_ == kRcpt) first_piece_ = false;
    }
}

void Rules::refused() {
    if (is_auth(phase_)) {
        next_ = next_mechanism();
        return;
    }
    std::int32_t result = is_pop(phase_) ? MAIL_E_POP_REFUSED : MAIL_E_REJECTED;
    if ((phase_ == kMail || phase_ == kRcpt) && first_piece_) {
        if (status_ == 2) result = MAIL_E_REJECTED_NO_AUTH;
        if (status_ == 3) result = MAIL_E_REJECTED_AUTH_FAILED;
    }
    over(result, std::string(text_of(line_).substr(0, kDetailMax)));
}

// The end of the dialogue, except where nobody asks what became of the step.
void Rules::broken(std::int32_t smtp, std::int32_t pop, const std::string& detail) {
    const bool read = !at_work_;
    at_work_ = false;
    replied_ = true;
    if (phase_ == kReset || phase_ == kPopQuit) {
        next_ = kRules[phase_].next;
    } else if (phase_ != kQuit || !read) {
        over(is_pop(phase_) ? pop : smtp, detail);
    }
}

void Rules::timed_out() { broken(MAIL_E_TIMEOUT, MAIL_E_POP_TIMEOUT, ""); }

void Rules::failed(int error) { broken(MAIL_E_SYSTEM, MAIL_E_POP_SYSTEM, std::to_string(error)); }

void Rules::at_rest(const char* call) {
    if (replied_ && !at_work_) problem(std::string("a ") + call + " too many");
}

}  // namespace hostile

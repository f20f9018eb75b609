// hostile_peers [COUNT [SEED]] - sends against peers that misbehave: the rows below, then COUNT
// conversations that follow from SEED, SEED + 1 and so on. Each must come to what the rules of the
// conversation say, in the time that they allow, and leave nothing. With COUNT 1 the dialogue is
// shown.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <span>
#include <sstream>

#include "hostile/calls.hpp"
#include "mail_api.h"
#include "support/support.hpp"

namespace {

using namespace hostile;
using support::write_file;

constexpr const char* kDataDir = "/var/opt/Quorvin";
constexpr const char* kLogDir = "/var/opt/Quorvin/log";
constexpr const char* kTraceDir = "/var/opt/Quorvin/tmp2";
constexpr const char* kWorkDir = "/var/opt/Quorvin/tmp";
constexpr unsigned kWatchdogSeconds = 60;  // of real time, for one conversation
constexpr int kDescriptors = 64;
constexpr int kEnough = 5;  // findings
constexpr int kFound = 3;   // exit status, not one of a sanitizer's
constexpr std::size_t kDetailSize = 256;

// What of a message is the same in every run.
std::string normal(const std::string& text) {
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
        const std::string_view line = std::string_view(text).substr(at, end - at);
        out += line.starts_with("Date: ") ? "Date\n" : line;
        at = end;
    }
    for (char& c : out)
        if (std::isxdigit(static_cast<unsigned char>(c)) != 0) c = '0';
    return out;
}

std::uint64_t open_descriptors() {
    std::uint64_t mask = 0;
    for (int fd = 0; fd < kDescriptors; ++fd)
        if (::fcntl(fd, F_GETFD) >= 0) mask |= std::uint64_t{1} << fd;
    return mask;
}

void set_trace_level(int level) {
    static int current = -1;
    if (std::exchange(current, level) == level) return;
    write_file("/etc/opt/Quorvin/trc_conf",
               "[ACERT]\nTRACESIZE=5\nTRACELEVEL=" + std::to_string(level) + "\n[LOG]\nLOGNUM=5\n");
}

// The mail, of three blocks when it is sent whole, in three pieces otherwise.
class Mail {
public:
    Mail() {
        write_file(small_, std::string(700, 's'));
        write_file(big_, std::string(15000, 'b'));
    }

    std::int32_t send(const Request& request, std::span<char> detail) const {
        const MailEntry to{MAIL_KIND_RECIPIENT, 0, "ann@example.test"};
        const MailEntry parts[] = {
            {MAIL_KIND_BODY, 0, body_.c_str()},
            {MAIL_KIND_ATTACHMENT, 0, (request.pieces ? big_ : small_).c_str()}};
        const MailSplitOption split{10, kSmtpPort};
        const MailAuthAccount account{request.mechanisms, "user", "secret"};
        const MailPopAccount pop{kPopPort, 1500,        "user",
                                 "secret", "127.0.0.1", request.pop_seconds};
        const MailEntry auth = request.pop ? MailEntry{MAIL_AUTH_POP_BEFORE_SMTP, 0, &pop}
                                           : MailEntry{MAIL_AUTH_SMTP, 0, &account};
        const bool asked = request.pop || request.mechanisms != 0;
        return OvRm_SendEMail(&to, 1, parts, 2, "bob@example.test", "Hello", "127.0.0.1",
                              request.pieces ? 1 : 0, &split, &request.budgets,
                              asked ? &auth : nullptr, detail.data());
    }

private:
    support::TempDir files_;
    std::string body_ = ".one\n" + std::string(80, 't') + "\n..two\n";
    std::string small_ = files_.file("small.bin");
    std::string big_ = files_.file("big.bin");
};

long size_of_files(const std::string& directory) {
    long size = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        size += static_cast<long>(entry.file_size());
    return size;
}
void remove_files(const std::string& directory) {
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        std::filesystem::remove(entry.path());
}

struct Outcome {
    std::int32_t result = 0;
    Ms lasted = 0;
    long heap_peak = 0;
    std::vector<std::string> problems;
    std::string told;
};

class Sender {
public:
    // The first mail of its kind is friendly and shows how a whole one looks.
    Sender() {
        set_trace_level(2);
        (void)send(standard(true), std::vector<Row>{});
        peak_ = send(standard(), std::vector<Row>{}).heap_peak;
        trace_size_ = size_of_files(kTraceDir);
    }

    static Request standard(bool pieces = false, std::uint32_t mechanisms = 0, bool pop = false) {
        return {pieces, mechanisms, pop, 60, {300, 300, 300, 120, 180, 600}};
    }

    template <class How>
    Outcome send(const Request& request, How how, bool tells = false) {
        const std::uint64_t open_before = open_descriptors();
        const long blocks_before = heap().blocks;
        heap().peak = heap().bytes;
        const auto detail = std::make_unique<char[]>(kDetailSize);  // a byte too many is seen
        Outcome outcome;
        Conversation talk(request, how, tells ? &outcome.told : nullptr);
        outcome.result = mail_.send(request, {detail.get(), kDetailSize});
        outcome.lasted = talk.now - talk.begun;
        outcome.heap_peak = heap().peak;
        Rules& rules = talk.rules;
        const auto check = [&](bool good, const std::string& what) {
            if (!good) rules.problem(what);
        };
        const auto compare = [&](const char* what, const auto& is, const auto& should) {
            check(is == should, (std::ostringstream() << what << is << ", not " << should).str());
        };
        compare("result ", outcome.result, rules.result());
        compare("detail ", std::string(detail.get(), ::strnlen(detail.get(), kDetailSize)),
                rules.detail());
        check(outcome.lasted <= rules.bound(), "took " + std::to_string(outcome.lasted) + " ms");
        check(heap().blocks == blocks_before, "heap blocks left");
        check(open_descriptors() == open_before, "descriptors left");
        check(std::filesystem::is_empty(kWorkDir), "working files left");
        if (outcome.result >= 0) check_messages(rules.messages(), request.pieces, check);
        outcome.problems = rules.problems();
        return outcome;
    }

    // Of a friendly conversation.
    [[nodiscard]] long peak() const { return peak_; }
    [[nodiscard]] long trace_size() const { return trace_size_; }

private:
    template <class Check>
    void check_messages(const std::vector<std::string>& messages, bool pieces, Check check) {
        auto& whole = whole_[pieces ? 1 : 0];
        std::vector<std::string> seen;
        for (const std::string& message : messages) seen.push_back(normal(message));
        if (whole.empty()) whole = seen;
        check(seen == whole && seen.size() == (pieces ? 3U : 1U),
              "sent, but not the whole message");
    }

    Mail mail_;
    std::vector<std::string> whole_[2];
    long peak_ = 0;
    long trace_size_ = 0;
};

// Where outcomes are counted and findings told.
class Report {
public:
    explicit Report(std::span<char> name) : name_(name) {}

    // What runs: whoever finds the process dead reads it.
    void begin(const std::string& name) {
        ::alarm(kWatchdogSeconds);
        std::snprintf(name_.data(), name_.size(), "%s", name.c_str());
    }
    void check(bool good, const std::string& what) {
        if (good) return;
        std::printf("%s: %s\n", name_.data(), printable(what).c_str());
        ++findings_;
    }
    void end(const Outcome& outcome) {
        for (const std::string& problem : outcome.problems) check(false, problem);
        ++results_[outcome.result];
        lasted_ += outcome.lasted;
    }
    [[nodiscard]] int findings() const { return findings_; }

    // With enough conversations every result that a server can bring about has come up.
    void summary(bool all_results) {
        begin("results");
        constexpr std::int32_t kResults[] = {0, 2, -4, -6, -7, -10, -15, -16, -17, -18, -25, -26};
        long count = 0;
        std::string text;
        for (const auto& [result, times] : results_) {
            count += times;
            text += " " + std::to_string(result) + ": " + std::to_string(times);
        }
        for (const std::int32_t result : kResults)
            check(!all_results || results_.contains(result), std::to_string(result) + " never");
        std::printf("hostile_peers: %ld conversations of %ld days, %d findings; results%s\n", count,
                    static_cast<long>(lasted_ / 86'400'000), findings_, text.c_str());
    }

private:
    std::span<char> name_;
    std::map<std::int32_t, long> results_;
    Ms lasted_ = 0;
    int findings_ = 0;
};

// The reply of each phase is cut at every byte, and nothing, the end or a reset comes then, or the
// rest, at once or when the budget is spent.
void run_cuts(Sender& sender, Report& report) {
    for (unsigned n = 0; n < kPhases; ++n) {
        const auto phase = static_cast<Phase>(n);
        const std::uint32_t mechanism = !is_auth(phase)                               ? 0
                                        : phase == kCramMd5 || phase == kCramResponse ? 4
                                        : phase == kPlain                             ? 2
                                                                                      : 1;
        const Request request = Sender::standard(phase == kReset, mechanism, is_pop(phase));
        const std::string reply = Peer(request, std::vector<Row>{}).friendly(phase);
        const Ms budget = request.seconds(phase) * 1000;
        for (std::size_t cut = 0; cut <= reply.size() && phase != kBody; ++cut) {
            const std::string part = reply.substr(0, cut);
            const Act acts[] = {{part, 0, 0, 0, 0, End::kNone, true},
                                {part, 0, 0, 0, 0, End::kClosed},
                                {part, 0, 0, 0, 0, End::kReset},
                                {reply, cut},
                                {reply, cut, 0, 0, budget}};
            report.begin(name_of(phase) + (" cut at " + std::to_string(cut)));
            for (const Act& act : acts) {
                std::vector<Row> rows{{phase, act}};
                if (phase == kHelo) rows.push_back({kEhlo, {"502 what\r\n"}});
                report.end(sender.send(request, rows));
            }
        }
    }
}

std::string lines(int count, std::size_t length) {
    std::string all;
    for (; count > 0; --count) all += "250-" + std::string(length - 6, 'x') + "\r\n";
    return all + "250 ok\r\n";
}

// What becomes of replies that do not end, within the rules: a line is cut at 1,028 bytes, and each
// byte of it is waited for as long as the first; lines behind the first share the budget, and once
// it is spent they are read as long as they come at once; lines of the reply to EHLO have a budget
// each, and each goes to the log. Memory and trace stay what they are with any other mail.
void run_endless(Sender& sender, Report& report) {
    constexpr int kMany = 5000;
    constexpr std::size_t kLong = 1000;
    const std::string no_end(1'000'000, 'x');
    const std::string full = "250 " + no_end.substr(0, 1024);
    const struct {
        const char* name;
        Phase phase;
        Act act;
        std::int32_t result;
        Ms seconds;
        long log_kb;
    } rows[] = {
        {"EHLO, many lines", kEhlo, {lines(kMany, kLong)}, 0, 0, kMany * (kLong + 12) / 1024},
        {"EHLO, late lines", kEhlo, {lines(99, 80), 0, 80, 299'000, 299'000}, 0, 29'900, 9},
        {"MAIL, many lines", kMail, {lines(kMany, kLong), 0, 0, 300'000}, 0, 300, 0},
        {"MAIL, late lines", kMail, {lines(99, 80), 0, 80, 299'000, 299'000}, -4, 300, 0},
        {"MAIL, late bytes", kMail, {full, 0, 1, 300'000, 300'000}, 0, 1028 * 300, 1},
        {"greeting, no line end", kGreeting, {"220 " + no_end}, -6, 0, 3},
        {"USER, no line end", kUser, {no_end}, -15, 0, 1},
        {"USER, late bytes", kUser, {no_end, 0, 1, 10'000, 10'000}, -17, 60, 0},
    };
    for (const auto& row : rows) {
        report.begin(row.name);
        remove_files(kLogDir);
        const Outcome outcome = sender.send(Sender::standard(false, 0, is_pop(row.phase)),
                                            std::vector<Row>{{row.phase, row.act}});
        report.end(outcome);
        const auto compare = [&](const char* what, Ms is, Ms should) {
            report.check(is == should,
                         what + std::to_string(is) + ", not " + std::to_string(should));
        };
        compare("result ", outcome.result, row.result);
        compare("seconds ", outcome.lasted / 1000, row.seconds);
        compare("KiB of log ", size_of_files(kLogDir) / 1024, row.log_kb);
        report.check(outcome.heap_peak <= sender.peak() + 16384,
                     "more memory than with any other mail");
        compare("bytes of trace ", size_of_files(kTraceDir), sender.trace_size());
    }
}

// A reply to EHLO that is longer than the disk is large: that mail goes out and its log is cut
// short. The next one finds no room, until somebody makes some.
void run_full_disk(Sender& sender, Report& report) {
    report.begin("full disk");
    if (std::getenv("OVRMAIL_PRIVATE_DIRS") == nullptr ||
        ::mount("tmpfs", kDataDir, "tmpfs", 0, "size=1m") != 0) {
        std::printf("hostile_peers: no disk of its own to fill: not tried\n");
        return;
    }
    for (const char* const directory : {kWorkDir, kLogDir, kTraceDir})
        std::filesystem::create_directory(directory);
    const Request request = Sender::standard();
    const Outcome filling = sender.send(request, std::vector<Row>{{kEhlo, {lines(2000, 1000)}}});
    report.end(filling);
    report.check(filling.result == 0 && size_of_files(kLogDir) > 900'000, "the disk is not full");
    const std::int32_t next = sender.send(request, std::vector<Row>{}).result;
    report.check(next == -3, "result with a full disk: " + std::to_string(next));
    remove_files(kLogDir);
    report.end(sender.send(request, std::vector<Row>{}));
    ::umount(kDataDir);
}

Outcome converse(Sender& sender, std::uint64_t seed, bool tells) {
    Random random(seed * 0x9E3779B97F4A7C15);  // neighbouring seeds part
    Request request;
    request.pieces = random.chance(25);
    if (random.chance(50))
        request.mechanisms = 1 + static_cast<std::uint32_t>(random.below(7));
    else
        request.pop = random.chance(50);
    const auto seconds = [&] { return 60 + static_cast<std::uint32_t>(random.below(200)); };
    request.pop_seconds = static_cast<std::uint16_t>(seconds());
    request.budgets = {seconds(), seconds(), seconds(), seconds(), seconds(), seconds()};
    set_trace_level(random.chance(20) ? 2 : 1);
    return sender.send(request, random, tells);
}

int run(std::uint64_t count, std::uint64_t seed, Report& report) {
    Sender sender;
    if (count != 1) {
        run_endless(sender, report);
        run_full_disk(sender, report);
        run_cuts(sender, report);
    }
    for (std::uint64_t n = 0; n < count && report.findings() < kEnough; ++n) {
        report.begin("seed " + std::to_string(seed + n));
        const Outcome outcome = converse(sender, seed + n, count == 1);
        std::printf("%s", outcome.told.c_str());
        report.end(outcome);
    }
    report.summary(count >= 1000);
    return report.findings() == 0 ? 0 : kFound;
}

}  // namespace

// A process of its own sends, so that whatever ends it is told with the seed.
int main(int argc, char** argv) {
    const std::uint64_t count = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 2000;
    const std::uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
    constexpr std::size_t kNameSize = 128;
    auto* const name = static_cast<char*>(
        ::mmap(nullptr, kNameSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    if (name == MAP_FAILED) return 1;
    const pid_t sender = ::fork();
    if (sender == 0) {
        Report report({name, kNameSize});
        const int status = run(count, seed, report);
        std::fflush(nullptr);
        ::_exit(status);
    }
    int status = 0;
    if (sender < 0 || ::waitpid(sender, &status, 0) != sender) return 1;
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return 0;
    if (WIFSIGNALED(status))
        std::printf("%s: ended by signal %d\n", name, WTERMSIG(status));
    else if (WEXITSTATUS(status) != kFound)
        std::printf("%s: ended with status %d\n", name, WEXITSTATUS(status));
    std::printf("one seed again: tests/support/private_dirs.sh %s 1 SEED\n", argv[0]);
    return 1;
}

// What a caller gets for each failure, of the server or of the machine, for each kind of send:
// docs/result-codes.md is the outcome of this program's run. OVRMAIL_WRITE_DOCS=1 writes it anew;
// read the difference.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <sstream>
#include <vector>

#include "mime.h"
#include "support/delivery.hpp"
#include "support/each_fault.hpp"
#include "tools/ovrm_trace_ring.hpp"

namespace {

using namespace support;
using fault::Fault;

constexpr const char* kDocument = OVRMAIL_SOURCE_DIR "/docs/result-codes.md";
constexpr std::string_view kTableHead =
    "| step | fault | kind of send | result | detail | seconds | last line of the mail log |\n"
    "|---|---|---|---:|---|---:|---|\n";
constexpr std::string_view kFailureHead =
    "\n## What a failure leaves in the trace\n\n"
    "Points that a send without a failure leaves too are left out.\n\n"
    "| trace points | steps and results |\n|---|---|\n";
constexpr std::string_view kSendHead =
    "\n## What a send leaves in the trace\n\n"
    "At level 2, in order; what comes several times in a row stands once. First steps that come\n"
    "again and again, then each kind of send.\n";

// Steps that come again and again, in terms of those above them.
constexpr std::pair<std::string_view, std::string_view> kTraceSteps[] = {
    {"*clock*", "SETSTART0000 SETSTARTFFFF"},
    {"*budget*", "SETIMEO0000 SETIMEOFFFF *clock*"},
    {"*sent*", "SMTP_s0000 smtp0e00 smtp0e05 smtp0eFF SMTP_sFFFF"},
    {"*line*", "smtp0f00 GETSLCT0000 GETSLCTFFFF smtp0f05 smtp0fFF"},
    {"*asked*", "*sent* smtp0d00 *line* smtp0dFF"},
    {"*POP-line*", "Pop3_0a00 Pop3_0c00 PGTSTO0000 PGTSTOFFFF Pop3_0c05 Pop3_0cff Pop3_0aff"},
};

// Each different from the time-out of its neighbours and of QUIT, 300 s.
constexpr MailTimeout kTimeOuts{310, 320, 330, 120, 180, 600};
constexpr int kPopTimeOut = 60;

// A step at which the server is waited for, in the order of the conversation.
struct Phase {
    const char* name;
    const char* expect;  // of the script's row
    const char* good;
    unsigned kinds;
    int seconds;  // its time-out
};
constexpr unsigned kAny = kPlain | kPartial | kPop | kPrepared;
const std::vector<Phase> kSmtpPhases = {
    {"greeting", "", "220 hi\r\n", kAny, 310},
    {"EHLO", "EHLO", "250 hi\r\n", kAny, 310},
    {"HELO", "HELO", "250 hi\r\n", kHelo, 310},
    {"AUTH", "AUTH", "334 PDE+\r\n", kAuth, 310},
    {"AUTH response", "dXNlci", "235 ok\r\n", kAuth, 310},
    {"MAIL", "MAIL", "250 ok\r\n", kAny | kAuth | kHelo, 320},
    {"RCPT", "RCPT", "250 ok\r\n", kAny, 330},
    {"DATA", "DATA", "354 go\r\n", kAny, 120},
    {"end of data", kBody, "250 kept\r\n", kAny, 600},
    {"RSET", "RSET", "250 ok\r\n", kPartial, 600},
    {"QUIT", "QUIT", "221 bye\r\n", kAny, 300},
};
const std::vector<Phase> kPopPhases = {
    {"POP greeting", "", "+OK hi\r\n", kPop, kPopTimeOut},
    {"USER", "USER", "+OK\r\n", kPop, kPopTimeOut},
    {"PASS", "PASS", "+OK\r\n", kPop, kPopTimeOut},
    {"STAT", "STAT", "+OK 0 0\r\n", kPop, kPopTimeOut},
    {"POP QUIT", "QUIT", "+OK\r\n", kPop, kPopTimeOut},
};

// What the server does instead of the good reply to one phase: so many bytes of it, and more.
struct Trouble {
    const char* name;
    std::size_t kept;
    std::string more;
    Then then = Then::kGoOn;
    std::size_t part = 0;  // bytes sent at once
    bool late = false;     // each part a second before the time-out; tried with one kind only

    [[nodiscard]] Row row(const Phase& phase, bool pop) const {
        const std::string tail = more.starts_with('5') && pop ? "-ERR no\r\n" : more;
        return {phase.expect, std::string(phase.good).substr(0, kept) + tail, then, part,
                late ? phase.seconds - 1 : 0};
    }
};
const Trouble kTroubles[] = {
    {"refused", 0, "550 no\r\n"},
    {"silent", 0, "", Then::kStall},
    {"half a line", 2, "", Then::kStall},
    {"byte by byte", 99, "", Then::kGoOn, 1},
    {"closed", 0, "", Then::kClose},
    {"reset", 0, "", Then::kReset},
    {"closed after it", 99, "", Then::kClose},
    {"garbage", 0, "\x01\xFF{}\r\n"},
    {"2,000 bytes", 4, std::string(1994, 'x') + "\r\n"},
    {"late", 99, "", Then::kGoOn, 0, true},
    {"each byte late", 99, "", Then::kGoOn, 1, true},
};

std::string printable(std::string_view text) {
    std::string out;
    for (const char c : text.substr(0, 48)) {
        if (c == '\r' || c == '\n') continue;
        if (c >= ' ' && c <= '~' && c != '|') {
            out += c;
        } else {
            std::array<char, 8> hex{};
            std::snprintf(hex.data(), hex.size(), "\\x%02X", static_cast<unsigned char>(c));
            out += hex.data();
        }
    }
    return text.size() > 48 ? out + "..." : out;
}

// Without the number of the error that a call was made to fail with.
std::string general(std::string text) {
    const std::string number = fault::was_hit() ? std::to_string(fault::last_error()) : "none";
    if (text == number || text.ends_with("detail=" + number))
        text.replace(text.size() - number.size(), number.size(), "errno");
    return printable(text);
}

// What is there several times in a row is given once.
std::vector<std::string> points_in_ring() {
    std::vector<std::string> points;
    for (const auto& record : ovrm_trace::read_ring(ring_bytes()).records)
        if (points.empty() || points.back() != record.point) points.push_back(record.point);
    return points;
}

void replace_all(std::string& text, std::string_view from, std::string_view to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size())
        text.replace(at, from.size(), to);
}

std::string joined_points() {
    std::string all;
    for (const std::string& point : points_in_ring()) all += " " + point;
    all += " ";
    for (const auto& [name, points] : kTraceSteps) replace_all(all, points, name);
    for (const std::string block : {" *clock* *sent*", " *sent*"})
        while (all.find(block + block + " ") != all.npos) replace_all(all, block + block, block);
    return all;
}

// Rows of a table, of which one cell tells all that share the others.
class Rows {
public:
    void add(const std::string& begin, const std::string& shared, const std::string& end) {
        auto row = std::ranges::find_if(
            rows_, [&](const auto& one) { return one.begin == begin && one.end == end; });
        if (row == rows_.end()) row = rows_.insert(row, {begin, {}, end});
        if (std::ranges::find(row->shared, shared) == row->shared.end())
            row->shared.push_back(shared);
    }
    [[nodiscard]] std::string text() const {
        constexpr std::string_view kFour = "plain, pieces, POP first, prepared";
        constexpr std::string_view kAll = "plain, auth, HELO, pieces, POP first, prepared, EUC";
        std::string out;
        for (const auto& row : rows_) {
            std::string all;
            for (const auto& one : row.shared) all += (all.empty() ? "" : ", ") + one;
            out += row.begin + (all == kFour || all == kAll ? "all" : all) + row.end;
        }
        return out;
    }

private:
    struct Row {
        std::string begin;
        std::vector<std::string> shared;
        std::string end;
    };
    std::vector<Row> rows_;
};

// The locale in which a mail of this kind is sent.
struct LocaleOf {
    explicit LocaleOf(Kind kind) {
        if (kind == kEuc) euc.emplace();
    }
    std::optional<EucLocale> euc;
};

class Document {
public:
    Document() {
        std::array<char, 512> id{};
        SMTP_MakeMsgId(id.data());  // the host name is looked up, and traced, once only
        for (const auto& [name, points] : kTraceSteps)
            add_points(std::string(name), " " + std::string(points));
        set_logs(5, 2);
        for (const Kind kind : kKinds) {
            const LocaleOf locale(kind);
            Delivery(kind).run();
            for (const std::string& point : points_in_ring()) usual_.insert(point);
            add_points(name_of(kind), joined_points());
        }
        set_logs(5, 1);
    }

    void add(const std::string& step, const std::string& fault, Kind kind, const SendResult& seen) {
        std::ostringstream end;
        end << " | " << seen.result << " | " << general(seen.detail) << " | " << seen.seconds
            << " | " << general(seen.last_log) << " |\n";
        results_.add("| " + step + " | " + fault + " | ", name_of(kind), end.str());
        std::string points;
        for (const std::string& point : points_in_ring())
            if (!usual_.contains(point)) points += (points.empty() ? "" : " ") + point;
        if (!points.empty())
            failures_.add("| " + points + " | ", step + ": " + std::to_string(seen.result), " |\n");
    }
    void run(const std::string& step, const std::string& fault, Kind kind, Delivery& delivery) {
        SCOPED_TRACE(step + ", " + fault + ", " + name_of(kind));
        fault::clear();
        delivery.mail.time_out = kTimeOuts;
        const SendResult seen = delivery.run();
        EXPECT_TRUE(seen.is_clean())
            << seen.trash.size() << " files, " << seen.descriptors << " descriptors, "
            << seen.heap_blocks << " blocks, temporary kept: " << seen.temporary_kept;
        const auto last = ovrm_trace::read_ring(ring_bytes()).records.back();
        EXPECT_EQ(last.data, std::string(reinterpret_cast<const char*>(&seen.result), 4));
        add(step, fault, kind, seen);
    }

    [[nodiscard]] std::string text() const {
        return std::string(kTableHead) + results_.text() + std::string(kFailureHead) +
               failures_.text() + std::string(kSendHead) + sends_;
    }

private:
    // In lines of up to 100 columns.
    void add_points(const std::string& name, const std::string& points) {
        sends_ += "\n- " + name + ":";
        std::istringstream words(points);
        std::size_t column = name.size() + 3;
        for (std::string word; words >> word; column += word.size() + 1) {
            const bool fits = column + word.size() < 100;
            sends_ += (fits ? " " : "\n  ") + word;
            if (!fits) column = 1;
        }
        sends_ += "\n";
    }

    std::set<std::string> usual_;  // points of sends without a failure
    Rows results_, failures_;
    std::string sends_;
};

// What the call that failed was about.
std::string object_of_hit() {
    const std::string about = fault::last_about();
    if (fault::hit_one_of("send")) {
        if (about == "\r\n.\r\n") return "end of data";
        for (const auto* const phases : {&kSmtpPhases, &kPopPhases})
            for (const Phase& phase : *phases)
                if (phase.expect[0] != '\0' && about.starts_with(phase.expect)) return phase.name;
        return "message";
    }
    constexpr std::pair<const char*, const char*> kFiles[] = {{"/EMT", "body file"},
                                                              {"/EST", "composed file"},
                                                              {".bin", "attachment"},
                                                              {"content.txt", "prepared content"},
                                                              {"header.txt", "prepared header"}};
    for (const auto& [part, name] : kFiles)
        if (about.find(part) != about.npos) return name;
    return about.starts_with('/') ? about : "-";
}

// Each call of a send fails in turn. Faults of log, trace and settings change nothing.
class FaultySends {
public:
    FaultySends(Document& document, Kind kind) : document_(document), kind_(kind) {
        fault::clear();
        send();
        wanted_ = seen_;
        wanted_message_ = delivery_->message();
    }
    void run() {
        // The kinds differ from a plain mail in few calls.
        using fault::Mode;
        std::vector<Fault> faults{{Mode::kFail}, {Mode::kInterrupt, EINTR, 9}};
        if (kind_ == kPlain || kind_ == kPrepared) faults.push_back({Mode::kHalf, ENOSPC});
        if (kind_ == kPlain) faults.push_back({Mode::kInterrupt, EINTR, 10});
        fault::each_fault([this] { send(); }, [this](const Fault& fault) { judge(fault); }, {},
                          faults);
    }

private:
    void send() {
        delivery_.emplace(kind_);
        if (kind_ == kPlain) {  // the log is full: generations move on, one file goes
            for (const char* generation : {"1", "2", "3", "9", ""})
                write_file(log_path() + generation, std::string(20000, 'l'));
        }
        seen_ = delivery_->run();
    }

    void judge(const Fault& fault) {
        const bool recovered = fault::is_recovered(fault);
        const auto spoils = [&](const char* directory) {
            return !recovered && (fault::hit_at(directory) || fault::hit_heap());
        };
        EXPECT_TRUE(seen_.traced || spoils(kTraceDir));
        EXPECT_TRUE(!seen_.last_log.empty() || spoils(kLogDir));
        // What could not be deleted is left.
        if (!recovered && fault::hit_one_of("unlink")) {
            std::erase(seen_.trash, fault::last_about());
            if (fault::last_about().ends_with("temporary.bin")) seen_.temporary_kept = false;
        }
        EXPECT_TRUE(seen_.is_clean()) << testing::PrintToString(seen_.trash);
        if (seen_.result == wanted_.result) {
            EXPECT_EQ(seen_.detail, "");
            EXPECT_EQ(delivery_->message(), wanted_message_);
            return;
        }
        EXPECT_FALSE(recovered || fault::hit_at("/etc/") || fault::hit_at(kLogDir) ||
                     fault::hit_at(kTraceDir));
        std::string call = fault::last_hit();
        if (call.ends_with("64")) call.resize(call.size() - 2);
        const char* const how[] = {" fails", " is interrupted often", " does half"};
        document_.add(object_of_hit(), call + how[static_cast<int>(fault.mode)], kind_, seen_);
        if (seen_.result == MAIL_SENT_UNCONVERTED) {  // the attachments are whole
            const std::string tail = wanted_message_.substr(wanted_message_.size() - 2000);
            EXPECT_TRUE(delivery_->message().ends_with(tail));
        }
    }

    Document& document_;
    Kind kind_;
    std::optional<Delivery> delivery_;
    SendResult seen_, wanted_;
    std::string wanted_message_;
};

void add_server_faults(Document& document, const std::vector<Phase>& phases, bool pop) {
    for (const Phase& phase : phases)
        for (const Trouble& trouble : kTroubles)
            for (const Kind kind : kKinds) {
                const bool is_first = (phase.kinds & (kind - 1U)) == 0;
                if ((phase.kinds & kind) == 0 || (trouble.late && !is_first)) continue;
                const Script changes{trouble.row(phase, pop)};
                Delivery delivery(kind, pop ? Script{} : changes, pop ? changes : Script{});
                document.run(phase.name, trouble.name, kind, delivery);
            }
}

// The server answers before it is asked: the reply comes along with the one before. It takes a
// message only behind its own 354.
void add_early_replies(Document& document, const std::vector<Phase>& phases, Kind kind) {
    const Phase* before = nullptr;
    for (const Phase& phase : phases) {
        if ((phase.kinds & kind) == 0) continue;
        if (before != nullptr && std::string_view(phase.expect) != "DATA") {
            const Script changes{{before->expect, std::string(before->good) + phase.good},
                                 {phase.expect, ""}};
            Delivery delivery(kind, kind == kPop ? Script{} : changes,
                              kind == kPop ? changes : Script{});
            delivery.mail.to = "ann@example.test";
            document.run(phase.name, "early", kind, delivery);
        }
        before = &phase;
    }
}

// Cases that take more than one changed reply or another request.
void add_special_cases(Document& document) {
    const auto run = [&](
                         const char* step, const char* fault, Kind kind, const Script& changes,
                         const std::function<void(SampleMail&)>& change = [](auto&) {}) {
        Delivery delivery(kind, changes);
        change(delivery.mail);
        document.run(step, fault, kind, delivery);
    };
    const auto refuse = [](SampleMail& mail) { mail.split.ulPort = refusing_port(); };
    const Row no_auth{"AUTH", "535 no\r\n"};
    const Row no_mail{"MAIL", "530 log in\r\n"};
    for (const Kind kind : {kPlain, kPartial, kPop, kPrepared}) {
        run("connect", "refused", kind, {}, refuse);
        run("connect", "unknown host", kind, {}, [](auto& m) { m.server = "a.invalid"; });
    }
    const std::string lines = "250-ok\r\n250-ok\r\n250 ok\r\n";
    const std::size_t line = lines.size() / 3;
    for (const char* const command : {"EHLO", "MAIL"}) {
        run(command, "three lines, each after 200 s", kPlain,
            {{command, lines, Then::kGoOn, line, 200}});
        run(command, "three lines at once, after 310 s", kPlain,
            {{command, lines, Then::kGoOn, 0, 310}});
    }
    const std::string no_end(100'000, 'x');
    run("EHLO", "1,000 lines", kPlain, {{"EHLO", [] {
                                             std::string all;
                                             for (int i = 0; i < 1000; ++i) all += "250-ok\r\n";
                                             return all + "250 ok\r\n";
                                         }()}});
    run("greeting", "no line end", kPlain, {{"", "220 " + no_end}});
    run("message", "server reads no more", kPlain, {{"DATA", "354 go\r\n", Then::kDeaf}},
        [](auto& m) {
            std::filesystem::resize_file(static_cast<const char*>(m.attachments[0].value),
                                         std::uintmax_t{16} << 20);
        });
    run("AUTH", "no mechanism in common", kAuth, {{"EHLO", "250 hi\r\n"}});
    run("AUTH", "every mechanism refused", kAuth, {no_auth},
        [](auto& m) { m.account.ulMechanisms = 7; });
    run("MAIL after AUTH", "refused, all mechanisms too", kAuth, {no_auth, no_mail});
    run("MAIL after AUTH", "refused, no mechanism", kAuth, {{"EHLO", "250 hi\r\n"}, no_mail});
    run("RCPT after AUTH", "refused, no mechanism", kAuth,
        {{"EHLO", "250 hi\r\n"}, {"RCPT", "530 log in\r\n"}});
    run("POP connect", "refused", kPop, {}, [](auto& m) { m.pop.ulPort = refusing_port(); });
    run("POP connect", "unknown host", kPop, {},
        [](auto& m) { std::strcpy(m.pop.szHost, "a.invalid"); });
}

TEST(ResultCodes, DocumentIsWhatTheLibraryDoes) {
    if (!EucLocale().is_set())
        GTEST_SKIP() << "localedef cannot make ja_JP.eucJP (package locales)";
    ::signal(SIGPIPE, SIG_DFL);  // a lost server must not end the process
    Document document;
    for (const Kind kind : kKinds) {
        const LocaleOf locale(kind);
        FaultySends(document, kind).run();
    }
    add_server_faults(document, kPopPhases, true);
    add_early_replies(document, kPopPhases, kPop);
    add_server_faults(document, kSmtpPhases, false);
    add_early_replies(document, kSmtpPhases, kPlain);
    add_special_cases(document);

    const std::string before = read_file(kDocument);
    const std::size_t begin = before.find(kTableHead);
    ASSERT_NE(begin, std::string::npos);
    if (std::getenv("OVRMAIL_WRITE_DOCS") != nullptr)
        write_file(kDocument, before.substr(0, begin) + document.text());
    std::istringstream written(read_file(kDocument).substr(begin)), seen(document.text());
    for (std::string line, row; std::getline(seen, row);) {
        std::getline(written, line);
        ASSERT_EQ(line, row);  // one line: the rest follows from it
    }
    EXPECT_EQ(written.peek(), EOF);
}

}  // namespace

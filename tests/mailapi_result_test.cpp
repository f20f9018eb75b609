// What a caller gets for each failure, at each step of each road: docs/result-codes.md is the
// outcome of this program's run. OVRMAIL_WRITE_DOCS=1 writes it anew; read the difference.
#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <sstream>

#include "support/fault.hpp"
#include "support/roads.hpp"

namespace {

using namespace support;

constexpr const char* kDocument = OVRMAIL_SOURCE_DIR "/docs/result-codes.md";
constexpr std::string_view kTableHead =
    "| step | fault | road | result | detail | last line of the mail log | files left |\n"
    "|---|---|---|---|---|---|---|\n";

// A step at which the server is waited for, in the order of the conversation.
struct Phase {
    const char* name;
    const char* expect;  // of the script's row
    const char* good;
    unsigned roads;
};
constexpr unsigned kAny = kPlain | kPartial | kPop | kPrepared;
const Phase kSmtpPhases[] = {
    {"greeting", "", "220 hi\r\n", kAny},
    {"EHLO", "EHLO", "250 hi\r\n", kAny},
    {"HELO", "HELO", "250 hi\r\n", kHelo},
    {"AUTH", "AUTH", "334 PDE+\r\n", kAuth},
    {"AUTH response", "dXNlci", "235 ok\r\n", kAuth},
    {"MAIL", "MAIL", "250 ok\r\n", kAny | kAuth | kHelo},
    {"RCPT", "RCPT", "250 ok\r\n", kAny},
    {"DATA", "DATA", "354 go\r\n", kAny},
    {"end of data", kBody, "250 kept\r\n", kAny},
    {"RSET", "RSET", "250 ok\r\n", kPartial},
    {"QUIT", "QUIT", "221 bye\r\n", kAny},
};
const Phase kPopPhases[] = {
    {"POP greeting", "", "+OK hi\r\n", kPop}, {"USER", "USER", "+OK\r\n", kPop},
    {"PASS", "PASS", "+OK\r\n", kPop},        {"STAT", "STAT", "+OK 0 0\r\n", kPop},
    {"POP QUIT", "QUIT", "+OK\r\n", kPop},
};

// What the server does instead of the good reply to one phase: so many bytes of it, and more.
struct Fault {
    const char* name;
    std::size_t kept;
    std::string more;
    Then then = Then::kGoOn;
    std::size_t part = 0;  // bytes sent at once

    [[nodiscard]] Row row(const Phase& phase, bool pop) const {
        const bool refused = more.starts_with('5');
        const std::string tail = refused && pop ? "-ERR no\r\n" : more;
        return {phase.expect, std::string(phase.good).substr(0, kept) + tail, then, part};
    }
};
const Fault kFaults[] = {
    {"refused", 0, "550 no\r\n"},         {"silent", 0, "", Then::kStall},
    {"half a line", 2, "", Then::kStall}, {"byte by byte", 99, "", Then::kGoOn, 1},
    {"closed", 0, "", Then::kClose},      {"reset", 0, "", Then::kReset},
    {"garbage", 0, "\x01\xFF{}\r\n"},     {"2,000 bytes", 4, std::string(1994, 'x') + "\r\n"},
};

// A failing call of the machine, made by the function and about the text given.
struct LocalFault {
    const char* step;
    const char* fault;
    unsigned roads;
    const char* function;
    const char* about;
    int error;
    int skip = 0;  // calls that succeed before
};
constexpr unsigned kStaged = kPlain | kPartial;
const LocalFault kLocalFaults[] = {
    {"body file", "cannot be made", kStaged, "open", "/EMT", EACCES},
    {"body file", "disk full", kStaged, "write", "/EMT", ENOSPC},
    {"body file", "name is taken", kStaged, "open", "/EMT", EEXIST},
    {"body file", "disk full, told at close", kStaged, "close", "/EMT", EDQUOT},
    {"body file", "cannot be read", kStaged, "read", "/EMT", EIO},
    {"attachment", "cannot be examined", kStaged, "stat64", "kept.bin", EACCES},
    {"attachment", "cannot be opened", kStaged, "open", "kept.bin", EACCES},
    {"attachment", "cannot be read", kStaged, "read", "kept.bin", EIO},
    {"prepared header", "cannot be opened", kPrepared, "open", "header.txt", EACCES},
    {"prepared content", "cannot be opened", kPrepared, "open", "content.txt", EACCES},
    {"composed file", "cannot be made", kStaged | kPrepared, "open", "/EST", EROFS},
    {"composed file", "disk full", kStaged | kPrepared, "write", "/EST", ENOSPC},
    {"composed file", "name is taken", kStaged | kPrepared, "open", "/EST", EEXIST},
    {"composed file", "disk full, told at close", kStaged | kPrepared, "close", "/EST", EDQUOT},
    {"composed file", "cannot be read", kStaged | kPrepared, "read", "/EST", EIO},
    {"body buffer", "no memory", kStaged, "calloc", "7777", ENOMEM},
    {"count of pieces", "no memory", kPartial, "calloc", "10240", ENOMEM},
    {"count of pieces", "cannot rewind", kPartial, "lseek", "/EST", EIO, 1},
    {"pieces", "no memory", kPartial, "calloc", "10240", ENOMEM, 1},
    {"pieces", "cannot rewind", kPartial, "lseek", "/EST", EIO, 2},
    {"socket", "none left", kAny, "socket", "", EMFILE},
    {"connect", "no route", kAny, "connect", "", EHOSTUNREACH},
    {"local host name", "unknown", kAny, "gethostname", "", ENAMETOOLONG},
    {"MAIL", "send fails", kAny, "send", "MAIL", EPIPE},
    {"DATA", "send fails", kAny, "send", "DATA", EPIPE},
    {"message", "send fails", kAny, "send", "Subject:", EPIPE},
    {"end of data", "send fails", kAny, "send", "\r\n.\r\n", EPIPE},
    {"QUIT", "send fails", kAny & ~kPop, "send", "QUIT", EPIPE},
    {"USER", "send fails", kPop, "send", "USER", EPIPE},
    {"greeting", "receive fails", kAny, "recv", "", ECONNRESET},
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

// Rows of the document, with the roads that share an outcome in one row.
class Table {
public:
    void add(const std::string& step, const std::string& fault, Road road, Journey& journey) {
        SCOPED_TRACE(step + ", " + fault + ", " + name_of(road));
        const Outcome outcome = journey.run();
        EXPECT_TRUE(outcome.is_clean())
            << outcome.trash.size() << " files, " << outcome.descriptors << " descriptors, "
            << outcome.heap_blocks << " blocks, temporary kept: " << outcome.temporary_kept;
        std::ostringstream row;
        row << " | " << outcome.result << " | " << printable(outcome.detail) << " | "
            << printable(outcome.last_log) << " | "
            << (outcome.temporary_kept ? "all" : "no temporary") << " |\n";
        const std::string key = "| " + step + " | " + fault;
        if (roads_.find({key, row.str()}) == roads_.end()) order_.push_back({key, row.str()});
        auto& roads = roads_[{key, row.str()}];
        roads += (roads.empty() ? "" : ", ") + std::string(name_of(road));
    }

    [[nodiscard]] std::string text() const {
        std::string out(kTableHead);
        for (const auto& row : order_) {
            const std::string& roads = roads_.at(row);
            const bool all = roads == "plain, pieces, POP first, prepared";
            out += row.first + " | " + (all ? "all" : roads) + row.second;
        }
        return out;
    }

private:
    using Key = std::pair<std::string, std::string>;
    std::vector<Key> order_;
    std::map<Key, std::string> roads_;
};

template <std::size_t N>
void add_server_faults(Table& table, const Phase (&phases)[N], bool pop) {
    for (const Phase& phase : phases) {
        for (const Fault& fault : kFaults) {
            for (const Road road : kAllRoads) {
                if ((phase.roads & road) == 0) continue;
                const Script changes{fault.row(phase, pop)};
                Journey journey(road, pop ? Script{} : changes, pop ? changes : Script{});
                fault::clear();
                table.add(phase.name, fault.name, road, journey);
            }
        }
    }
}

// The server answers before it is asked: the reply comes along with the one before.
template <std::size_t N>
void add_early_replies(Table& table, const Phase (&phases)[N], Road road) {
    const Phase* before = nullptr;
    for (const Phase& phase : phases) {
        if ((phase.roads & road) == 0) continue;
        // The scripted server takes a message only behind its own 354.
        if (before != nullptr && std::string_view(phase.expect) != "DATA") {
            const Script changes{{before->expect, std::string(before->good) + phase.good},
                                 {phase.expect, ""}};
            const bool pop = road == kPop;
            Journey journey(road, pop ? Script{} : changes, pop ? changes : Script{});
            fault::clear();
            table.add(phase.name, "early", road, journey);
        }
        before = &phase;
    }
}

void add_local_faults(Table& table) {
    for (const LocalFault& fault : kLocalFaults) {
        for (const Road road : kAllRoads) {
            if ((fault.roads & road) == 0) continue;
            Journey journey(road);
            fault::fail_on(fault.function, fault.about, fault.error, fault.skip);
            table.add(fault.step, fault.fault, road, journey);
            EXPECT_TRUE(fault::was_hit()) << fault.step << ", " << fault.fault;
        }
    }
}

// Cases that take more than one changed reply or another request.
void add_special_cases(Table& table) {
    const auto run = [&](
                         const char* step, const char* fault, Road road, const Script& changes,
                         const std::function<void(SampleMail&)>& change = [](auto&) {}) {
        Journey journey(road, changes);
        change(journey.mail);
        fault::clear();
        table.add(step, fault, road, journey);
    };
    const auto refuse = [](SampleMail& mail) { mail.split.ulPort = refusing_port(); };
    const Row no_auth{"AUTH", "535 no\r\n"};
    const Row no_mail{"MAIL", "530 log in\r\n"};
    for (const Road road : {kPlain, kPartial, kPop, kPrepared}) {
        run("connect", "refused", road, {}, refuse);
        run("connect", "unknown host", road, {}, [](auto& m) { m.server = "a.invalid"; });
    }
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
    set_logs(20, 1);
    Table table;
    add_local_faults(table);
    add_server_faults(table, kPopPhases, true);
    add_early_replies(table, kPopPhases, kPop);
    add_server_faults(table, kSmtpPhases, false);
    add_early_replies(table, kSmtpPhases, kPlain);
    add_special_cases(table);

    const std::string document = read_file(kDocument);
    const std::size_t begin = document.find(kTableHead);
    ASSERT_NE(begin, std::string::npos);
    if (std::getenv("OVRMAIL_WRITE_DOCS") != nullptr) {
        write_file(kDocument, document.substr(0, begin) + table.text());
    }
    std::istringstream written(read_file(kDocument).substr(begin));
    std::istringstream seen(table.text());
    for (std::string line, row; std::getline(seen, row);) {
        std::getline(written, line);
        ASSERT_EQ(line, row);  // one line: the rest follows from it
    }
    EXPECT_EQ(written.peek(), EOF);
}

}  // namespace

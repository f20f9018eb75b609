// ovrmail.hpp: what arrives, what is said when nothing does, and what is found before.
#include <gtest/gtest.h>

#include <cstdlib>
#include <future>

#include "ovrmail.hpp"
#include "smtp.h"
#include "support/delivery.hpp"
#include "support/fault.hpp"

namespace {

using namespace std::chrono_literals;
using ovrmail::Outcome;
using Strings = std::vector<std::string>;

// A mail and the servers it goes through; `changes` are rows of both.
struct Delivery {
    explicit Delivery(const support::Script& changes = {})
        : smtp(support::friendly(changes)), pop(support::friendly_pop(changes)) {
        ::setenv("TMPDIR", dir.path().c_str(), 1);
        server.port = smtp.port();
        fault::clear();
    }
    ~Delivery() { ::unsetenv("TMPDIR"), fault::clear(); }
    void use_pop() { server.pop_first = {"127.0.0.1", "user", "secret", pop.port()}; }
    void use_auth() { server.account = {"user", "secret"}; }
    // Waits take no time.
    Outcome send() { return fault::Watch(), ovrmail::send(mail, server); }
    Outcome send_message(const std::string& text) const {
        return fault::Watch(), ovrmail::send_message(text, server);
    }

    support::TempDir dir;
    support::ScriptedServer smtp, pop;
    ovrmail::Mail mail{"bob@a", {"ann@a", "amy@a"}, "Hi", "Text"};
    ovrmail::Server server{"127.0.0.1"};
};
using Change = void (*)(Delivery&);

TEST(Header, JapaneseArrivesTheSameFromBothLocales) {
    std::string every;
    for (unsigned c = 0x80; c < 0x10000; c += c == 0xD7FF ? 0x801 : 1) {  // without surrogates
        if (c >= 0x800) every += static_cast<char>(0xE0 | c >> 12);
        every += static_cast<char>(c < 0x800 ? 0xC0 | c >> 6 : 0x80 | (c >> 6 & 0x3F));
        every += static_cast<char>(0x80 | (c & 0x3F));
    }
    const auto arrived = [] {
        Delivery one;
        one.mail.subject = "日本";
        one.mail.body = ".点\n～－∥￠￡￢¥\ncafé ①ﾊ🙂";
        one.mail.replace_unsendable();
        EXPECT_EQ(one.send().text(), "sent: the server has the mail");
        return support::normal(one.smtp.bodies().at(0));
    };
    const std::string message = arrived();
    EXPECT_NE(message.find("Subject: =?ISO-2022-JP?B?GyRCRnxLXBsoSg==?="), std::string::npos);
    const char* const text = "..\x1B$BE@\x1B(J\r\n\x1B$B!A!]!B!q!r\"L!o\x1B(J\r\ncaf? ???";
    EXPECT_NE(message.find(text), std::string::npos) << message;
    const ovrmail::Converted sjis = ovrmail::to_library_text(every);
    EXPECT_EQ(sjis.bytes.size() - sjis.unsendable.size(), 2U * (6879 + 8));  // JIS X 0208, variants

    const support::EucLocale euc;
    if (!euc.is_set()) GTEST_SKIP() << "localedef cannot make ja_JP.eucJP (package locales)";
    EXPECT_EQ(arrived(), message);
    const std::string given = ovrmail::to_library_text(every).bytes;
    std::string seen(given.size(), '\0');
    const auto size = static_cast<std::int32_t>(given.size());
    const std::int32_t converter = Cnv_open("eucJP", "SJIS");
    EXPECT_EQ(Cnv_euctosjis(converter, size, given.data(), size, seen.data(), nullptr), size);
    Cnv_close(converter);
    EXPECT_EQ(seen, sjis.bytes);
}

TEST(Header, FilesPiecesAndAccounts) {
    Delivery one({{"EHLO", "250-hi\r\n250 AUTH PLAIN\r\n"}, {"AUTH PLAIN", "235 ok\r\n"}});
    support::write_file(one.dir.file("kept.bin"), std::string(30000, 'k'));
    support::write_file(one.dir.file("gone.bin"), "gone");
    one.mail.attach(one.dir.file("kept.bin")).attach_temporary(one.dir.file("gone.bin"));
    one.server.split_kib = 10;
    one.server.time_outs = {61s, 62s, 63s, 64s, 65s, 66s};
    one.use_auth();
    EXPECT_TRUE(one.send());
    EXPECT_EQ(one.smtp.commands().at(1), "AUTH PLAIN dXNlcgB1c2VyAHNlY3JldA==\r\n");
    EXPECT_GT(one.smtp.bodies().size(), 3U);
    const MailTimeout budgets{61, 62, 63, 64, 65, 66};
    EXPECT_EQ(std::memcmp(&g_stMailTimeout, &budgets, sizeof budgets), 0);
    EXPECT_EQ(support::paths_in(one.dir.path()), Strings{one.dir.file("kept.bin")});

    Delivery other;
    other.use_pop();
    EXPECT_TRUE(other.send());
    const MailTimeout defaults = MAIL_TIMEOUT_DEFAULTS;
    EXPECT_EQ(std::memcmp(&g_stMailTimeout, &defaults, sizeof defaults), 0);
    EXPECT_EQ(other.pop.commands().at(1), "PASS secret\r\n");
    EXPECT_EQ(other.smtp.bodies().size(), 1U);
}

TEST(Header, ResultsAreJudgedAndExplained) {
    enum Judgement { kFinal = 0, kLater = 1, kMaybe = 2 };
    const struct {
        std::int32_t result;
        const char* detail;
        int judged;
        const char* words;
    } cases[] = {
        {2, "", kFinal, "sent, but without the SMTP AUTH asked for"},
        {-3, "28", kLater, "No space left on device (28)"},
        {-3, "13", kFinal, "Permission denied (13)"},
        {-4, "", kLater | kMaybe, "may or may not have"},
        {-6, "550 \x1B[2J\r\n", kFinal, "refused; it said: 550 ?[2J"},
        {-6, "450 no\r\n", kLater, "refused; it said: 450 no"},
        {-7, "104", kLater | kMaybe, "conversation; the server may or may not have the mail: Conn"},
        {-7, "24", kLater, "Too many open files (24)"},
        {-10, "111", kLater, "cannot be reached: Connection refused (111)"},
        {-10, "1", kFinal, "cannot be reached: Unknown host (1)"},
        {-10, "2", kLater, "cannot be reached: Host name lookup failure (2)"},
        {-15, "-ERR no\r\n", kFinal, "POP3 login was refused; it said: -ERR no"},
        {-17, "", kLater, "POP3 server did not answer"},
        {-25, "451 no\r\n", kLater, "AUTH failed, and the server refused the sender"},
        {-77, "", kFinal, "does not know"},
    };
    for (const auto& [result, detail, judged, words] : cases) {
        const Outcome outcome(result, detail);
        EXPECT_EQ(outcome.result(), result);
        EXPECT_EQ(outcome.remark(), std::max(result, 0));
        EXPECT_NE(outcome.text().find(words), std::string::npos) << outcome.text();
        EXPECT_EQ(outcome.temporary(), (judged & kLater) != 0) << outcome.text();
        EXPECT_EQ(outcome.may_have_been_sent(), (judged & kMaybe) != 0) << outcome.text();
    }
}

TEST(Header, ProblemsAreFoundBeforeTheCall) {
    const struct {
        std::int32_t result;
        const char* words;
        Change change;
    } cases[] = {
        {-1, "sender: is empty", [](Delivery& d) { d.mail.sender.clear(); }},
        {-1, "sender: holds a line break", [](Delivery& d) { d.mail.sender += "\rRCPT"; }},
        {-5, "recipients: there is none", [](Delivery& d) { d.mail.recipients.clear(); }},
        {-5, "recipient 2: holds a comma", [](Delivery& d) { d.mail.recipients[1] = "a@b,c"; }},
        {-5, "257 bytes in all, the limit is 256; send a mail to each (send_each)",
         [](Delivery& d) { d.mail.recipients.assign(43, "amy@a"); }},
        {-1, "subject: 66 bytes", [](Delivery& d) { d.mail.subject = std::string(66, 's'); }},
        {-1, "limit is 10238", [](Delivery& d) { d.mail.body = std::string(10239, 'b'); }},
        {-1, "body: line 2, character 3: cannot be sent: ① E2 91 A0",
         [](Delivery& d) { d.mail.body = "あ\nab①"; }},
        {-1, "character 1: cannot be sent: 1B", [](Delivery& d) { d.mail.subject = "\x1B"; }},
        {-1, "no conversion from UTF-8",
         [](Delivery& d) { fault::fail_on("iconv_open", "", EINVAL), d.mail.body = "あ"; }},
        {-8, "/no/such: No such file", [](Delivery& d) { d.mail.attach("/no/such"); }},
        {-8, "/: not a regular file", [](Delivery& d) { d.mail.attach("/"); }},
        {-1, "limit is 1024", [](Delivery& d) { d.mail.attach(std::string(1025, '/')); }},
        {-1, "host: is empty", [](Delivery& d) { d.server.host.clear(); }},
        {-1, "port: 65536, the limits", [](Delivery& d) { d.server.port = 65536; }},
        {-1, "split_kib: 9 KiB", [](Delivery& d) { d.server.split_kib = 9; }},
        {-1, "time_outs.end: 3601 s", [](Delivery& d) { d.server.time_outs.end = 3601s; }},
        {-1, "account.user: is", [](Delivery& d) { d.use_auth(), d.server.account->user = ""; }},
        {-1, "account: excludes", [](Delivery& d) { d.use_auth(), d.use_pop(); }},
        {-1, "pop_first.wait", [](Delivery& d) { d.use_pop(), d.server.pop_first->wait = -1ms; }},
    };
    for (const auto& row : cases) {
        Delivery one;
        row.change(one);
        const Outcome outcome = one.send();
        EXPECT_EQ(outcome.result(), row.result) << row.words;
        EXPECT_NE(outcome.text().find(row.words), std::string::npos) << outcome.text();
        EXPECT_FALSE(outcome.argument().empty() || outcome.may_have_been_sent());
        EXPECT_EQ(one.smtp.received(), "");
    }
}

TEST(Header, AFinishedMessageArrivesAsItWas) {
    Delivery one;
    const std::string x(600, 'x');
    const std::string fields =
        "From: \"Bob, B.\" (b(o), b) <bob@a>\r\nto: G: ann@a,\r\n\tamy@a;\r\n";
    EXPECT_TRUE(one.send_message(fields + "Bcc: <eve@a>,\r\n eva@a\r\nX: " + x + " " + x +
                                 "\n\n.\r.dot\nlast \xF0\x9F\x99\x82"));
    const auto first = one.smtp.commands().begin();
    EXPECT_EQ(Strings(first + 1, first + 6),
              (Strings{"MAIL FROM:<bob@a>\r\n", "RCPT TO:<ann@a>\r\n", "RCPT TO:<amy@a>\r\n",
                       "RCPT TO:<eve@a>\r\n", "RCPT TO:<eva@a>\r\n"}));
    EXPECT_EQ(one.smtp.bodies().at(0), fields + "X: " + x + "\r\n " + x +
                                           "\r\n\r\n..\r\n..dot\r\nlast \xF0\x9F\x99\x82\r\n");

    const std::string start = "From: bob@a\nTo: ann@a\n\n";
    fault::fail_on("write", "ovrmail-", ENOSPC, 1);
    const Outcome full = one.send_message(start + "text");
    fault::clear();
    EXPECT_TRUE(full.result() == -3 && full.temporary()) << full.text();
    EXPECT_EQ(support::paths_in(one.dir.path()), Strings{});
    EXPECT_EQ(one.send_message(start + "a\n" + std::string(999, 'b')).text(),
              "not sent: message: line 5: 999 bytes, the limit is 998");
    EXPECT_EQ(one.send_message("Hello").text(), "not sent: message: line 1: no header field");
}

TEST(Header, EachRecipientHasAnOutcome) {
    Delivery one(support::Script{{"RCPT TO:<amy", "550 no\r\n"}});
    one.mail.recipients.resize(50, "ann@a");
    Strings texts, wanted(50, "sent: the server has the mail");
    wanted[1] = "not sent: the server refused; it said: 550 no";
    for (const Outcome& outcome : ovrmail::send_each(one.mail, one.server))
        texts.push_back(outcome.text());
    EXPECT_EQ(texts, wanted);
    EXPECT_EQ(ovrmail::send_each({"bob@a", {}, "", ""}, one.server).at(0).result(), -5);
}

TEST(Header, ThreadsQueueUp) {
    support::ScriptedServer slow(support::friendly(), support::Runs::kInThread);
    const ovrmail::Server server{"127.0.0.1", slow.port()};
    std::vector<std::future<std::int32_t>> results;
    for (int i = 0; i < 4; ++i) {
        results.push_back(std::async(std::launch::async, [&] {
            return ovrmail::send({"bob@a", {"ann@a"}, "Hi", "Text"}, server).result();
        }));
    }
    for (auto& result : results) EXPECT_EQ(result.get(), 0);
}

}  // namespace

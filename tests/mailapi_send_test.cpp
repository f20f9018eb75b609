// Whole sends: every byte on the wire, what the log and the trace keep, and what a call leaves.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <clocale>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>

#include "mail_log.h"
#include "mailapi/result_map.hpp"
#include "mime.h"
#include "pop3.h"
#include "smtp.h"
#include "support/delivery.hpp"
#include "support/fault.hpp"
#include "support/wire_rules.hpp"

namespace {

using namespace support;
namespace fs = std::filesystem;

std::string joined(const std::vector<std::string>& lines) {
    std::string out;
    for (const auto& line : lines) out += line;
    return out;
}

const std::string kHead =
    "Date: D\r\nFrom: bob@example.test\r\nTo: ann@example.test,\r\n    amy@example.test\r\n";

TEST(Send, PlainMailByteForByte) {
    set_logs(20, 1);
    Delivery delivery(kPlain);
    delivery.mail.subject = "a\r\nb";
    delivery.mail.body = "one\n.two\r\n";
    delivery.mail.recipient_count = 5;
    write_file(static_cast<const char*>(delivery.mail.attachments[0].value), std::string(52, 'k'));
    fault::clear();
    EXPECT_EQ(delivery.run().result, MAIL_SENT);
    EXPECT_STREQ(delivery.mail.detail.data(), "");
    std::string host(256, '\0');
    ::gethostname(host.data(), host.size());
    EXPECT_EQ(joined(delivery.smtp.commands()),
              "EHLO " + std::string(host.c_str()) +
                  "\r\nMAIL FROM:<bob@example.test>\r\nRCPT TO:<ann@example.test>\r\n"
                  "RCPT TO:<amy@example.test>\r\nDATA\r\nQUIT\r\n");
    const std::string k52 = "a2tra2tra2tra2tra2tra2tra2tra2tra2tra2tra2tra2tra2tra2tra2tra2tra2tr";
    std::string t100;
    for (int i = 0; i < 17; ++i) t100 += "dHR0";
    EXPECT_EQ(normal(delivery.smtp.bodies()[0]),
              kHead +
                  "Subject: a  b\r\nMessage-Id: M\r\nMIME-Version: 1.0\r\n"
                  "Content-Type: multipart/mixed; boundary=\"B\"\r\n\r\n--B\r\n"
                  "Content-Type: text/plain; charset=\"us-ascii\"\r\n\r\none\r\n..two\r\n\r\n\r\n"
                  "\r\n--B\r\nContent-Type: application/octet-stream; name=\"kept.bin\"\r\n"
                  "Content-Transfer-Encoding: base64\r\n"
                  "Content-Disposition: attachment;\r\n\tfilename=\"kept.bin\"\r\n\r\n" +
                  k52 + "\r\naw==\r\n" +
                  "\r\n--B\r\nContent-Type: application/octet-stream; name=\"temporary.bin\"\r\n"
                  "Content-Transfer-Encoding: base64\r\n"
                  "Content-Disposition: attachment;\r\n\tfilename=\"temporary.bin\"\r\n\r\n" +
                  t100 + "\r\n" + t100.substr(0, 64) + "dA==\r\n--B--\r\n");
    const std::string ok = "R: 250 ok\n";
    std::string log;
    for (const auto& line : log_lines()) log += line + "\n";
    EXPECT_EQ(log, "-: a  b\nR: 220 hi\nS: EHLO " + std::string(host.c_str()) +
                       "\nR: 250-hi\nR: 250 AUTH LOGIN PLAIN CRAM-MD5\n"
                       "S: MAIL FROM:<bob@example.test>\n" +
                       ok + "S: RCPT TO:<ann@example.test>\n" + ok +
                       "S: RCPT TO:<amy@example.test>\n" + ok +
                       "S: DATA\nR: 354 go\nS: \nR: 250 kept\nS: QUIT\nR: 221 bye\n");
}

// Pieces of text as an attacker would join them: around the 1,024 bytes at which a line is broken,
// with everything that some server takes for the end of a line, or the library for a character.
std::string hostile_text(std::mt19937& dice, std::size_t most) {
    const auto roll = [&](std::size_t sides) { return dice() % sides; };
    std::string text;
    while (roll(9) != 0 || text.empty()) {
        if (roll(4) == 0) text.append((roll(3) == 0 ? 2040 : 1017) + roll(15), 'x');
        for (std::size_t i = roll(6); i != 0; --i) {
            constexpr std::string_view kBytes = "\r\r\n\n...\x1b\x82\x82\xA0\xE0\xA4\xB1x\\";
            text += kBytes[roll(kBytes.size())];
        }
        if (roll(3) == 0) text += "\r\n.\r\nMAIL FROM:<forged@example.test>\r\n";
    }
    return text.substr(0, most);
}

// Lines that their last pair joins, as it loses the line end: 9.9 KiB, `size` letters and a dot.
std::string one_long_line(std::size_t size) {
    std::string line;
    for (int i = 0; i < 340; ++i)
        line +=
            "\x82\xA0"
            "a";
    line += "\x81 \r\n";
    return line + line + line + std::string(1000, 'b') + "\x81 \r\n" + std::string(size, 'b') +
           ".\r\nMAIL FROM:<forged@example.test>\r\n";
}

TEST(Send, NoTextEndsTheMailOrStartsAnother) {
    const EucLocale euc;
    std::mt19937 dice(1);
    for (const Kind kind : {kPlain, kPartial, kEuc}) {
        std::setlocale(LC_ALL, kind == kEuc && euc.is_set() ? "ja_JP.eucJP" : "C");
        for (int n = 0; n < 60; ++n) {
            Delivery delivery(kind);
            delivery.mail.body = kind == kPartial && n < 20
                                     ? one_long_line(40 + static_cast<std::size_t>(n))
                                     : hostile_text(dice, MAIL_BODY_MAX);
            delivery.mail.subject = hostile_text(dice, MAIL_SUBJECT_MAX);
            ASSERT_GE(delivery.run().result, MAIL_SENT);
            std::size_t pieces = 0;
            for (const auto& command : delivery.smtp.commands()) pieces += command == "DATA\r\n";
            ASSERT_EQ(pieces, delivery.smtp.bodies().size()) << name_of(kind) << n;
            for (const auto& body : delivery.smtp.bodies()) {
                ASSERT_FALSE(has_bare_lf(body)) << name_of(kind) << n;
                ASSERT_FALSE(has_lone_dot(body)) << name_of(kind) << n;
            }
            for (const auto& command : delivery.smtp.commands())
                ASSERT_EQ(command.find("forged"), command.npos) << name_of(kind) << n;
        }
    }
}

TEST(Send, OptionsFileChoosesTheDisposition) {
    for (const char* value : {"1", "2"}) {
        write_file("/etc/opt/Quorvin/rmmail.ini",
                   "[RMMAIL]\nCONTENT_DISPOSITION=" + std::string(value) + "\n");
        EXPECT_EQ(Delivery(kPlain).run().result, MAIL_SENT);
        EXPECT_EQ(std::to_string(Content_D_flg), value);
    }
    std::remove("/etc/opt/Quorvin/rmmail.ini");
}

TEST(Send, PiecesAreMailsOfTheirOwnAndMakeUpTheMessage) {
    Delivery delivery(kPartial);
    EXPECT_EQ(delivery.run().result, MAIL_SENT);
    std::string dialogue;
    for (const auto& line : delivery.smtp.commands()) dialogue += line.substr(0, 4) + " ";
    EXPECT_EQ(dialogue,
              "EHLO MAIL RCPT RCPT DATA RSET MAIL RCPT RCPT DATA RSET MAIL RCPT RCPT DATA RSET "
              "MAIL RCPT RCPT DATA RSET QUIT ");
    std::string whole;
    const auto& bodies = delivery.smtp.bodies();
    for (std::size_t i = 0; i < bodies.size(); ++i) {
        const std::string number = std::to_string(i + 1);
        const std::string total = std::to_string(bodies.size());
        const std::string head = kHead + "Subject: Hello [" + number + "/" + total +
                                 "]\r\nMessage-Id: M\r\nMIME-Version: 1.0\r\n"
                                 "Content-Type: message/partial; number=" +
                                 number + "; total=" + total + ";\r\n\tid=\"I@bob.example.test\"" +
                                 "\r\n\r\n";
        const std::string body = normal(bodies[i]);
        ASSERT_EQ(body.substr(0, head.size()), head);
        whole += body.substr(head.size());
    }
    Delivery undivided(kPartial);
    undivided.mail.partial = 0;
    EXPECT_EQ(undivided.run().result, MAIL_SENT);
    EXPECT_EQ(kHead + whole, normal(undivided.smtp.bodies()[0]));
}

TEST(Send, PreparedMessageIsSentAsStored) {
    Delivery with_header(kPrepared);
    EXPECT_EQ(with_header.run().result, MAIL_SENT);
    EXPECT_EQ(with_header.smtp.bodies()[0], "Subject: made elsewhere\r\n\r\ncontent\r\n");

    Delivery generated(kPrepared, {{"EHLO", "502 no\r\n"}});
    generated.mail.use_auth();
    generated.mail.attachments.pop_back();
    write_file(static_cast<const char*>(generated.mail.attachments[0].value), ".dot\r\n\nend");
    EXPECT_EQ(generated.run().result, MAIL_SENT_UNAUTHENTICATED);
    EXPECT_EQ(normal(generated.smtp.bodies()[0]),
              kHead + "Subject: Hello\r\nMessage-Id: M\r\n.dot\r\r\n\r\nend\r\n");
}

// Whatever lies under the names of the working files is neither followed nor written to.
TEST(Send, WorkingFilesAreNewOnes) {
    const std::string victim = std::string(kWorkDir) + "/../victim";
    const struct {
        const char* what;
        std::function<void(const char*)> put;
        bool stays;
    } cases[] = {
        {"left-over", [](auto* path) { write_file(path, std::string(90'000, 'o')); }, false},
        {"link", [&](auto* path) { fs::create_symlink(victim, path); }, false},
        {"second name", [&](auto* path) { fs::create_hard_link(victim, path); }, false},
        {"FIFO", [](auto* path) { ::mkfifo(path, 0666); }, false},
        {"directory", [](auto* path) { fs::create_directory(path); }, true},
    };
    for (const auto& row : cases) {
        for (const char* const prefix : {"EMT", "EST"}) {
            const std::string path = std::string(kWorkDir) + "/" + prefix +
                                     std::to_string(::getpid()) + "-" +
                                     std::to_string(static_cast<int>(::pthread_self()));
            write_file(victim, "untouched");
            row.put(path.c_str());
            Delivery delivery(kPlain);
            const SendResult outcome = delivery.run();
            EXPECT_EQ(outcome.result, row.stays ? MAIL_E_WORK_FILE : MAIL_SENT) << row.what;
            EXPECT_EQ(outcome.detail, row.stays ? std::to_string(EEXIST) : "") << row.what;
            EXPECT_EQ(outcome.trash.size(), row.stays ? 1 : 0) << row.what;
            EXPECT_EQ(read_file(victim), "untouched") << row.what;
            EXPECT_EQ(delivery.message().find("ooo"), std::string::npos) << row.what;
            fs::remove(path);
            fs::remove(victim);
        }
    }
}

TEST(Send, ComposedFileCutShortGetsNoEndMark) {
    for (const Kind kind : {kPlain, kPrepared, kPartial}) {
        int data = 0;
        const auto cut = [&] {  // of a split mail the second piece loses some
            if (++data != (kind == kPartial ? 2 : 1)) return;
            for (const auto& file : fs::directory_iterator(kWorkDir))
                fs::resize_file(file, fs::file_size(file) - 5);
        };
        Delivery delivery(kind, {{"DATA", "354 go\r\n", Then::kGoOn, 0, 0, cut}});
        const SendResult outcome = delivery.run();
        EXPECT_EQ(outcome.result, MAIL_E_WORK_FILE) << name_of(kind);
        EXPECT_EQ(outcome.detail, std::to_string(EIO)) << name_of(kind);
        EXPECT_TRUE(outcome.is_clean()) << name_of(kind);
        EXPECT_EQ(delivery.smtp.bodies().size(), kind == kPartial ? 1 : 0) << name_of(kind);
    }
}

TEST(Send, PopComesFirst) {
    for (const auto& [given, used] :
         {std::pair<int, unsigned>{59, 60}, {61, 61}, {3601, 60}, {3600, 3600}}) {
        Delivery delivery(kPop);
        delivery.mail.pop.lWaitMs = 2500;
        delivery.mail.pop.usTimeOut = static_cast<std::uint16_t>(given);
        fault::clear();
        EXPECT_EQ(delivery.run().result, MAIL_SENT);
        EXPECT_EQ(fault::passed_ms(), 2500);
        EXPECT_EQ(g_ulPopTimeOut, used) << given;
        EXPECT_EQ(joined(delivery.pop.commands()), "USER user\r\nPASS secret\r\nSTAT\r\nQUIT\r\n");
    }
}

// The password as it is, in hexadecimal, and what base64 makes of it at each offset in a group.
constexpr const char* kSecret = "tR0ub4dor&3xyz";
constexpr const char* kSecretBase64 = "dFIwdWI0ZG9yJjN4eXo=";
constexpr const char* kForms[] = {kSecret, "745230756234646f72263378797a", "dFIwdWI0ZG9yJjN4",
                                  "MHViNGRvciYzeHl6", "UjB1YjRkb3ImM3h5"};
std::string form_of(const std::string& bytes) {
    for (const char* form : kForms)
        if (bytes.find(form) != std::string::npos) return form;
    return "";
}

// In its log, and in its trace at the most talkative level.
TEST(Send, HoldsNoPassword) {
    set_logs(20, 2);
    const struct {
        const char* name;
        Kind kind;
        std::uint32_t mechanism;
        const char* goes_as;  // how the server gets it
        Script smtp_changes;
        Script pop_changes;
    } cases[] = {
        {"CRAM-MD5", kAuth, 4, "", {{"dXNlci", "535 no\r\n"}}, {}},
        {"PLAIN", kAuth, 2, kForms[3], {}, {}},
        {"LOGIN", kAuth, 1, kForms[2], {{kSecretBase64, "235 ok\r\n"}}, {}},
        {"PLAIN refused", kAuth, 2, kForms[3], {{"AUTH PLAIN", "535 no\r\n"}}, {}},
        {"LOGIN cut off", kAuth, 1, kForms[2], {{kSecretBase64, "", Then::kReset}}, {}},
        {"POP refused", kPop, 0, kSecret, {}, {{"PASS", "-ERR no\r\n"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Delivery delivery(c.kind, c.smtp_changes, c.pop_changes);
        std::strcpy(delivery.mail.account.szPassword, kSecret);
        std::strcpy(delivery.mail.pop.szPassword, kSecret);
        delivery.mail.account.ulMechanisms = c.mechanism;
        EXPECT_TRUE(delivery.run().traced);
        auto& server = c.kind == kPop ? delivery.pop : delivery.smtp;
        EXPECT_EQ(form_of(server.received()), c.goes_as) << "not what is looked for";
        EXPECT_EQ(form_of(ring_bytes() + read_file(log_path())), "");
        EXPECT_NE(read_file(log_path()).find("******"), std::string::npos);
    }
}

// The port is 25, and a mail of more than 64 KiB is split.
TEST(Send, NullOptionsMeanTheDefaults) {
    const TempDir dir;
    for (const auto& [size, is_split] : {std::pair{49'000, false}, {49'152, true}}) {
        fault::Faults faults;
        faults.plan("connect", 1, {-1, EHOSTUNREACH});
        faults.plan("getservbyname_r", 2, {ENOENT});
        SampleMail mail;
        const std::string path = dir.file("file");
        write_file(path, std::string(static_cast<std::size_t>(size), 'f'));
        mail.attachments = {{MAIL_KIND_ATTACHMENT, 0, path.c_str()}};
        mail.has_options = false;
        mail.partial = 1;
        mail.server = "127.0.0.1";
        set_logs(5, 2);
        for (const auto& ring : paths_in(kTraceDir)) fs::remove(ring);
        EXPECT_EQ(mail.send(), MAIL_E_CONNECT);
        EXPECT_EQ(ntohs(faults.peer.sin_port), 25);
        EXPECT_EQ(ring_bytes().find("smtp1500") != std::string::npos, is_split) << size;
    }
    const MailTimeout wanted{300, 300, 300, 120, 180, 600};
    EXPECT_EQ(std::memcmp(&g_stMailTimeout, &wanted, sizeof wanted), 0);
}

TEST(Send, UnknownCodeIsAnInternalFailure) {
    for (const std::int32_t code : {-34, -30, -28, -20, -12, -10, -7})
        EXPECT_EQ(ovrmail::mailapi::map_result(code), MAIL_E_INTERNAL) << code;
}

}  // namespace

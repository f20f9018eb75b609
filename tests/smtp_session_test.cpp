// Conversations with a scripted server: the bytes of every command, and what each answer, or the
// want of one, does to a send.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "smtp.h"
#include "support/fault.hpp"
#include "support/scripted_server.hpp"
#include "support/support.hpp"

namespace {

using namespace support;
using namespace fault;

enum Step { kInit, kMail, kData, kEnd, kReset, kQuit, kDone };

struct Ended {
    Step step;
    std::int32_t result;
    bool operator==(const Ended&) const = default;
};
void PrintTo(const Ended& ended, std::ostream* out) {
    *out << "step " << ended.step << " result " << ended.result;
}

// One send of a mail with three recipients, up to the first step that fails.
Ended send_mail(std::uint16_t port, std::uint32_t* err) {
    constexpr std::int32_t (*kSteps[])(std::int32_t, std::uint32_t*) = {
        [](auto sock, auto e) { return SMTP_initialize(sock, nullptr, e); },
        [](auto sock, auto e) { return SMTP_MAIL(sock, "s@x", "a@x,b@x,c@x", e); },
        SMTP_startData,
        [](auto sock, auto e) {
            return SMTP_send(sock, "Hi\r\n..x", 7, e) + SMTP_endData(sock, e);
        },
        SMTP_RSET,
        SMTP_QUIT};
    const int sock = SMTP_connect("127.0.0.1", port, err);
    Ended ended{kInit, 0};
    for (int step = kInit; step < kDone && ended.result == 0; ++step)
        ended = {static_cast<Step>(step), kSteps[step](sock, err)};
    ::close(sock);
    return ended.result == 0 ? Ended{kDone, 0} : ended;
}

TEST(Session, Answers) {
    const std::string endless(1100, 'x');
    const struct {
        const char* name;
        Ended wanted;
        std::size_t commands;
        std::string reply;
        Script changes;
    } cases[] = {
        {"all accepted", {kDone, 0}, 8, "221 bye\r\n", {}},
        {"greeting 554", {kInit, -26}, 0, "554 no\r\n", {{"", "554 no\r\n"}}},
        {"garbage", {kInit, -26}, 0, "\xff\r\n", {{"", "\xff\r\n"}}},
        {"EHLO unknown", {kDone, 0}, 9, "221 bye\r\n", {{"EHLO", "502 what\r\n"}}},
        {"EHLO 5xx line", {kDone, 0}, 9, "221 bye\r\n", {{"EHLO", "250-a\r\n550-b\r\n250 c\r\n"}}},
        {"HELO refused", {kInit, -21}, 2, "501\r\n", {{"EHLO", "500\r\n"}, {"HELO", "501\r\n"}}},
        {"dribble", {kDone, 0}, 8, "221 bye\r\n", {dribble({"EHLO", "250-a\r\n250 b\r\n"})}},
        {"sender", {kMail, -22}, 2, "550 no\r\n", {{"MAIL", "550 no\r\n"}}},
        {"second RCPT", {kMail, -23}, 4, "550 b\r\n", {{"RCPT TO:<b", "550-a\r\n550 b\r\n"}}},
        {"DATA done", {kData, -24}, 6, "250 ok\r\n", {{"DATA", "250 ok\r\n"}}},
        {"end refused", {kEnd, -25}, 6, "554 no\r\n", {{kBody, "554 no\r\n"}}},
        {"RSET refused", {kReset, -27}, 7, "500 no\r\n", {{"RSET", "500 no\r\n"}}},
        {"QUIT refused", {kDone, 0}, 8, "500 no\r\n", {{"QUIT", "500 no\r\n"}}},
        {"QUIT unanswered", {kDone, 0}, 8, "", {{"QUIT", "", Then::kClose}}},
        {"bare codes", {kDone, 0}, 8, "221 bye\r\n", {{"MAIL", "250\r\n"}, {"RCPT", "2\r\n"}}},
        {"LF alone is no end", {kDone, 0}, 8, "221 bye\r\n", {{"MAIL", "2\n5\r\n"}}},
        {"early", {kMail, -23}, 4, "550 b\r\n", {{"MAIL", "250 ok\r\n250 a\r\n550 b\r\n"}}},
        {"endless", {kMail, -23}, 3, "xxxxxxxx", {{"MAIL", "2" + endless + "\r\n"}}},
    };
    for (const auto& [name, wanted, commands, reply, changes] : cases) {
        SCOPED_TRACE(name);
        Faults faults;
        ScriptedServer server(friendly(changes), {.any_order = true});
        std::uint32_t err = 99;
        EXPECT_EQ(send_mail(server.port(), &err), wanted);
        EXPECT_EQ(err, 0U);
        char kept[256];
        SMTP_GetSmtpSvResponce(kept);
        EXPECT_EQ(std::string(kept).substr(0, reply.size()), reply);
        EXPECT_EQ(server.commands().size(), commands);
        EXPECT_EQ(server.problem(), "");
        EXPECT_EQ(server.received().ends_with("DATA\r\nHi\r\n..x\r\n.\r\nRSET\r\nQUIT\r\n"),
                  wanted.step == kDone);
    }
}

// What a peer that fails does, at every command that waits for its answer.
TEST(Session, PeerFails) {
    const struct {
        const char* name;
        Row row;
        std::int32_t result;
        std::uint32_t err;
        const char* log;
    } failures[] = {
        {"silent", {"", "", Then::kStall}, -6, 0, "-: ERROR: SMTP TIMEOUT (timer=@) recv\r\n"},
        {"half a line", {"", "250 o", Then::kStall}, -6, 0, "TIMEOUT (timer=@) recv\r\n"},
        {"half a reply", {"", "250-o\r\n", Then::kStall}, -6, 0, "TIMEOUT (timer=@) recv\r\n"},
        {"closed", {"", "", Then::kClose}, -4, 0, "-: ERROR: func=recv code=0 detail=0\r\n"},
        {"closed in a line", {"", "25", Then::kClose}, -4, 0, "func=recv code=0 detail=0\r\n"},
        {"reset", {"", "", Then::kReset}, -4, ECONNRESET, "func=recv code=-1 detail=104\r\n"},
    };
    const std::map<std::string, std::pair<Step, int>> steps = {
        {"", {kInit, 300}},     {"EHLO", {kInit, 300}}, {"MAIL", {kMail, 301}},
        {"RCPT", {kMail, 302}}, {"DATA", {kData, 121}}, {kBody, {kEnd, 601}},
        {"RSET", {kReset, 601}}};
    const MailTimeout budgets{300, 301, 302, 121, 181, 601};
    SMTP_SetTimeOutInfo(&budgets);
    const int before = open_descriptors();
    for (const auto& [name, failing, result, wanted_err, log] : failures)
        for (const auto& [command, step] : steps) {
            SCOPED_TRACE(std::string(name) + " at " + command);
            Faults faults;
            LogCapture capture;
            Row row = failing;
            row.expect = command;
            ScriptedServer server(friendly({row}), {.any_order = true});
            std::uint32_t err = 99;
            errno = 0;
            EXPECT_EQ(send_mail(server.port(), &err), (Ended{step.first, result}));
            EXPECT_EQ(err, wanted_err);
            std::string line = log;
            if (line.find('@') != line.npos)
                line.replace(line.find('@'), 1, std::to_string(step.second));
            EXPECT_NE(capture.text().find(line), std::string::npos) << capture.text();
        }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(Session, Recipients) {
    const std::string longest(307, 'x'), sender(4089, 's'), too_long(4090, 's');
    const struct {
        const char* sender;
        std::string recipients;
        std::int32_t result;
        std::string wire;  // behind EHLO
    } cases[] = {
        {nullptr, "", 0, "MAIL FROM:<>\r\nRCPT TO:<>\r\n"},
        {"a", "b, c", 0, "MAIL FROM:<a>\r\nRCPT TO:<b>\r\nRCPT TO:< c>\r\n"},
        {"a", ",b,", 0, "MAIL FROM:<a>\r\nRCPT TO:<>\r\nRCPT TO:<b>\r\nRCPT TO:<>\r\n"},
        {"a", longest, 0, "MAIL FROM:<a>\r\nRCPT TO:<" + longest + ">\r\n"},
        {sender.c_str(), "b", 0, "MAIL FROM:<" + sender + ">\r\nRCPT TO:<b>\r\n"},
        {too_long.c_str(), "b", -22, ""},
        {"a", "b," + longest + "x,c", -23, "MAIL FROM:<a>\r\nRCPT TO:<b>\r\n"},
    };
    for (const auto& [from, recipients, result, wire] : cases) {
        ScriptedServer server(friendly(), {.any_order = true});
        std::uint32_t err = 99;
        const int sock = SMTP_connect("127.0.0.1", server.port(), &err);
        EXPECT_EQ(SMTP_initialize(sock, nullptr, &err), 0);
        EXPECT_EQ(SMTP_MAIL(sock, from, recipients.c_str(), &err), result);
        char kept[256];
        SMTP_GetSmtpSvResponce(kept);
        EXPECT_STREQ(kept, result == 0 ? "250 ok\r\n" : "");
        EXPECT_EQ(err, 0U);
        ::close(sock);
        const std::string& all = server.received();
        EXPECT_EQ(all.substr(all.find('\n') + 1), wire);
    }
}

TEST(Session, NoHostName) {
    for (const Outcome outcome : {Outcome{-1, ENAMETOOLONG}, Outcome{0}}) {
        Faults faults;
        faults.plan("gethostname", 1, outcome);
        ScriptedServer server(friendly(), {.any_order = true});
        std::uint32_t err = 99;
        EXPECT_EQ(send_mail(server.port(), &err), (Ended{kInit, -5}));
        EXPECT_EQ(err, static_cast<std::uint32_t>(outcome.error));
    }
}

}  // namespace

// Recipients of a send, and a host without a name. What the answers of a server do is told by
// docs/result-codes.md and, for any bytes, by fuzz/reply_fuzz.cpp.
#include <gtest/gtest.h>
#include <unistd.h>

#include "smtp.h"
#include "support/fault.hpp"
#include "support/scripted_server.hpp"

namespace {

using namespace support;

TEST(Session, Recipients) {
    const std::string longest(307, 'x'), sender(4089, 's'), too_long(4090, 's');
    const struct {
        const char* sender;
        std::string recipients;
        std::int32_t result;
        std::string wire;  // behind EHLO
    } cases[] = {
        {nullptr, "", 0, "MAIL FROM:<>\r\nRCPT TO:<>\r\n"},
        {"a", ",b, c,", 0,
         "MAIL FROM:<a>\r\nRCPT TO:<>\r\nRCPT TO:<b>\r\nRCPT TO:< c>\r\nRCPT TO:<>\r\n"},
        {sender.c_str(), longest, 0, "MAIL FROM:<" + sender + ">\r\nRCPT TO:<" + longest + ">\r\n"},
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

TEST(Session, EmptyHostName) {
    fault::Faults faults;
    faults.plan("gethostname", 1, {0});
    ScriptedServer server(friendly(), {.any_order = true});
    const int sock = SMTP_connect("127.0.0.1", server.port(), nullptr);
    EXPECT_EQ(SMTP_initialize(sock, nullptr, nullptr), -5);
    ::close(sock);
}

}  // namespace

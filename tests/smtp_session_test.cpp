// Conversations with a scripted server: the bytes of every command, and what each answer means.
#include <gtest/gtest.h>

#include "smtp.h"
#include "support/scripted_server.hpp"

namespace {

using support::ScriptedServer;

TEST(Session, WholeMail) {
    ScriptedServer server(support::friendly(), {.any_order = true});
    std::uint32_t err = 99;
    const int sock = SMTP_connect("127.0.0.1", server.port(), &err);
    ASSERT_GE(sock, 0);
    EXPECT_EQ(SMTP_initialize(sock, nullptr, &err), 0);
    EXPECT_EQ(SMTP_MAIL(sock, "a@b", "c@d,e@f", &err), 0);
    EXPECT_EQ(SMTP_startData(sock, &err), 0);
    EXPECT_EQ(SMTP_send(sock, "Hi\r\n..x", 7, &err), 0);
    EXPECT_EQ(SMTP_endData(sock, &err), 0);
    EXPECT_EQ(SMTP_RSET(sock, &err), 0);
    EXPECT_EQ(SMTP_QUIT(sock, &err), 0);
    EXPECT_EQ(err, 0U);
    EXPECT_EQ(server.problem(), "");
    EXPECT_EQ(server.bodies()[0], "Hi\r\n..x");
    EXPECT_EQ(server.commands()[0].substr(0, 5), "EHLO ");
    EXPECT_EQ(server.commands()[2], "RCPT TO:<c@d>\r\n");
    EXPECT_EQ(server.commands()[6], "QUIT\r\n");
}

}  // namespace

// session.cpp - the POP3 session of POP before SMTP: log in, STAT, log out. No mail is read.
//
// Called before the SMTP connection is opened, in the order Connect, Login, STAT, Logout; the
// caller closes the socket. No state of its own. RFC 1939 4 to 7.
#include <array>
#include <cstring>

#include "common/text.hpp"
#include "log/entry.hpp"
#include "log/handles.hpp"
#include "net/connect.hpp"
#include "pop3.h"
#include "pop3/transport.hpp"

namespace ovrmail::pop3 {
namespace {

using log::TraceScope;

constexpr const char* kServiceNames[] = {"pop3"};
constexpr net::Service kService{kServiceNames, 110, 5, 7};
constexpr std::size_t kCommandSize = 1028;

std::int32_t find_host(const char* host, in_addr_t& address, std::uint32_t* err,
                       TraceHandle* handle) noexcept {
    TraceScope trace("getpop0000", "getpopFFFF", handle);
    const net::Report report = net::look_up(host, kService, address);
    if (!report.done())
        return trace.fail("getpop0010", judge(report, kName, err),
                          static_cast<std::uint32_t>(report.error));
    trace.leave();
    return kOk;
}

void clear_text(char* error_text) noexcept {
    if (error_text != nullptr) *error_text = '\0';
}

// Reads the answer to a step; a refusal leaves the server's line in the error text.
std::int32_t answer(const Session& session, Result refused, char* error_text) noexcept {
    Reply reply;
    const std::int32_t rc = read_reply(session, reply);
    if (rc < 0 || rc == kPositive) return rc < 0 ? rc : kOk;
    if (error_text != nullptr) common::copy_into({error_text, MAIL_DETAIL_SIZE}, reply.data());
    return refused;
}

std::int32_t say(const Session& session, const char* command, Result refused,
                 char* error_text) noexcept {
    const std::int32_t rc = send_command(session, command, command, true);
    return rc == kOk ? answer(session, refused, error_text) : rc;
}

std::int32_t say_user(const Session& session, const char* user, char* error_text) noexcept {
    std::array<char, kCommandSize> command;
    if (common::format_into(command, "USER %s\r\n", user) < 0) return kUserRefused;
    return say(session, command.data(), kUserRefused, error_text);
}

std::int32_t say_password(const Session& session, const char* password, char* error_text) noexcept {
    std::array<char, kCommandSize> command;
    const int length = common::format_into(command, "PASS %s\r\n", password);
    std::int32_t rc = kPasswordRefused;
    if (length >= 0)
        rc = send_command(session, {command.data(), static_cast<std::size_t>(length)}, log::kMasked,
                          false);
    ::explicit_bzero(command.data(), command.size());
    return rc == kOk ? answer(session, kPasswordRefused, error_text) : rc;
}

}  // namespace
}  // namespace ovrmail::pop3

using namespace ovrmail;
using pop3::Session;

std::int32_t Pop3_Connect(const char* host, std::uint32_t port, std::uint32_t* err,
                          TraceHandle* handle) noexcept {
    log::TraceScope trace("Pop3_0100", "Pop3_03ff", handle);
    log::flush_log();  // the look-up and the connection may take their time
    in_addr_t address = INADDR_NONE;
    const std::int32_t rc = pop3::find_host(host != nullptr ? host : "", address, err, handle);
    if (rc != pop3::kOk) return trace.fail("Pop3_0110", rc);
    int sock = -1;
    const net::Report report = net::connect_to(address, port, pop3::kService, sock);
    if (report.done()) return trace.leave(sock);
    const bool no_socket = report.call == std::string_view("socket");
    const std::int32_t code = pop3::judge(report, no_socket ? pop3::kFailed : pop3::kConnect, err);
    return trace.fail(no_socket ? "Pop3_0210" : "Pop3_0310", code);
}

std::int32_t Pop3_Login(std::int32_t sock, const char* user, const char* password, char* error_text,
                        std::uint32_t* err, TraceHandle* handle) noexcept {
    log::TraceScope trace("Pop3_0400", "Pop3_07ff", handle);
    const Session session{sock, err, handle};
    pop3::clear_text(error_text);
    std::int32_t rc = pop3::answer(session, pop3::kGreetingRefused, error_text);
    if (rc != pop3::kOk) return trace.fail("Pop3_0410", rc);
    rc = pop3::say_user(session, user != nullptr ? user : "", error_text);
    if (rc != pop3::kOk) return trace.fail("Pop3_0510", rc);
    rc = pop3::say_password(session, password != nullptr ? password : "", error_text);
    return trace.finish("Pop3_0610", rc);
}

std::int32_t Pop3_STAT(std::int32_t sock, char* error_text, std::uint32_t* err,
                       TraceHandle* handle) noexcept {
    log::TraceScope trace("Pop3_0900", "Pop3_09ff", handle);
    pop3::clear_text(error_text);
    const std::int32_t rc =
        pop3::say({sock, err, handle}, "STAT\r\n", pop3::kStatRefused, error_text);
    return trace.finish("Pop3_0910", rc);
}

std::int32_t Pop3_Logout(std::int32_t sock, char* error_text, std::uint32_t* err,
                         TraceHandle* handle) noexcept {
    log::TraceScope trace("Pop3_0800", "Pop3_08ff", handle);
    pop3::clear_text(error_text);
    const std::int32_t rc =
        pop3::say({sock, err, handle}, "QUIT\r\n", pop3::kQuitRefused, error_text);
    return trace.finish("Pop3_0810", rc);
}

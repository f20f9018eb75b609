// session.cpp - the POP3 session of POP before SMTP: log in, STAT, log out. No mail is read.
//
// Called before the SMTP connection is opened, in the order Connect, Login, STAT, Logout; the
// caller closes the socket. Keeps no state of its own. RFC 1939 4 to 7.
#include <array>
#include <cstring>

#include "common/error_word.hpp"
#include "common/resolve.hpp"
#include "common/text.hpp"
#include "mail_log.h"
#include "pop3.h"
#include "pop3/transport.hpp"

namespace ovrmail::pop3 {
namespace {

using log::TraceScope;

constexpr int kLookupAttempts = 5;
constexpr int kConnectAttempts = 7;
constexpr std::uint16_t kDefaultPort = 110;
constexpr const char* kServiceNames[] = {"pop3"};
constexpr const char* kMasked = "******";
constexpr std::size_t kErrorTextSize = 256;  // of the caller's buffer
constexpr std::size_t kCommandSize = 1028;

in_addr_t host_address(const char* host, std::uint32_t* err, TraceHandle* handle) noexcept {
    TraceScope trace("getpop0000", "getpopFFFF", handle);
    const common::Lookup found = common::look_up_ipv4(host, kLookupAttempts);
    if (found.address == INADDR_NONE) {
        common::set_error(err, found.resolver_error);
        MailLogSysErrWrite(g_pLogHandle, "gethostbyname_r", 0, found.resolver_error, nullptr);
        trace.fail("getpop0010", found.resolver_error);
        return INADDR_NONE;
    }
    trace.leave();
    return found.address;
}

void clear_text(char* error_text) noexcept {
    if (error_text != nullptr) *error_text = '\0';
}

// Reads the answer to a step; a refusal leaves the server's line in the error text.
std::int32_t answer(const Session& session, Result refused, char* error_text) noexcept {
    Reply reply;
    const std::int32_t rc = read_reply(session, reply);
    if (rc < 0 || rc == kPositive) return rc < 0 ? rc : kOk;
    if (error_text != nullptr) common::copy_into({error_text, kErrorTextSize}, reply.data());
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
        rc = send_command(session, {command.data(), static_cast<std::size_t>(length)}, kMasked,
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
    const in_addr_t address = pop3::host_address(host != nullptr ? host : "", err, handle);
    if (address == INADDR_NONE) return trace.fail("Pop3_0110", pop3::kName);
    const std::uint16_t target =
        port != 0 ? static_cast<std::uint16_t>(port)
                  : common::service_port(pop3::kServiceNames, pop3::kDefaultPort);

    const common::Connection made = common::connect_ipv4(address, target, pop3::kConnectAttempts);
    if (made.fd >= 0) return trace.leave(made.fd);
    common::set_error(err, made.error);
    MailLogSysErrWrite(g_pLogHandle, made.call_name(), -1, made.error, nullptr);
    if (made.ended == common::ConnectStep::kSocket) return trace.fail("Pop3_0210", pop3::kFailed);
    return trace.fail("Pop3_0310", pop3::kConnect);
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
    return rc == pop3::kOk ? trace.leave(rc) : trace.fail("Pop3_0610", rc);
}

std::int32_t Pop3_STAT(std::int32_t sock, char* error_text, std::uint32_t* err,
                       TraceHandle* handle) noexcept {
    log::TraceScope trace("Pop3_0900", "Pop3_09ff", handle);
    pop3::clear_text(error_text);
    const std::int32_t rc =
        pop3::say({sock, err, handle}, "STAT\r\n", pop3::kStatRefused, error_text);
    return rc == pop3::kOk ? trace.leave(rc) : trace.fail("Pop3_0910", rc);
}

std::int32_t Pop3_Logout(std::int32_t sock, char* error_text, std::uint32_t* err,
                         TraceHandle* handle) noexcept {
    log::TraceScope trace("Pop3_0800", "Pop3_08ff", handle);
    pop3::clear_text(error_text);
    const std::int32_t rc =
        pop3::say({sock, err, handle}, "QUIT\r\n", pop3::kQuitRefused, error_text);
    return rc == pop3::kOk ? trace.leave(rc) : trace.fail("Pop3_0810", rc);
}

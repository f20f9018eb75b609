// connect.cpp - opens the connection to the mail server: the first step of the conversation.
//
// Installs the budget that covers greeting, EHLO and authentication too; connect() itself is not
// bounded by it. RFC 5321 4.5.3.2.1, 4.5.4.2 (port).
#include "smtp/connect.hpp"

#include "common/error_word.hpp"
#include "common/resolve.hpp"
#include "log/trace_scope.hpp"
#include "mail_log.h"
#include "smtp.h"
#include "smtp/result.hpp"
#include "smtp/timeout.hpp"

namespace ovrmail::smtp {
namespace {

constexpr int kLookupAttempts = 5;
constexpr int kConnectAttempts = 6;
constexpr std::uint16_t kDefaultPort = 25;
constexpr const char* kServiceNames[] = {"SMTP", "smtp"};

}  // namespace

in_addr_t SMTP_GetServerAddress(const char* server, std::uint32_t* err) noexcept {
    log::TraceScope trace("getsmtp0000", "getsmtpFFFF");
    const common::Lookup found = common::look_up_ipv4(server, kLookupAttempts);
    if (found.address == INADDR_NONE) {
        common::set_error(err, found.resolver_error);
        MailLogSysErrWrite(g_pLogHandle, "gethostbyname_r", 0, found.resolver_error, nullptr);
        trace.fail("getsmtp0010", found.resolver_error);
        return INADDR_NONE;
    }
    trace.leave();
    return found.address;
}

}  // namespace ovrmail::smtp

using namespace ovrmail;

std::int32_t SMTP_connect(const char* server, std::uint32_t port, std::uint32_t* err) noexcept {
    log::TraceScope trace("smtp0000", "smtp00FF");
    if (server == nullptr) server = "";
    trace.note("smtp0005", std::string_view(server));
    smtp::start_budget(g_stMailTimeout.ulConnectTimeOut);

    const in_addr_t address = smtp::SMTP_GetServerAddress(server, err);
    if (address == INADDR_NONE) return trace.fail("smtp0010", smtp::kName);
    const std::uint16_t target =
        port != 0 ? static_cast<std::uint16_t>(port)
                  : common::service_port(smtp::kServiceNames, smtp::kDefaultPort);

    const common::Connection made = common::connect_ipv4(address, target, smtp::kConnectAttempts);
    if (made.fd >= 0) return trace.leave(made.fd);
    common::set_error(err, made.error);
    MailLogSysErrWrite(g_pLogHandle, made.call_name(), -1, made.error, nullptr);
    if (made.ended == common::ConnectStep::kSocket) return trace.fail("smtp1060", smtp::kSocket);
    return trace.fail("smtp1070", smtp::kConnect);
}

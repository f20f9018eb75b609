// connect.cpp - opens the connection to the mail server: the first step of the conversation.
//
// Installs the budget that covers greeting, EHLO and authentication too; connect() itself is not
// bounded by it. No state of its own. RFC 5321 4.5.3.2.1, 4.5.4.2 (port).
#include "net/connect.hpp"

#include "log/handles.hpp"
#include "log/trace_scope.hpp"
#include "smtp.h"
#include "smtp/timeout.hpp"
#include "smtp/transport.hpp"

namespace ovrmail::smtp {
namespace {

constexpr const char* kServiceNames[] = {"SMTP", "smtp"};
constexpr net::Service kService{kServiceNames, 25, 5, 6};

std::int32_t find_server(const char* server, in_addr_t& address, std::uint32_t* err) noexcept {
    log::TraceScope trace("getsmtp0000", "getsmtpFFFF");
    const net::Report report = net::look_up(server, kService, address);
    if (!report.done())
        return trace.fail("getsmtp0010", judge(report, kName, err),
                          static_cast<std::uint32_t>(report.error));
    trace.leave();
    return kOk;
}

}  // namespace
}  // namespace ovrmail::smtp

using namespace ovrmail;

std::int32_t SMTP_connect(const char* server, std::uint32_t port, std::uint32_t* err) noexcept {
    log::TraceScope trace("smtp0000", "smtp00FF");
    if (server == nullptr) server = "";
    trace.note("smtp0005", std::string_view(server));
    smtp::start_budget(g_stMailTimeout.ulConnectTimeOut);
    log::flush_log();  // the look-up and the connection may take their time

    in_addr_t address = INADDR_NONE;
    const std::int32_t rc = smtp::find_server(server, address, err);
    if (rc != smtp::kOk) return trace.fail("smtp0010", rc);
    int sock = -1;
    const net::Report report = net::connect_to(address, port, smtp::kService, sock);
    if (report.done()) return trace.leave(sock);
    const bool no_socket = report.call == std::string_view("socket");
    const std::int32_t code = smtp::judge(report, no_socket ? smtp::kSocket : smtp::kConnect, err);
    return trace.fail(no_socket ? "smtp1060" : "smtp1070", code);
}

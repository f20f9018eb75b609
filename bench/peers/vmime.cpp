// vmime.cpp - VMime: message builder and SMTP transport, a connection per mail.
#include <vmime/platforms/posix/posixHandler.hpp>
#include <vmime/vmime.hpp>

#include "client.hpp"

namespace {

vmime::shared_ptr<vmime::message> make_message(const bench::Mail& mail) {
    vmime::messageBuilder builder;
    builder.setExpeditor(vmime::mailbox(mail.sender));
    vmime::addressList to;
    for (const std::string& one : mail.recipient_list())
        to.appendAddress(vmime::make_shared<vmime::mailbox>(one));
    builder.setRecipients(to);
    builder.setSubject(vmime::text(mail.subject));
    builder.getTextPart()->setCharset(vmime::charset(mail.charset()));
    builder.getTextPart()->setText(
        vmime::make_shared<vmime::stringContentHandler>(mail.wire_body()));
    if (!mail.attachment.empty()) {
        builder.appendAttachment(vmime::make_shared<vmime::fileAttachment>(
            mail.attachment, vmime::mediaType("application/octet-stream")));
    }
    return builder.construct();
}

void deliver(const bench::Mail& mail) {
    const auto session = vmime::net::session::create();
    const vmime::utility::url url("smtp://" + mail.host + ":" + std::to_string(mail.port));
    const auto transport = session->getTransport(url);
    transport->connect();
    transport->send(make_message(mail));
    transport->disconnect();
}

}  // namespace

int main(int argc, char** argv) {
    vmime::platform::setHandler<vmime::platforms::posix::posixHandler>();
    return bench::run(argc, argv, deliver);
}

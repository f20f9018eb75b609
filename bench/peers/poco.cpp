// poco.cpp - Poco Net: MailMessage with parts, SMTPClientSession per mail.
#include <Poco/Exception.h>
#include <Poco/Net/FilePartSource.h>
#include <Poco/Net/MailMessage.h>
#include <Poco/Net/MailRecipient.h>
#include <Poco/Net/SMTPClientSession.h>
#include <Poco/Net/StringPartSource.h>

#include <stdexcept>

#include "client.hpp"

namespace {

void compose(const bench::Mail& mail, Poco::Net::MailMessage& message) {
    using Poco::Net::MailMessage;
    message.setSender(mail.sender);
    for (const std::string& one : mail.recipient_list())
        message.addRecipient({Poco::Net::MailRecipient::PRIMARY_RECIPIENT, one});
    message.setSubject(mail.subject);
    const std::string type = std::string("text/plain; charset=") + mail.charset();
    if (mail.attachment.empty()) {
        message.setContentType(type);
        message.setContent(mail.wire_body(), MailMessage::ENCODING_7BIT);
        return;
    }
    message.addContent(new Poco::Net::StringPartSource(mail.wire_body(), type),
                       MailMessage::ENCODING_7BIT);
    message.addAttachment("attachment.bin", new Poco::Net::FilePartSource(mail.attachment));
}

void deliver(const bench::Mail& mail) {
    try {
        Poco::Net::MailMessage message;
        compose(mail, message);
        Poco::Net::SMTPClientSession session(mail.host, static_cast<Poco::UInt16>(mail.port));
        session.login();
        session.sendMessage(message);
        session.close();
    } catch (const Poco::Exception& problem) {
        throw std::runtime_error(problem.displayText());
    }
}

}  // namespace

int main(int argc, char** argv) { return bench::run(argc, argv, deliver); }

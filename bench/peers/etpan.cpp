// etpan.cpp - libetpan: message built as its MIME tree, written to memory, sent by its SMTP client.
#include <libetpan/libetpan.h>

#include <cstring>
#include <stdexcept>

#include "client.hpp"

namespace {

mailmime* text_part(const bench::Mail& mail, const std::string& body) {
    mailmime_content* const type = mailmime_content_new_with_str("text/plain");
    clist_append(type->ct_parameters,
                 mailmime_param_new_with_data(::strdup("charset"), ::strdup(mail.charset())));
    mailmime* const part =
        mailmime_new_empty(type, mailmime_fields_new_encoding(MAILMIME_MECHANISM_7BIT));
    mailmime_set_body_text(part, const_cast<char*>(body.data()), body.size());
    return part;
}

mailmime* file_part(const std::string& path) {
    mailmime_fields* const fields =
        mailmime_fields_new_filename(MAILMIME_DISPOSITION_TYPE_ATTACHMENT,
                                     ::strdup("attachment.bin"), MAILMIME_MECHANISM_BASE64);
    mailmime* const part =
        mailmime_new_empty(mailmime_content_new_with_str("application/octet-stream"), fields);
    mailmime_set_body_file(part, ::strdup(path.c_str()));
    return part;
}

mailmime* make_message(const bench::Mail& mail, const std::string& body) {
    mailimf_mailbox_list* const from = mailimf_mailbox_list_new_empty();
    mailimf_mailbox_list_add_parse(from, const_cast<char*>(mail.sender.c_str()));
    mailimf_address_list* const to = mailimf_address_list_new_empty();
    for (const std::string& one : mail.recipient_list())
        mailimf_address_list_add_parse(to, const_cast<char*>(one.c_str()));
    mailmime* const message = mailmime_new_message_data(nullptr);
    mailmime_set_imf_fields(
        message, mailimf_fields_new_with_data(from, nullptr, nullptr, to, nullptr, nullptr, nullptr,
                                              nullptr, ::strdup(mail.subject.c_str())));
    if (mail.attachment.empty()) {
        mailmime_smart_add_part(message, text_part(mail, body));
        return message;
    }
    mailmime* const parts = mailmime_multiple_new("multipart/mixed");
    mailmime_smart_add_part(message, parts);
    mailmime_smart_add_part(parts, text_part(mail, body));
    mailmime_smart_add_part(parts, file_part(mail.attachment));
    return message;
}

void check(int rc, const char* step) {
    if (rc != MAILSMTP_NO_ERROR) throw std::runtime_error(step);
}

void deliver(const bench::Mail& mail) {
    const std::string body = mail.wire_body();
    mailmime* const message = make_message(mail, body);
    MMAPString* const wire = mmap_string_new("");
    int column = 0;
    check(mailmime_write_mem(wire, &column, message), "compose");
    mailsmtp* const session = mailsmtp_new(0, nullptr);
    check(
        mailsmtp_socket_connect(session, mail.host.c_str(), static_cast<std::uint16_t>(mail.port)),
        "connect");
    check(mailesmtp_ehlo(session), "EHLO");
    check(mailesmtp_mail(session, mail.sender.c_str(), 0, nullptr), "MAIL");
    for (const std::string& one : mail.recipient_list())
        check(mailesmtp_rcpt(session, one.c_str(), 0, nullptr), "RCPT");
    check(mailsmtp_data(session), "DATA");
    check(mailsmtp_data_message(session, wire->str, wire->len), "message");
    mailsmtp_quit(session);
    mailsmtp_free(session);
    mmap_string_free(wire);
    mailmime_free(message);
}

}  // namespace

int main(int argc, char** argv) { return bench::run(argc, argv, deliver); }

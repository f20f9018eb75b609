// esmtp.cpp - libESMTP. It leaves MIME to its caller: the message is composed into a memory file
// by the bench, and read from there by the library.
#include "compose.hpp"  // before the library's header, which takes size_t as known
// clang-format off
#include <libesmtp.h>
// clang-format on

#include <cstdio>
#include <stdexcept>

namespace {

void throw_problem(const char* what) {
    char text[128];
    throw std::runtime_error(std::string(what) + ": " +
                             smtp_strerror(smtp_errno(), text, sizeof text));
}

void deliver(const bench::Mail& mail) {
    std::FILE* const file = bench::compose_file(mail);
    smtp_session_t session = smtp_create_session();
    smtp_message_t message = smtp_add_message(session);
    smtp_set_server(session, (mail.host + ":" + std::to_string(mail.port)).c_str());
    smtp_set_reverse_path(message, mail.sender.c_str());
    smtp_set_message_fp(message, file);
    for (const std::string& one : mail.recipient_list()) smtp_add_recipient(message, one.c_str());
    const int started = smtp_start_session(session);
    const int code = started != 0 ? smtp_message_transfer_status(message)->code : 0;
    smtp_destroy_session(session);
    std::fclose(file);
    if (started == 0) throw_problem("session");
    if (code / 100 != 2) throw std::runtime_error("refused");
}

}  // namespace

int main(int argc, char** argv) { return bench::run(argc, argv, deliver); }

// product.cpp - the measured client of this library: one call of its entry per mail.
#include <cstdio>
#include <stdexcept>

#include "client.hpp"
#include "mail_api.h"

namespace {

void deliver(const bench::Mail& mail) {
    const MailEntry recipient{MAIL_KIND_RECIPIENT, 0, mail.recipients.c_str()};
    const MailEntry parts[] = {{MAIL_KIND_BODY, 0, mail.body.c_str()},
                               {MAIL_KIND_ATTACHMENT, 0, mail.attachment.c_str()}};
    const MailSplitOption split{64, static_cast<std::uint32_t>(mail.port)};
    char detail[256];
    const int rc = OvRm_SendEMail(&recipient, 1, parts, mail.attachment.empty() ? 1 : 2,
                                  mail.sender.c_str(), mail.subject.c_str(), mail.host.c_str(), 0,
                                  &split, nullptr, nullptr, detail);
    if (rc != MAIL_SENT)
        throw std::runtime_error("result " + std::to_string(rc) + ", detail \"" + detail + "\"");
}

}  // namespace

int main(int argc, char** argv) { return bench::run(argc, argv, deliver); }

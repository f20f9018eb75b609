// sample_mail.hpp - a send request with good values; a test changes what it is about.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "mail_api.h"

namespace support {

inline constexpr const char* kWorkDir = "/var/opt/Quorvin/tmp";
inline constexpr const char* kLogDir = "/var/opt/Quorvin/log";
inline constexpr const char* kTraceDir = "/var/opt/Quorvin/tmp2";
inline constexpr const char* kTraceConfig = "/etc/opt/Quorvin/trc_conf";

struct SampleMail {
    std::string to = "ann@example.test";
    std::string from = "bob@example.test";
    std::string subject = "Hello";
    std::string body = "one\ntwo\n";
    std::string server = "a.invalid";  // no real server is ever reached
    std::string work_dir = kWorkDir;

    std::uint32_t recipient_kind = MAIL_KIND_RECIPIENT;
    std::uint32_t recipient_count = 1;
    bool has_recipient = true, has_body = true;  // otherwise the entry has a null value
    std::vector<MailEntry> attachments;          // the part list from entry 1 on
    std::uint32_t partial = 0;
    bool has_options = true;  // otherwise null for the next two
    MailSplitOption split{10, 0};
    MailTimeout time_out = MAIL_TIMEOUT_DEFAULTS;
    MailAuthAccount account{MAIL_MECH_PLAIN, "user", "secret"};
    MailPopAccount pop{0, 0, "user", "secret", "a.invalid", 60};
    MailEntry auth{0, 0, nullptr};  // kind 0: no option
    std::array<char, 256> detail{"untouched"};

    void use_auth() { auth = {MAIL_AUTH_SMTP, 0, &account}; }
    void use_pop() { auth = {MAIL_AUTH_POP_BEFORE_SMTP, 0, &pop}; }

    // Calls `entry` with the arguments of OvRm_SendEMail.
    template <class Entry>
    std::int32_t send(Entry entry) {
        std::vector<MailEntry> parts{{MAIL_KIND_BODY, 0, has_body ? body.c_str() : nullptr}};
        parts.insert(parts.end(), attachments.begin(), attachments.end());
        const MailEntry first{recipient_kind, 0, has_recipient ? to.c_str() : nullptr};
        return entry(
            &first, recipient_count, parts.data(), static_cast<std::uint32_t>(parts.size()),
            from.c_str(), subject.c_str(), server.c_str(), partial, has_options ? &split : nullptr,
            has_options ? &time_out : nullptr, auth.kind != 0 ? &auth : nullptr, detail.data());
    }
    std::int32_t send() { return send(OvRm_SendEMail); }
    std::int32_t send_parts() {
        return send([this](auto... arguments) {
            return OvRm_SendEMailPartial_parts(0, arguments..., work_dir.c_str());
        });
    }
};

}  // namespace support

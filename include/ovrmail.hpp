// ovrmail.hpp - send a mail from C++ in a few lines: text in UTF-8, results in words.
//
//     ovrmail::Mail mail{"agent@example.com", {"ops@example.com"}, "Disk", "90 % is in use."};
//     mail.attach("report.csv");
//     const ovrmail::Server server{"mail.example.com"};
//     if (const ovrmail::Outcome sent = ovrmail::send(mail, server); !sent) log(sent.text());
//
// Header only, C++17 or later: stands on the C functions of libovrmail (-lovrmail), on libc and on
// the C++ standard library. Compiles with -fno-exceptions and -fno-rtti. Throws std::bad_alloc and
// nothing else.
//
// Text: subject and body are UTF-8 in every locale; the header converts them to what the library
// expects in the locale of the process. A mail carries ASCII and the characters of JIS X 0208.
// Addresses and the names of attached files are not converted: keep them ASCII.
//
// Threads: any thread may call any function. Sends through this header run one after the other: one
// that finds another running waits for its end. A send that the process starts in another way is
// not waited for (MAIL_E_BUSY). A child that fork() makes while another thread sends must not
// send before exec(). No thread may call setlocale() while a send runs.
//
// Passwords: the copies made for a call are wiped after it.
#ifndef OVRMAIL_OVRMAIL_HPP
#define OVRMAIL_OVRMAIL_HPP

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mail_api.h"
#include "ovrmail_message.hpp"
#include "ovrmail_outcome.hpp"
#include "ovrmail_text.hpp"

namespace ovrmail {

// A file to be sent along.
struct Attachment {
    std::string path;        // 1 to 1,024 bytes; its last component is the name in the mail
    bool temporary = false;  // deleted once the server has the mail
};

// A message that another program has composed (S/MIME), in files as the library sends them: lines
// end in LF alone, a dot at the start of a line is doubled. send_message() makes such files.
struct Prepared {
    std::string content;      // path, 1 to 1,024 bytes: what follows the header
    std::string header = {};  // path; empty: the library writes Date, From, To, Subject, Message-Id
};

// A mail.
struct Mail {
    std::string sender;                   // one address, 1 to 256 bytes
    std::vector<std::string> recipients;  // an address each; together 256 bytes, with commas
    std::string subject;                  // UTF-8; 64 bytes once converted: 32 Japanese characters
    std::string body;                     // UTF-8; 10,238 bytes once converted
    std::vector<Attachment> attachments = {};
    std::optional<Prepared> prepared = std::nullopt;  // in place of body and attachments
    std::optional<char> replacement = std::nullopt;   // see replace_unsendable()

    // Attaches a file.
    //   path  1 to 1,024 bytes; a regular file that can be read when the mail is sent
    // Returns the mail.
    Mail& attach(std::string path);

    // Attaches a file that is deleted once the server has the mail, and kept after a failure.
    Mail& attach_temporary(std::string path);

    // Sends this mail even if subject or body hold characters that a mail cannot carry.
    //   with  takes the place of each: a printable ASCII character
    // Returns the mail.
    Mail& replace_unsendable(char with = '?');
};

// Time budgets of a send, each 60 to 3,600 seconds (RFC 5321 4.5.3.2).
struct TimeOuts {
    std::chrono::seconds greeting{300};  // greeting, EHLO or HELO, SMTP AUTH
    std::chrono::seconds mail{300};      // MAIL FROM
    std::chrono::seconds rcpt{300};      // each RCPT TO
    std::chrono::seconds data{120};      // DATA
    std::chrono::seconds block{180};     // each block of the message
    std::chrono::seconds end{600};       // the end of the message and its reply
};

// An account for SMTP AUTH. PLAIN and LOGIN show the password to anyone on the network path.
struct Account {
    std::string user;      // 1 to 64 bytes
    std::string password;  // 0 to 64 bytes
    // What may be used, MAIL_MECH_ bits; CRAM-MD5 is tried first, then PLAIN, then LOGIN.
    std::uint32_t mechanisms = MAIL_MECH_CRAM_MD5 | MAIL_MECH_PLAIN | MAIL_MECH_LOGIN;
};

// POP before SMTP: a login to a POP3 server before the mail is sent.
struct PopFirst {
    std::string host;                   // name or dotted IPv4 address, 1 to 256 bytes
    std::string user;                   // 1 to 64 bytes
    std::string password;               // 0 to 64 bytes
    int port = 0;                       // 1 to 65,535; 0: the "pop3" service, else 110
    std::chrono::milliseconds wait{0};  // between login and mail, 0 to 3,600,000
    std::chrono::seconds time_out{60};  // for one reply line, 60 to 3,600
};

// The way to the mail server.
struct Server {
    std::string host;  // name or dotted IPv4 address, 1 to 256 bytes
    int port = 0;      // 1 to 65,535; 0: the "smtp" service, else 25
    TimeOuts time_outs = {};
    // A larger mail goes out in pieces of this many KiB (message/partial), 10 to 100; unset: whole.
    // Prepared messages always go out whole.
    std::optional<int> split_kib = std::nullopt;
    std::optional<Account> account = std::nullopt;     // SMTP AUTH
    std::optional<PopFirst> pop_first = std::nullopt;  // excludes account
};

// Sends one mail, now, to all its recipients.
// Checks every argument first; a problem is named with its limit, and nothing is sent.
// Blocks until the mail is sent or has failed, for as long as the time-outs allow (ovrmail(7)), and
// before that while another send through this header runs. More recipients than fit in 256 bytes
// are refused: see send_each().
Outcome send(const Mail& mail, const Server& server);

// Sends a mail of its own to each recipient, in which the others are not named. A failure does not
// keep the next from being sent. Temporary attachments are deleted when all have been sent.
// Returns an outcome for each recipient, in their order; one when there is no recipient.
[[nodiscard]] std::vector<Outcome> send_each(const Mail& mail, const Server& server);

// Sends a finished message (RFC 5322), from a MIME library for example, in any charset.
//   message     header, empty line, body; line ends CR LF, LF or CR; no line over 998 bytes, but
//               longer header lines are folded where they have a blank; no NUL. Bcc fields are left
//               out. The rest goes out as it is, without a Date or Message-Id of the library's; the
//               end mark adds an empty line
//   server      as for send(); split_kib is not used
//   sender      envelope sender; empty: the address of the field Sender, else of From
//   recipients  envelope recipients; empty: the addresses of To, Cc and Bcc
// Works through two private files in TMPDIR, else /tmp, which are gone after the call.
Outcome send_message(std::string_view message, const Server& server, const std::string& sender = {},
                     const std::vector<std::string>& recipients = {});

// The checks of send() alone: looks at arguments and files, connects to nothing.
// Return the first problem; nothing when a send would begin.
[[nodiscard]] std::optional<Outcome> check(const Mail& mail);
[[nodiscard]] std::optional<Outcome> check(const Server& server);

// From here on: how it is done.
namespace detail {

inline std::string joined(const std::vector<std::string>& addresses) {
    std::string list;
    for (const std::string& address : addresses) {
        if (&address != &addresses.front()) list += ',';
        list += address;
    }
    return list;
}

inline Problem check_addresses(const Mail& mail) {
    if (Problem problem = check_limit(TextLimit{"sender", mail.sender, 1, MAIL_ADDRESS_MAX}))
        return problem;
    if (mail.recipients.empty()) return Outcome(MAIL_E_RECIPIENT, "recipients", "there is none");
    for (std::size_t i = 0; i < mail.recipients.size(); ++i) {
        const std::string name = "recipient " + std::to_string(i + 1);
        const std::string& address = mail.recipients[i];
        if (Problem problem =
                check_limit(TextLimit{name, address, 1, MAIL_ADDRESS_MAX, MAIL_E_RECIPIENT}))
            return problem;
        if (address.find(',') != std::string::npos) {
            return Outcome(MAIL_E_RECIPIENT, name,
                           "holds a comma; give each address as an element of its own");
        }
    }
    const std::size_t size = joined(mail.recipients).size();
    if (size <= MAIL_ADDRESS_MAX) return std::nullopt;
    return Outcome(
        MAIL_E_RECIPIENT, "recipients",
        over_limit(size, MAIL_ADDRESS_MAX, " in all") + "; send a mail to each (send_each)");
}

// A regular file that can be read.
//   missing  result when it is not there
inline Problem check_file(const std::string& path, std::int32_t missing) {
    if (Problem problem = check_limit(TextLimit{"path of a file", path, 1, MAIL_PATH_MAX}))
        return problem;
    struct ::stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        const int error = errno;
        return Outcome(missing, path, system_words(error), error);
    }
    if (!S_ISREG(status.st_mode)) return Outcome(missing, path, "not a regular file");
    if (::faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) != 0) {
        const int error = errno;
        return Outcome(MAIL_E_WORK_FILE, path, system_words(error), error);
    }
    return std::nullopt;
}

inline Problem check_files(const Mail& mail) {
    for (const Attachment& attachment : mail.attachments) {
        if (Problem problem = check_file(attachment.path, MAIL_E_ATTACHMENT)) return problem;
    }
    if (!mail.prepared) return std::nullopt;
    if (!mail.body.empty() || !mail.attachments.empty())
        return Outcome(MAIL_E_ARGUMENT, "prepared", "excludes body and attachments");
    if (Problem problem = check_file(mail.prepared->content, MAIL_E_WORK_FILE)) return problem;
    if (mail.prepared->header.empty()) return std::nullopt;
    return check_file(mail.prepared->header, MAIL_E_WORK_FILE);
}

struct LibraryTexts {
    std::string subject;
    std::string body;
};

inline Problem convert_text(const TextLimit& row, std::optional<char> replacement,
                            std::string& out) {
    Converted text = to_library_text(row.text, replacement.value_or('?'));
    const std::string argument(row.argument);
    if (!text.unsendable.empty() && !replacement) {
        std::string why = text.unsendable.front().text();
        if (!text.has_converter) why += "; this system has no conversion from UTF-8";
        return Outcome(row.result, argument, why);
    }
    if (text.bytes.size() > row.most)
        return Outcome(row.result, argument,
                       over_limit(text.bytes.size(), row.most, " once converted"));
    out = std::move(text.bytes);
    return std::nullopt;
}

inline Problem convert_texts(const Mail& mail, LibraryTexts& out) {
    if (mail.replacement && (*mail.replacement < ' ' || *mail.replacement > '~'))
        return Outcome(MAIL_E_ARGUMENT, "replacement", "not a printable ASCII character");
    if (Problem problem = convert_text({"subject", mail.subject, 0, MAIL_SUBJECT_MAX},
                                       mail.replacement, out.subject))
        return problem;
    return convert_text({"body", mail.body, 0, MAIL_BODY_MAX}, mail.replacement, out.body);
}

inline Problem check_mail(const Mail& mail, LibraryTexts& texts) {
    if (Problem problem = check_addresses(mail)) return problem;
    if (Problem problem = convert_texts(mail, texts)) return problem;
    return check_files(mail);
}

struct TimeOutField {
    std::string_view name;
    std::chrono::seconds TimeOuts::*seconds;
    std::uint32_t MailTimeout::*record;
};
inline constexpr std::array kTimeOutFields{
    TimeOutField{"time_outs.greeting", &TimeOuts::greeting, &MailTimeout::ulConnectTimeOut},
    TimeOutField{"time_outs.mail", &TimeOuts::mail, &MailTimeout::ulMailFromTimeOut},
    TimeOutField{"time_outs.rcpt", &TimeOuts::rcpt, &MailTimeout::ulRcptToTimeOut},
    TimeOutField{"time_outs.data", &TimeOuts::data, &MailTimeout::ulDataTimeOut},
    TimeOutField{"time_outs.block", &TimeOuts::block, &MailTimeout::ulSendDataTimeOut},
    TimeOutField{"time_outs.end", &TimeOuts::end, &MailTimeout::ulEndDataTimeOut}};

inline constexpr int kPortMax = 65535;

inline Problem check_time_outs(const TimeOuts& time_outs) {
    for (const TimeOutField& field : kTimeOutFields) {
        const NumberLimit row{field.name, (time_outs.*field.seconds).count(), MAIL_TIMEOUT_MIN,
                              MAIL_TIMEOUT_MAX, " seconds"};
        if (Problem problem = check_limit(row)) return problem;
    }
    return std::nullopt;
}

inline Problem check_account(const Account& account) {
    constexpr std::uint32_t kKnown = MAIL_MECH_CRAM_MD5 | MAIL_MECH_PLAIN | MAIL_MECH_LOGIN;
    if ((account.mechanisms & kKnown) == 0)
        return Outcome(MAIL_E_ARGUMENT, "account.mechanisms", "none that is known");
    return first_problem<TextLimit>({{"account.user", account.user, 1, MAIL_ACCOUNT_MAX},
                                     {"account.password", account.password, 0, MAIL_ACCOUNT_MAX}});
}

inline Problem check_pop_first(const PopFirst& pop) {
    if (Problem problem =
            first_problem<TextLimit>({{"pop_first.host", pop.host, 1, MAIL_ADDRESS_MAX},
                                      {"pop_first.user", pop.user, 1, MAIL_ACCOUNT_MAX},
                                      {"pop_first.password", pop.password, 0, MAIL_ACCOUNT_MAX}}))
        return problem;
    return first_problem<NumberLimit>(
        {{"pop_first.port", pop.port, 0, kPortMax, ""},
         {"pop_first.wait", pop.wait.count(), 0, MAIL_POP_WAIT_MAX, " milliseconds"},
         {"pop_first.time_out", pop.time_out.count(), MAIL_TIMEOUT_MIN, MAIL_TIMEOUT_MAX,
          " seconds"}});
}

// The records of an authentication option. They hold passwords, which are wiped with them.
class AuthRecords {
public:
    explicit AuthRecords(const Server& server) noexcept {
        if (server.account) fill(*server.account);
        if (server.pop_first) fill(*server.pop_first);
    }
    ~AuthRecords() {
        ::explicit_bzero(&account_, sizeof account_);
        ::explicit_bzero(&pop_, sizeof pop_);
    }
    AuthRecords(const AuthRecords&) = delete;
    AuthRecords& operator=(const AuthRecords&) = delete;

    [[nodiscard]] const MailEntry* entry() const noexcept {
        return entry_.kind != 0 ? &entry_ : nullptr;
    }

private:
    template <std::size_t Size>
    static void store(char (&field)[Size], std::string_view text) noexcept {
        std::memcpy(field, text.data(), std::min(text.size(), Size - 1));
    }
    void fill(const Account& account) noexcept {
        account_.ulMechanisms = account.mechanisms;
        store(account_.szUser, account.user);
        store(account_.szPassword, account.password);
        entry_ = {MAIL_AUTH_SMTP, 0, &account_};
    }
    void fill(const PopFirst& pop) noexcept {
        pop_.ulPort = static_cast<std::uint32_t>(pop.port);
        pop_.lWaitMs = static_cast<std::int32_t>(pop.wait.count());
        pop_.usTimeOut = static_cast<std::uint16_t>(pop.time_out.count());
        store(pop_.szHost, pop.host);
        store(pop_.szUser, pop.user);
        store(pop_.szPassword, pop.password);
        entry_ = {MAIL_AUTH_POP_BEFORE_SMTP, 0, &pop_};
    }

    MailAuthAccount account_{};
    MailPopAccount pop_{};
    MailEntry entry_{};
};

inline std::vector<MailEntry> part_list(const Mail& mail, const LibraryTexts& texts) {
    std::vector<MailEntry> parts{{MAIL_KIND_BODY, 0, mail.prepared ? nullptr : texts.body.c_str()}};
    for (const Attachment& attachment : mail.attachments) {
        const std::uint32_t kind =
            attachment.temporary ? MAIL_KIND_ATTACHMENT_TEMP : MAIL_KIND_ATTACHMENT;
        parts.push_back({kind, 0, attachment.path.c_str()});
    }
    if (!mail.prepared) return parts;
    parts.push_back({MAIL_KIND_PREPARED, 0, mail.prepared->content.c_str()});
    if (!mail.prepared->header.empty())
        parts.push_back({MAIL_KIND_PREPARED_HEADER, 0, mail.prepared->header.c_str()});
    return parts;
}

// Held while a send runs.
inline std::mutex send_mutex;

inline Outcome call(const Mail& mail, const LibraryTexts& texts, const Server& server) {
    const std::string to = joined(mail.recipients);
    const MailEntry recipient{MAIL_KIND_RECIPIENT, 0, to.c_str()};
    const std::vector<MailEntry> parts = part_list(mail, texts);
    const std::uint32_t partial = server.split_kib && !mail.prepared ? 1 : 0;
    const MailSplitOption split{server.split_kib.value_or(MAIL_SPLIT_DEFAULT),
                                static_cast<std::uint32_t>(server.port)};
    MailTimeout time_out{};
    for (const TimeOutField& field : kTimeOutFields) {
        time_out.*field.record =
            static_cast<std::uint32_t>((server.time_outs.*field.seconds).count());
    }
    const AuthRecords auth(server);
    std::array<char, MAIL_DETAIL_SIZE> detail_text{};
    const std::lock_guard<std::mutex> lock(send_mutex);
    const std::int32_t result =
        OvRm_SendEMail(&recipient, 1, parts.data(), static_cast<std::uint32_t>(parts.size()),
                       mail.sender.c_str(), texts.subject.c_str(), server.host.c_str(), partial,
                       &split, &time_out, auth.entry(), detail_text.data());
    return Outcome(result, detail_text.data());
}

}  // namespace detail

inline Mail& Mail::attach(std::string path) {
    attachments.push_back({std::move(path)});
    return *this;
}

inline Mail& Mail::attach_temporary(std::string path) {
    attachments.push_back({std::move(path), true});
    return *this;
}

inline Mail& Mail::replace_unsendable(char with) {
    replacement = with;
    return *this;
}

inline std::optional<Outcome> check(const Mail& mail) {
    detail::LibraryTexts texts;
    return detail::check_mail(mail, texts);
}

inline std::optional<Outcome> check(const Server& server) {
    using detail::Problem;
    if (Problem problem =
            detail::check_limit(detail::TextLimit{"host", server.host, 1, MAIL_ADDRESS_MAX}))
        return problem;
    if (Problem problem = detail::first_problem<detail::NumberLimit>(
            {{"port", server.port, 0, detail::kPortMax, ""},
             {"split_kib", server.split_kib.value_or(MAIL_SPLIT_DEFAULT), MAIL_SPLIT_MIN,
              MAIL_SPLIT_MAX, " KiB"}}))
        return problem;
    if (Problem problem = detail::check_time_outs(server.time_outs)) return problem;
    if (server.account && server.pop_first)
        return Outcome(MAIL_E_ARGUMENT, "account", "excludes pop_first");
    if (server.account) return detail::check_account(*server.account);
    if (server.pop_first) return detail::check_pop_first(*server.pop_first);
    return std::nullopt;
}

inline Outcome send(const Mail& mail, const Server& server) {
    detail::LibraryTexts texts;
    if (const auto problem = detail::check_mail(mail, texts)) return *problem;
    if (const auto problem = check(server)) return *problem;
    return detail::call(mail, texts, server);
}

inline std::vector<Outcome> send_each(const Mail& mail, const Server& server) {
    std::vector<Outcome> outcomes;
    Mail single = mail;
    for (Attachment& attachment : single.attachments) attachment.temporary = false;
    for (const std::string& recipient : mail.recipients) {
        single.recipients = {recipient};
        outcomes.push_back(send(single, server));
    }
    if (outcomes.empty())
        outcomes.push_back(send(mail, server));  // says that there is no recipient
    if (!std::all_of(outcomes.begin(), outcomes.end(), [](const Outcome& o) { return bool(o); }))
        return outcomes;
    for (const Attachment& attachment : mail.attachments) {
        if (attachment.temporary) ::unlink(attachment.path.c_str());
    }
    return outcomes;
}

inline Outcome send_message(std::string_view message, const Server& server,
                            const std::string& sender, const std::vector<std::string>& recipients) {
    detail::Message ready;
    if (const auto problem = detail::split_message(message, ready)) return *problem;
    Mail mail{sender, recipients, detail::log_subject(ready.fields), {}};
    if (sender.empty()) {
        const auto authors = detail::addresses_of(ready.fields, {"Sender", "From"});
        if (authors.empty())
            return Outcome(MAIL_E_ARGUMENT, "message", "no address in Sender or From");
        mail.sender = authors.front();
    }
    if (recipients.empty()) {
        mail.recipients = detail::addresses_of(ready.fields, {"To", "Cc", "Bcc"});
    }
    const detail::TemporaryFile header(ready.header);
    if (const auto problem = header.problem()) return *problem;
    const detail::TemporaryFile content(ready.content);
    if (const auto problem = content.problem()) return *problem;
    mail.prepared = Prepared{content.path(), header.path()};
    return send(mail, server);
}

}  // namespace ovrmail

#endif

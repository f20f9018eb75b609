// ovrm_send_probe.cpp - the opening of a conversation, with the library's own functions: connect,
// greeting, EHLO, QUIT (RFC 5321 3.1). Nothing is authenticated and no mail is sent.
#include <unistd.h>

#include <array>
#include <string_view>
#include <vector>

#include "ovrm_send_config.hpp"
#include "ovrm_send_results.hpp"
#include "ovrm_send_server.hpp"
#include "smtp.h"

namespace ovrm_send {
namespace {

constexpr int kMostLines = 100; /* of a reply; servers have a dozen */

using Line = std::array<char, 1029>;

class Probe {
public:
    Probe(const Options& options, Report& report)
        : options_(options), report_(report), where_(where(options.server, options.port)) {}
    ~Probe() {
        if (sock_ >= 0) close(sock_);
    }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    void run() {
        if (connect() && greeting() && hello()) offers();
    }

private:
    bool connect();
    bool greeting();
    bool hello();
    void offers();
    bool failed(const char* point, std::int32_t result);
    std::int32_t read_line(std::string& out);

    const Options& options_;
    Report& report_;
    const std::string where_;
    std::int32_t sock_ = -1;
    std::uint32_t err_ = 0;
    std::vector<std::string> extensions_;
};

std::string_view without_line_end(std::string_view line) {
    return line.substr(0, line.find_first_of(std::string_view("\r\n\0", 3)));
}

bool Probe::failed(const char* point, std::int32_t result) {
    constexpr std::int32_t kTimeOut = -6;
    const std::string why =
        result == kTimeOut
            ? "no answer in " + std::to_string(options_.time_outs.greeting.count()) + " seconds"
        : err_ == 0 ? "the server closed the connection"
                    : ovrmail::detail::system_words(static_cast<int>(err_));
    report_.bad(where_ + ": " + why + " after " + point);
    return false;
}

bool Probe::connect() {
    MailTimeout budgets = MAIL_TIMEOUT_DEFAULTS;
    budgets.ulConnectTimeOut = static_cast<std::uint32_t>(options_.time_outs.greeting.count());
    SMTP_SetTimeOutInfo(&budgets);
    sock_ = SMTP_connect(options_.server.c_str(), static_cast<std::uint32_t>(options_.port), &err_);
    if (sock_ >= 0) return true;
    const ovrmail::Outcome outcome(MAIL_E_CONNECT, std::to_string(err_));
    report_.bad(where_ + " cannot be reached: " + cause(outcome));
    return false;
}

bool Probe::greeting() {
    Line line{};
    const std::int32_t rc = SMTP_returnMessage(sock_, line.data(), line.size() - 1, &err_);
    if (rc != 0) return failed("the connection was made", rc);
    const std::string said(without_line_end(line.data()));
    if (!said.starts_with('2')) {
        report_.bad(where_ + " refuses the connection: " + said);
        return false;
    }
    Report::good(where_ + ": " + said);
    return true;
}

std::int32_t Probe::read_line(std::string& out) {
    Line line{};
    SMTP_SetStartTime();
    const std::int32_t rc = SMTP_recv(sock_, line.data(), line.size() - 1, &err_);
    out = without_line_end(line.data());
    return rc;
}

bool Probe::hello() {
    std::array<char, 257> host{};
    gethostname(host.data(), host.size() - 1);
    const std::string command = std::string("EHLO ").append(host.data());
    const std::string wire = command + "\r\n";
    SMTP_SetStartTime();
    std::int32_t rc = SMTP_send(sock_, wire.data(), static_cast<std::int32_t>(wire.size()), &err_);
    if (rc != 0) return failed("its greeting", rc);
    for (std::string line; extensions_.size() < kMostLines;) {
        rc = read_line(line);
        if (rc != 0) return failed("EHLO", rc);
        if (!line.starts_with('2')) {
            report_.bad(command + std::string(" is refused: ").append(line));
            return false;
        }
        extensions_.push_back(line.substr(std::min<std::size_t>(line.size(), 4)));
        if (line.size() < 4 || line[3] != '-') break;
    }
    Report::good(command + " is accepted");
    return true;
}

void Probe::offers() {
    struct Mechanism {
        const char* word;
        std::uint32_t bit;
    };
    constexpr std::array kMechanisms{Mechanism{" CRAM-MD5", MAIL_MECH_CRAM_MD5},
                                     Mechanism{" PLAIN", MAIL_MECH_PLAIN},
                                     Mechanism{" LOGIN", MAIL_MECH_LOGIN}};
    std::uint32_t offered = 0;
    std::string words;
    bool has_tls = false;
    for (const std::string& extension : extensions_) {
        if (extension == "STARTTLS") has_tls = true;
        if (!extension.starts_with("AUTH ")) continue;
        words = extension.substr(4);
        for (const Mechanism& mechanism : kMechanisms) {
            if (words.find(mechanism.word) != std::string::npos) offered |= mechanism.bit;
        }
    }
    Report::good("SMTP AUTH:" + (words.empty() ? " not offered" : words));
    if (options_.mechanisms != 0 && (options_.mechanisms & offered) == 0)
        report_.bad("SMTP AUTH: none of the mechanisms that --auth allows is offered");
    if (has_tls)
        Report::doubtful(
            "STARTTLS is offered, which the library does not use; where the server demands it, see "
            "ovrmail-relay(7)");
    (void)SMTP_QUIT(sock_, &err_);
}

}  // namespace

void check_server(const Options& options, Report& report) { Probe(options, report).run(); }

}  // namespace ovrm_send

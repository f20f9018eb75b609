// delivery.cpp - see delivery.hpp.
#include "support/delivery.hpp"

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <regex>
#include <sstream>

#include "support/fault.hpp"

namespace support {
namespace {

constexpr std::size_t kRingSize = std::size_t{64} << 10;  // holds a whole send at level 1

Script smtp_script(Kind kind, Script changes) {
    if (kind == kHelo) changes.push_back({"EHLO", "502 what\r\n"});
    changes.insert(changes.end(), {{"EHLO", "250-hi\r\n250 AUTH LOGIN PLAIN CRAM-MD5\r\n"},
                                   {"AUTH CRAM-MD5", "334 PDE+\r\n"},
                                   {"dXNlci", "235 ok\r\n"},  // "user " and the digest
                                   {"AUTH PLAIN", "235 ok\r\n"},
                                   {"AUTH LOGIN", "334 VXNlcg==\r\n"},
                                   {"dXNlcg", "334 UGFzcw==\r\n"},  // "user"
                                   {"c2VjcmV0", "235 ok\r\n"}});    // "secret"
    return friendly(std::move(changes));
}

}  // namespace

EucLocale::EucLocale() {
    static const TempDir home;
    static const std::string locale = home.file("ja_JP.eucJP");
    if (!std::filesystem::exists(locale)) {
        const std::string order =
            std::endian::native == std::endian::big ? "--big-endian " : "--little-endian ";
        const std::string compile =
            "localedef -c " + order + "-i ja_JP -f EUC-JP " + locale + " >/dev/null 2>&1";
        if (std::system(compile.c_str()) != 0 && !std::filesystem::exists(locale)) return;
    }
    ::setenv("LOCPATH", home.path().c_str(), 1);
    is_set_ = std::setlocale(LC_ALL, "ja_JP.eucJP") != nullptr;
}

EucLocale::~EucLocale() { std::setlocale(LC_ALL, "C"); }

const char* name_of(Kind kind) {
    constexpr const char* kNames[] = {"plain",     "auth",     "HELO", "pieces",
                                      "POP first", "prepared", "EUC"};
    return kNames[std::countr_zero(static_cast<unsigned>(kind))];
}

std::string normal(const std::string& text) {
    static const struct {
        const char* key;  // only lines that hold it are worth a look
        std::regex from;
        const char* to;
    } kChanges[] = {
        {"Date: ", std::regex("[A-Z][a-z]{2}, \\d\\d [A-Z][a-z]{2} \\d{4} [\\d:]{8} [+-]\\d{4}"),
         "D"},
        {"Message-Id: ", std::regex("<\\d{14}\\.[0-9a-f]+@[^>]+>"), "M"},
        {"id=\"wexlb", std::regex("wexlb[0-9a-f]+[^\"]*@"), "I@"},
        {"OvWexl", std::regex("-{15}OvWexl\\d{10}"), "B"},
    };
    std::string out;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line); out += line + '\n') {
        for (const auto& change : kChanges) {
            if (line.find(change.key) == std::string::npos) continue;
            line = std::regex_replace(line, change.from, change.to);
        }
    }
    return out;
}

Delivery::Delivery(Kind kind, Script smtp_changes, Script pop_changes, Runs runs)
    : smtp(smtp_script(kind, std::move(smtp_changes)), runs),
      pop(friendly_pop(std::move(pop_changes)), runs) {
    mail.to = "ann@example.test,amy@example.test";
    mail.server = "127.0.0.1";
    mail.server.copy(mail.pop.szHost, sizeof mail.pop.szHost - 1);
    mail.split.ulPort = smtp.port();
    mail.pop.ulPort = pop.port();
    mail.pop.lWaitMs = 500;
    if (kind == kAuth || kind == kHelo) mail.use_auth();
    if (kind == kAuth) mail.account.ulMechanisms = MAIL_MECH_CRAM_MD5;
    if (kind == kPop) mail.use_pop();
    mail.partial = kind == kPartial ? 1 : 0;
    mail.has_body = kind != kPrepared;
    mail.body.clear();
    const int lines = kind == kPartial ? 96 : 16;
    for (int line = 0; line < lines; ++line, mail.body += '\n')
        for (int pair = 0; pair < 40; ++pair) mail.body += kind == kEuc ? "\xA4\xA2" : "bb";

    std::filesystem::remove(log_path());
    for (const std::string& ring : paths_in(kTraceDir, "acert"))
        write_file(ring, "\4" + std::string(kRingSize - 1, '\0'));  // no record
    // The paths must not move once the part list points at them.
    for (const char* name : {"kept.bin", "temporary.bin", "content.txt", "header.txt"})
        paths_.push_back(files_.file(name));
    write_file(paths_[0], std::string(kind == kPartial ? 15000 : 2000, 'k'));
    write_file(paths_[1], std::string(100, 't'));
    write_file(paths_[2], "content\n");
    write_file(paths_[3], "Subject: made elsewhere\n\n");
    if (kind == kPrepared) {
        mail.attachments = {{MAIL_KIND_PREPARED, 0, paths_[2].c_str()},
                            {MAIL_KIND_PREPARED_HEADER, 0, paths_[3].c_str()}};
    } else {
        mail.attachments = {{MAIL_KIND_ATTACHMENT, 0, paths_[0].c_str()},
                            {MAIL_KIND_ATTACHMENT_TEMP, 0, paths_[1].c_str()}};
    }
}

SendResult Delivery::run() {
    const bool deletes = mail.attachments.back().kind == MAIL_KIND_ATTACHMENT_TEMP;
    const long begin = fault::passed_ms();
    SendResult seen;
    seen.result = (fault::Watch(), mail.send());
    seen.seconds = (fault::passed_ms() - begin) / 1000;
    seen.descriptors = fault::descriptors();
    seen.heap_blocks = fault::heap_blocks();
    seen.detail = mail.detail.data();
    seen.trash = paths_in(kWorkDir);
    std::ranges::copy(paths_in(kTraceDir, "trc"), std::back_inserter(seen.trash));
    seen.traced = ring_bytes().find("SSSS") != std::string::npos;
    seen.temporary_kept = deletes ? std::filesystem::exists(paths_[1]) : seen.result < 0;
    if (const auto lines = log_lines(); !lines.empty()) seen.last_log = lines.back();
    return seen;
}

std::string Delivery::message() {
    std::string all;
    for (const std::string& body : smtp.bodies()) all += normal(body) + ".\n";
    return all;
}

void set_logs(int log_number, int trace_level) {
    const std::string trace = "TRACESIZE=" + std::to_string(kRingSize / 1024 - 1) +
                              "\nTRACELEVEL=" + std::to_string(trace_level) + "\n";
    write_file(kTraceConfig, "[ACERT]\n" + trace + "[AGETS]\n" + trace +
                                 "[LOG]\nLOGNUM=" + std::to_string(log_number) + "\n");
}

std::vector<std::string> paths_in(const std::string& directory, const std::string& prefix) {
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        if (entry.path().filename().string().starts_with(prefix)) paths.push_back(entry.path());
    std::ranges::sort(paths);
    return paths;
}

std::string log_path() {
    return std::string(kLogDir) + "/rmsmtp" + std::to_string(::getpid()) + ".log";
}

std::vector<std::string> log_lines() {
    constexpr std::size_t kLabel = 9;  // behind "hh:mm:ss "
    std::vector<std::string> lines;
    std::istringstream in(read_file(log_path()));
    for (std::string line; std::getline(in, line);) {
        if (line.ends_with('\r')) line.pop_back();
        if (line.size() > kLabel + 2 && line[kLabel + 1] == ':')
            lines.push_back(line.substr(kLabel));
    }
    return lines;
}

std::string ring_bytes() {
    const auto rings = paths_in(kTraceDir, "acert");
    return rings.empty() ? "" : read_file(rings[0]);
}

}  // namespace support

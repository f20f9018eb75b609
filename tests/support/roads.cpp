// roads.cpp - see roads.hpp.
#include "support/roads.hpp"

#include <bit>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>

#include "support/fault.hpp"

namespace support {
namespace {

constexpr const char* kEhlo = "250-hi\r\n250 AUTH LOGIN PLAIN CRAM-MD5\r\n";

Script smtp_script(Road road, Script changes) {
    if (road == kHelo) changes.push_back({"EHLO", "502 what\r\n"});
    changes.insert(changes.end(), {{"EHLO", kEhlo},
                                   {"AUTH CRAM-MD5", "334 PDE+\r\n"},
                                   {"dXNlci", "235 ok\r\n"},  // "user " and the digest
                                   {"AUTH PLAIN", "235 ok\r\n"},
                                   {"AUTH LOGIN", "334 VXNlcg==\r\n"},
                                   {"dXNlcg", "334 UGFzcw==\r\n"},  // "user"
                                   {"c2VjcmV0", "235 ok\r\n"}});    // "secret"
    return friendly(std::move(changes));
}

Script pop_script(Script changes) {
    changes.insert(changes.end(), {{"", "+OK hi\r\n"},
                                   {"USER", "+OK\r\n"},
                                   {"PASS", "+OK\r\n"},
                                   {"STAT", "+OK 0 0\r\n"},
                                   {"QUIT", "+OK\r\n"}});
    return changes;
}

std::vector<std::string> paths_in(const std::string& directory, const char* prefix) {
    std::vector<std::string> paths;
    for (const std::string& name : files_in(directory))
        if (name.starts_with(prefix)) paths.push_back(directory + "/" + name);
    return paths;
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

const char* name_of(Road road) {
    constexpr const char* kNames[] = {"plain",     "auth",     "HELO", "pieces",
                                      "POP first", "prepared", "EUC"};
    return kNames[std::countr_zero(static_cast<unsigned>(road))];
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

Journey::Journey(Road road, Script smtp_changes, Script pop_changes)
    : smtp(smtp_script(road, std::move(smtp_changes)), {.any_order = true}),
      pop(pop_script(std::move(pop_changes)), {.any_order = true}) {
    mail.body.clear();
    mail.server = "127.0.0.1";
    mail.server.copy(mail.pop.szHost, sizeof mail.pop.szHost - 1);
    mail.split.ulPort = smtp.port();
    mail.pop.ulPort = pop.port();
    mail.pop.lWaitMs = 500;
    if (road == kAuth || road == kHelo) mail.use_auth();
    if (road == kAuth) mail.account.ulMechanisms = MAIL_MECH_CRAM_MD5;
    if (road == kPop) mail.use_pop();
    mail.partial = road == kPartial ? 1 : 0;
    if (road == kEuc) mail.subject = "\xC6\xFC\xCB\xDC";
    const char* const pair = road == kEuc ? "\xA4\xA2" : "bb";
    for (int line = 0; line < 96; ++line, mail.body += '\n') {
        for (int column = 0; column < 80; column += 2) mail.body += pair;
    }
    mail.has_body = road != kPrepared;

    std::filesystem::remove(log_path());
    for (const std::string& ring : paths_in(kTraceDir, "acert"))
        write_file(ring, "\4" + std::string(8191, '\0'));  // no record
    // The paths must not move once the part list points at them.
    paths_ = {file("kept.bin"), file("temporary.bin"), file("content.txt"), file("header.txt")};
    write_file(paths_[0], std::string(15000, 'k'));
    write_file(paths_[1], std::string(100, 't'));
    write_file(paths_[2], "content\n");
    write_file(paths_[3], "Subject: made elsewhere\n\n");
    if (road == kPrepared) {
        mail.attachments = {{MAIL_KIND_PREPARED, 0, paths_[2].c_str()},
                            {MAIL_KIND_PREPARED_HEADER, 0, paths_[3].c_str()}};
    } else {
        mail.attachments = {{MAIL_KIND_ATTACHMENT, 0, paths_[0].c_str()},
                            {MAIL_KIND_ATTACHMENT_TEMP, 0, paths_[1].c_str()}};
    }
}

Outcome Journey::run() {
    const bool deletes = mail.attachments.back().kind == MAIL_KIND_ATTACHMENT_TEMP;
    Outcome outcome;
    outcome.result = mail.send();
    outcome.descriptors = fault::descriptors();
    outcome.heap_blocks = fault::heap_blocks();
    outcome.detail = mail.detail.data();
    outcome.trash = paths_in(kWorkDir, "");
    for (const std::string& path : paths_in(kTraceDir, "trc")) outcome.trash.push_back(path);
    for (const std::string& ring : paths_in(kTraceDir, "acert"))
        outcome.traced = outcome.traced || read_file(ring).find("SSSS") != std::string::npos;
    outcome.temporary_kept = deletes ? std::filesystem::exists(paths_[1]) : outcome.result < 0;
    if (const auto lines = log_lines(); !lines.empty()) outcome.last_log = lines.back();
    return outcome;
}

std::string Journey::message() {
    std::string all;
    for (const std::string& body : smtp.bodies()) all += normal(body) + ".\n";
    return all;
}

}  // namespace support

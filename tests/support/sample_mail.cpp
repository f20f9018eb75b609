// sample_mail.cpp - see sample_mail.hpp.
#include "support/sample_mail.hpp"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "support/fault.hpp"
#include "support/support.hpp"

namespace support {

std::vector<MailEntry> SampleMail::parts() const {
    std::vector<MailEntry> list{{MAIL_KIND_BODY, 0, has_body ? body.c_str() : nullptr}};
    list.insert(list.end(), attachments.begin(), attachments.end());
    return list;
}

MailEntry SampleMail::first_recipient() const {
    MailEntry entry = recipient;
    if (entry.value == nullptr) entry.value = to.c_str();
    return entry;
}

std::int32_t SampleMail::send() {
    const auto list = parts();
    const MailEntry first = first_recipient();
    const fault::Watch watch;
    return OvRm_SendEMail(&first, recipient_count, list.data(),
                          static_cast<std::uint32_t>(list.size()), from.c_str(), subject.c_str(),
                          server.c_str(), partial, &split, &time_out, auth_option(), detail.data());
}

std::int32_t SampleMail::send_parts() {
    const auto list = parts();
    const MailEntry first = first_recipient();
    const fault::Watch watch;
    return OvRm_SendEMailPartial_parts(0, &first, recipient_count, list.data(),
                                       static_cast<std::uint32_t>(list.size()), from.c_str(),
                                       subject.c_str(), server.c_str(), partial, &split, &time_out,
                                       auth_option(), detail.data(), work_dir.c_str());
}

void set_logs(int log_number, int trace_level) {
    std::ostringstream config;
    for (const char* section : {"ACERT", "AGETS"}) {
        config << "[" << section << "]\nTRACESIZE=" << (trace_level > 1 ? 400 : 5)
               << "\nTRACELEVEL=" << trace_level << "\n";
    }
    config << "[LOG]\nLOGNUM=" << log_number << "\n";
    write_file("/etc/opt/Quorvin/trc_conf", config.str());
}

std::vector<std::string> files_in(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string log_path() {
    return std::string(kLogDir) + "/rmsmtp" + std::to_string(::getpid()) + ".log";
}

std::vector<std::string> log_lines() {
    std::vector<std::string> lines;
    std::istringstream in(read_file(log_path()));
    for (std::string line; std::getline(in, line);) {
        constexpr std::size_t kLabel = 9;  // behind "hh:mm:ss "
        if (line.ends_with('\r')) line.pop_back();
        if (line.size() > kLabel + 2 && line[kLabel + 1] == ':')
            lines.push_back(line.substr(kLabel));
    }
    return lines;
}

}  // namespace support

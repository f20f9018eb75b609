// mail_log_handle.hpp - an open mail log: its file, and the entries that wait to be written.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>

#include "common/brief_lock.hpp"

struct MailLogHandle {
    std::uint32_t size_kb;  // a file this large is rotated at the next opening
    std::uint32_t number;   // log files kept in the directory
    std::int32_t fd;
    std::array<char, 1028> path;

    bool collects;                    // entries wait for flush_log(); else each is written at once
    ovrmail::common::BriefLock lock;  // of all that follows
    std::time_t second;               // in which `local` was found
    tm local;
    std::size_t used;
    std::array<char, 4096> pending;
};

namespace ovrmail::log {

void write_opening_banner(MailLogHandle& log) noexcept;

}  // namespace ovrmail::log

// mail_log_handle.hpp - an open mail log, and the line that is written at its opening.
#pragma once

#include <array>
#include <cstdint>

struct MailLogHandle {
    std::uint32_t size_kb;  // a file this large is rotated at the next opening
    std::uint32_t number;   // log files kept in the directory
    std::int32_t fd;
    std::array<char, 1028> path;
};

namespace ovrmail::log {

void write_opening_banner(const MailLogHandle& log) noexcept;

}  // namespace ovrmail::log

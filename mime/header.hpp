// header.hpp - the beginning of a composed message, from a body file that is open already.
#pragma once

#include <cstdint>

namespace ovrmail::mime {

struct TopData {
    const char* from;
    const char* to;
    const char* subject;
    char* boundary;     // 40 bytes, out; null: a single-part message
    bool skip_address;  // no Date, From and To: the pieces of a split mail have their own
};

// SMTP_makeTopData with the text read from `body_fd`, from its start, instead of from a named file:
// a file that another process puts under that name never gets into the mail.
std::int32_t make_top_data(int fd, const TopData& top, int body_fd, std::uint32_t* err) noexcept;

}  // namespace ovrmail::mime

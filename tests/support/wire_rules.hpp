// wire_rules.hpp - what holds for every message behind DATA, whatever its text was made of. Servers
// differ in what ends a line (RFC 5321 2.3.8 allows CR LF only): no reading may find a lone dot.
#pragma once

#include <algorithm>
#include <string_view>

namespace support {

inline bool has_bare_lf(std::string_view message) {
    for (std::size_t lf = message.find('\n'); lf != message.npos; lf = message.find('\n', lf + 1))
        if (lf == 0 || message[lf - 1] != '\r') return true;
    return false;
}

// A line that is a dot alone, where CR LF, CR and LF end lines.
inline bool has_lone_dot(std::string_view message) {
    for (std::size_t start = 0; start < message.size();) {
        const std::size_t end = std::min(message.find_first_of("\r\n", start), message.size());
        if (message.substr(start, end - start) == ".") return true;
        start = end + 1;
    }
    return false;
}

}  // namespace support

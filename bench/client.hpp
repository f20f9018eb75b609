// client.hpp - what every measured client shares: the mail to send, as the command line gives it,
// and the loop around sending it that reports wall time, processor time and peak memory.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

struct Mail {
    int port = 0;
    std::string host = "127.0.0.1";
    std::string sender;
    std::string recipients;  // comma-separated
    std::string subject;
    std::string body;        // lines end in LF; Shift_JIS when `japanese` is set
    std::string attachment;  // path, empty for none
    bool japanese = false;

    [[nodiscard]] std::vector<std::string> recipient_list() const;
    // The body as it stands in the text part: converted when it is Japanese, lines end in CR LF.
    [[nodiscard]] std::string wire_body() const;
    [[nodiscard]] const char* charset() const { return japanese ? "ISO-2022-JP" : "us-ascii"; }
};

// "Date: ..." of this moment, without line end.
std::string date_field();

// Parses the command line, sends the mail as often as it says and prints one JSON line:
// {"count", "wall_s", "slowest_s", "user_s", "sys_s", "peak_kib"}. `send` throws when a mail fails;
// the result is then 1.
int run(int argc, char** argv, const std::function<void(const Mail&)>& send);

}  // namespace bench

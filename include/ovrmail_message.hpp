// ovrmail_message.hpp - a finished message (RFC 5322) made ready for the library: the part of
// ovrmail.hpp behind send_message(). Nothing here is for programs to call.
#ifndef OVRMAIL_MESSAGE_HPP
#define OVRMAIL_MESSAGE_HPP

#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ovrmail_outcome.hpp"

namespace ovrmail::detail {

// A file of its own name that only its owner can read; deleted at the end.
class TemporaryFile {
public:
    explicit TemporaryFile(std::string_view contents) : path_(directory() + "/ovrmail-XXXXXX") {
        const int fd = ::mkostemp(path_.data(), O_CLOEXEC);  // mode 0600, O_EXCL
        if (fd < 0) {
            error_ = errno;
            return;
        }
        is_made_ = true;
        error_ = write_all(fd, contents);
        if (::close(fd) != 0 && errno != EINTR && error_ == 0) error_ = errno;
    }
    ~TemporaryFile() {
        if (is_made_) ::unlink(path_.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    [[nodiscard]] Problem problem() const {
        if (error_ == 0) return std::nullopt;
        return Outcome(MAIL_E_WORK_FILE, path_, system_words(error_), error_);
    }

private:
    static std::string directory() {
        const char* const named = ::secure_getenv("TMPDIR");
        return named != nullptr && *named != '\0' ? named : "/tmp";
    }
    static int write_all(int fd, std::string_view bytes) noexcept {
        while (!bytes.empty()) {
            const ssize_t written = ::write(fd, bytes.data(), bytes.size());
            if (written < 0 && errno != EINTR) return errno;
            if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
        }
        return 0;
    }

    std::string path_;
    bool is_made_ = false;
    int error_ = 0;
};

// The text with LF for every CR LF and CR.
inline std::string with_plain_line_ends(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
        out += text[i] == '\r' ? '\n' : text[i];
    }
    return out;
}

// Cuts the first line off, and returns it without its LF.
inline std::string_view take_line(std::string_view& text) noexcept {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

inline bool continues_field(std::string_view line) noexcept {
    return !line.empty() && (line[0] == ' ' || line[0] == '\t');
}

// What stands behind the colon, when the line begins the field of that name.
inline std::optional<std::string_view> value_of(std::string_view line, std::string_view name) {
    if (line.size() < name.size() || ::strncasecmp(line.data(), name.data(), name.size()) != 0)
        return std::nullopt;
    line.remove_prefix(name.size());
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    if (line.empty() || line[0] != ':') return std::nullopt;
    return line.substr(1);
}

// The values of all fields of that name, unfolded, with commas between them.
inline std::string field_values(std::string_view header, std::string_view name) {
    std::string values;
    bool is_inside = false;
    while (!header.empty()) {
        const std::string_view line = take_line(header);
        const auto value = continues_field(line) ? std::nullopt : value_of(line, name);
        if (!continues_field(line)) is_inside = value.has_value();
        if (value && !values.empty()) values += ',';
        if (is_inside) values += value.value_or(line);
    }
    return values;
}

// The place behind the quoted string, domain literal or comment that begins at `at`.
inline std::size_t end_of_unit(std::string_view list, std::size_t at) noexcept {
    const char open = list[at];
    const char close = open == '(' ? ')' : open == '[' ? ']' : '"';
    int nested = 0;  // comments may hold comments
    for (++at; at < list.size(); ++at) {
        if (list[at] == '\\') {
            ++at;
        } else if (list[at] == close) {
            if (nested-- == 0) return at + 1;
        } else if (list[at] == open) {
            ++nested;
        }
    }
    return list.size();
}

// The addresses of a list, without names, comments and groups (RFC 5322 3.4).
inline std::vector<std::string> read_addresses(std::string_view list) {
    std::vector<std::string> found;
    std::string address;
    bool is_ended = false;
    for (std::size_t at = 0, end = 0; at < list.size(); at = end) {
        const bool is_unit = std::string_view("\"[(").find(list[at]) != std::string_view::npos;
        end = is_unit ? end_of_unit(list, at) : at + 1;
        switch (list[at]) {
            case ',':
            case ';':
                if (!address.empty()) found.push_back(std::exchange(address, {}));
                is_ended = false;
                break;
            case '<':
            case ':':  // what came before was a name
                address.clear();
                break;
            case '>':
                is_ended = true;
                break;
            case '(':
            case ' ':
            case '\t':
                break;
            default:
                if (!is_ended) address += list.substr(at, end - at);
        }
    }
    if (!address.empty()) found.push_back(address);
    return found;
}

inline std::vector<std::string> addresses_of(std::string_view header,
                                             std::initializer_list<std::string_view> names) {
    std::string list;
    for (const std::string_view name : names) list += field_values(header, name) + ',';
    return read_addresses(list);
}

// Writes the lines of a finished message as a prepared message needs them.
class MessageWriter {
public:
    // Adds a line of the header, folded where it is too long, but no Bcc field.
    void add_header(std::string_view line) {
        ++number_;
        if (!continues_field(line)) is_bcc_ = value_of(line, "Bcc").has_value();
        if (!continues_field(line) && line.find(':') == std::string_view::npos)
            fail("no header field");
        if (is_bcc_) return;
        while (line.size() > kLineMax) {
            const std::size_t blank = line.find_last_of(" \t", kLineMax);
            if (blank == std::string_view::npos || blank == 0) break;
            write(line.substr(0, blank));
            line.remove_prefix(blank);
        }
        write(line);
    }
    void add_line(std::string_view line) {
        ++number_;
        write(line);
    }
    [[nodiscard]] const Problem& problem() const noexcept { return problem_; }
    std::string take() { return std::exchange(lines_, {}); }

private:
    static constexpr std::size_t kLineMax = 998;  // RFC 5322 2.1.1

    void write(std::string_view line) {
        if (line.size() > kLineMax) fail(over_limit(line.size(), kLineMax));
        if (line.find('\0') != std::string_view::npos) fail("holds a NUL");
        if (!line.empty() && line[0] == '.') lines_ += '.';  // RFC 5321 4.5.2
        lines_ += line;
        lines_ += '\n';
    }
    void fail(const std::string& why) {
        if (problem_) return;
        problem_.emplace(MAIL_E_ARGUMENT, "message",
                         "line " + std::to_string(number_) + ": " + why);
    }

    std::string lines_;
    std::size_t number_ = 0;
    bool is_bcc_ = false;
    Problem problem_;
};

// A finished message, in the form of a prepared message.
struct Message {
    std::string fields;   // the header as it came, without the empty line
    std::string header;   // as it goes out, with the empty line
    std::string content;  // as it goes out
};

inline Problem split_message(std::string_view text, Message& out) {
    const std::string lines = with_plain_line_ends(text);
    std::string_view rest = lines;
    MessageWriter writer;
    for (std::string_view line; !rest.empty() && !(line = take_line(rest)).empty();) {
        writer.add_header(line);
        out.fields.append(line).append("\n");
    }
    writer.add_line("");
    out.header = writer.take();
    while (!rest.empty()) writer.add_line(take_line(rest));
    out.content = writer.take();
    return writer.problem();
}

// The subject of a finished message for the mail log, where it takes no part in the mail.
inline std::string log_subject(std::string_view fields) {
    std::string subject = field_values(fields, "Subject");
    subject.erase(0, std::min(subject.find_first_not_of(" \t"), subject.size()));
    subject.resize(std::min<std::size_t>(subject.size(), MAIL_SUBJECT_MAX));
    std::replace_if(
        subject.begin(), subject.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return subject;
}

}  // namespace ovrmail::detail

#endif

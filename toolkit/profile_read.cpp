// profile_read.cpp - opens profiles and looks values up.
//
// A send reads its trace and log settings and the mail options here, the status query the
// installation records. The file is read at once and indexed in place: names and values stay where
// they were read. No state beyond the profile it returns; each thread may use its own profile.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <new>

#include "common/block_io.hpp"
#include "common/error_word.hpp"
#include "common/open_file.hpp"
#include "common/text.hpp"
#include "common/unique_fd.hpp"
#include "toolkit/profile.hpp"

namespace ovrmail::toolkit {

using namespace common;

namespace {

constexpr std::size_t kPieceSize = 1024;  // a longer line goes on as a line of its own

bool has_text(std::string_view text) noexcept { return text.data() != nullptr; }

std::string_view view(const char* text) noexcept {
    return text != nullptr ? std::string_view(text) : std::string_view();
}

// Reads the open file to its end into profile.text. False when memory runs out.
bool load_open(int fd, std::size_t expected, MailProfile& profile, std::size_t& size) noexcept {
    for (std::size_t room = expected != 0 ? expected : kPieceSize;; room *= 2) {
        auto* const grown = static_cast<char*>(std::realloc(profile.text.get(), room));
        if (grown == nullptr) return false;
        (void)profile.text.release();
        profile.text.reset(grown);
        const ssize_t got = read_full(fd, {grown + size, room - size});
        if (got < 0) profile.read_error = errno;
        if (got > 0) size += static_cast<std::size_t>(got);
        if (expected != 0 || size < room) return true;
    }
}

// Reads the whole file into profile.text; a file that cannot be opened or read counts as empty.
// False when memory runs out.
bool load(const char* path, MailProfile& profile, std::size_t& size) noexcept {
    const UniqueFd fd = open_at_once(path, O_RDONLY);
    struct stat64 status {};
    if (!fd.valid() || ::fstat64(fd.get(), &status) != 0) {
        if (errno != ENOENT && errno != ENOTDIR) profile.read_error = errno;
        return true;
    }
    // Only a regular file is a profile: another kind of file may never end.
    if (!S_ISREG(status.st_mode)) return true;
    // Files in /proc report a size of 0. A file larger than the address space is never read in
    // part: the allocation fails.
    const auto expected =
        std::min<std::uint64_t>(static_cast<std::uint64_t>(status.st_size), SIZE_MAX);
    return load_open(fd.get(), static_cast<std::size_t>(expected), profile, size);
}

// Removes the next line from `rest` and returns it without its line feed.
std::string_view next_line(std::string_view& rest) noexcept {
    const std::size_t limit = std::min(rest.size(), kPieceSize);
    const auto* const feed = static_cast<const char*>(std::memchr(rest.data(), '\n', limit));
    const std::size_t length =
        feed != nullptr ? static_cast<std::size_t>(feed - rest.data()) : limit;
    const std::string_view line = rest.substr(0, length);
    rest.remove_prefix(length + (feed != nullptr ? 1 : 0));
    return line;
}

// The part of a line that counts: everything before the first CR or NUL.
std::string_view cut_line(std::string_view line) noexcept {
    line = line.substr(0, line.find('\r'));
    return line.substr(0, line.find('\0'));
}

// Whether `line` is a section header; `name` is then the text between the brackets.
bool is_header(std::string_view line, std::string_view& name) noexcept {
    const std::size_t start = line.find_first_not_of(' ');
    if (start == std::string_view::npos || line[start] != '[') return false;
    line = skip(cut_line(line), start + 1);
    const std::size_t end = line.find(']');
    name = line.substr(0, end);
    return end != std::string_view::npos;
}

// Lists the sections of `rest`. False when memory runs out.
bool index_sections(std::string_view rest, MailProfile& profile) noexcept {
    ProfileSection* section = nullptr;  // none: lines are ignored
    while (!rest.empty()) {
        std::string_view name;
        if (!is_header(next_line(rest), name)) {
            if (section != nullptr)
                section->lines = {section->lines.data(),
                                  static_cast<std::size_t>(rest.data() - section->lines.data())};
            continue;
        }
        section = nullptr;
        if (name.size() > kProfileNameMax) continue;  // its keys are ignored
        section = profile.arena.make<ProfileSection>(name, rest.substr(0, 0));
        if (section == nullptr) return false;
        profile.append(section);
    }
    return true;
}

// The value, or a view without data when there is none.
std::string_view find_value(const MailProfile* profile, const char* section,
                            const char* key) noexcept {
    std::string_view value;
    if (profile == nullptr || section == nullptr || key == nullptr) return value;
    const ProfileSection* const found = find_section(*profile, section);
    if (found == nullptr) return value;
    visit_keys(*found, [&, name = std::string_view(key)](const ProfileKey& entry) {
        if (entry.name != name) return true;
        value = entry.value;
        return false;
    });
    return value;
}

}  // namespace

ProfilePtr open_profile(const char* path, std::uint32_t flags, std::uint32_t* err) noexcept {
    void* const place = std::malloc(sizeof(MailProfile));
    ProfilePtr profile(place != nullptr ? new (place) MailProfile : nullptr);
    if (profile != nullptr) {
        std::size_t size = 0;
        profile->flags = flags;
        if (path == nullptr ||
            (load(path, *profile, size) && index_sections({profile->text.get(), size}, *profile)))
            return profile;
    }
    set_error(err, errno);
    return nullptr;
}

ProfileSection* find_section(const MailProfile& profile, std::string_view name) noexcept {
    ProfileSection* section = profile.sections;
    while (section != nullptr && section->name != name) section = section->next;
    return section;
}

std::int64_t profile_number(const MailProfile& profile, const char* section, const char* key,
                            std::int32_t fallback) noexcept {
    constexpr std::size_t kDigits = 11;  // what of a value counts
    std::string_view text = find_value(&profile, section, key);
    // Kept: a missing key gives 0 for a negative default, an empty value gives the default itself.
    // Callers rely on this documented result.
    if (!has_text(text)) return std::max(fallback, 0);
    if (text.empty()) return fallback;
    text = text.substr(0, kDigits);
    text = skip(text, text.find_first_not_of(" \t\n\v\f\r"));
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    std::int64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

bool next_key(std::string_view& lines, ProfileKey& key) noexcept {
    while (!lines.empty()) {
        const std::string_view line = cut_line(next_line(lines));
        const std::size_t equals = line.find('=');
        // Blanks in front of a name belong to it; a comment or a bracket may follow blanks.
        if (equals == std::string_view::npos || equals == 0 || equals > kProfileNameMax) continue;
        const char first = line[line.find_first_not_of(' ')];
        if (first == ';' || first == '[') continue;
        key.name = line.substr(0, equals);
        key.value = skip(line, equals + 1);
        return true;
    }
    return false;
}

}  // namespace ovrmail::toolkit

using namespace ovrmail::toolkit;

MailProfile* Com_OpenPrivateProfile(const char* path, std::uint32_t flags) noexcept {
    return Com_OpenPrivateProfile2(path, flags, nullptr);
}

MailProfile* Com_OpenPrivateProfile2(const char* path, std::uint32_t flags,
                                     std::uint32_t* err) noexcept {
    return open_profile(path, flags, err).release();
}

std::int32_t Com_GetPrivateProfileString(const MailProfile* profile, const char* section,
                                         const char* key, const char* fallback, char* buffer,
                                         std::uint32_t size) noexcept {
    if (profile == nullptr) return -1;
    if (buffer == nullptr || size == 0) return 0;
    const std::string_view found = find_value(profile, section, key);
    const std::size_t room = std::min<std::size_t>(size, INT32_MAX);
    return static_cast<std::int32_t>(
        copy_into({buffer, room}, has_text(found) ? found : view(fallback)));
}

std::int32_t Com_GetPrivateProfileInt(const MailProfile* profile, const char* section,
                                      const char* key, std::int32_t fallback,
                                      const char* /*path*/) noexcept {
    if (profile == nullptr) return 0;
    const std::int64_t number = profile_number(*profile, section, key, fallback);
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(number, INT32_MIN, INT32_MAX));
}

std::int32_t Com_GetPrivateProfileIntHex(const MailProfile* profile, const char* section,
                                         const char* key, std::int32_t fallback,
                                         const char* /*path*/) noexcept {
    constexpr std::size_t kDigits = 1024;  // what of a value counts
    std::string_view text = find_value(profile, section, key).substr(0, kDigits);
    if (text.empty()) return fallback;
    if (text.starts_with("0x")) text.remove_prefix(2);
    std::uint32_t number = 0;  // more than eight digits keep the low 32 bits
    for (const char c : text) {
        unsigned digit = 0;
        const auto [end, error] = std::from_chars(&c, &c + 1, digit, 16);
        if (error != std::errc{}) return fallback;
        number = number << 4 | digit;
    }
    return static_cast<std::int32_t>(number);
}

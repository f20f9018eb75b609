// profile_read.cpp - opening profiles and looking values up.
//
// Trace and log settings, the mail options and the installation records are read here. The file
// is taken with one read and indexed in place: names and values stay where they were read.
// Owns nothing beyond the profile it returns; several threads may use profiles of their own.
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
#include "common/profile.hpp"
#include "common/text.hpp"
#include "common/unique_fd.hpp"
#include "file_util.h"

namespace ovrmail::common {
namespace {

constexpr std::size_t kPieceSize = 1024;  // a longer line goes on as a line of its own

bool has_text(std::string_view text) noexcept { return text.data() != nullptr; }

std::string_view view(const char* text) noexcept {
    return text != nullptr ? std::string_view(text) : std::string_view();
}

// The whole file into profile.text. A file that cannot be opened is empty; one that fails while
// being read ends there. False when memory runs out.
bool load(const char* path, MailProfile& profile, std::size_t& size) noexcept {
    size = 0;
    const UniqueFd fd(FileOpenRead(path));
    struct stat64 status {};
    if (!fd.valid() || ::fstat64(fd.get(), &status) != 0) return true;
    const bool sized = S_ISREG(status.st_mode) && status.st_size > 0;
    // One byte more than the file holds: a read that leaves room has met the end.
    std::size_t room = static_cast<std::size_t>(std::max<off64_t>(status.st_size, 0)) + 1;
    if (room < kPieceSize) room = kPieceSize;
    for (;;) {
        auto* const grown = static_cast<char*>(std::realloc(profile.text.get(), room));
        if (grown == nullptr) return false;
        (void)profile.text.release();
        profile.text.reset(grown);
        const ssize_t got = sized ? ::read(fd.get(), grown + size, room - size)
                                  : read_full(fd.get(), {grown + size, room - size});
        if (got > 0) size += static_cast<std::size_t>(got);
        if (got < 0 || size < room) return true;
        room *= 2;
    }
}

// Takes the next line off `rest`, without its line end. A NUL ends a line early, as in any text.
std::string_view next_line(std::string_view& rest) noexcept {
    const std::size_t limit = std::min(rest.size(), kPieceSize);
    const auto* const lf = static_cast<const char*>(std::memchr(rest.data(), '\n', limit));
    std::string_view line(rest.data(),
                          lf != nullptr ? static_cast<std::size_t>(lf - rest.data()) : limit);
    rest.remove_prefix(line.size() + (lf != nullptr ? 1 : 0));
    line = line.substr(0, line.find('\r'));
    return line.substr(0, line.find('\0'));
}

// Adds what one line says. `section` is the one that keys go to, null where they are ignored.
// False when memory runs out.
bool add_line(MailProfile& profile, ProfileSection*& section, std::string_view line) noexcept {
    const std::size_t start = line.find_first_not_of(' ');
    if (start == std::string_view::npos || line[start] == ';') return true;
    if (line[start] == '[') {
        const std::size_t end = line.find(']', start);
        if (end == std::string_view::npos) return true;
        const std::string_view name = line.substr(start + 1, end - start - 1);
        section = nullptr;
        if (name.size() > kProfileNameMax) return true;
        section = profile.arena.make<ProfileSection>(name);
        if (section == nullptr) return false;
        profile.append(section);
        return true;
    }
    const std::size_t equals = line.find('=');
    if (section == nullptr || equals == std::string_view::npos || equals == 0 ||
        equals > kProfileNameMax)
        return true;
    auto* const key =
        profile.arena.make<ProfileKey>(line.substr(0, equals), line.substr(equals + 1));
    if (key == nullptr) return false;
    section->append(key);
    return true;
}

bool read_profile(const char* path, MailProfile& profile) noexcept {
    std::size_t size = 0;
    if (!load(path, profile, size)) return false;
    std::string_view rest(profile.text.get(), size);
    ProfileSection* section = nullptr;
    while (!rest.empty()) {
        if (!add_line(profile, section, next_line(rest))) return false;
    }
    return true;
}

template <class Entry>
Entry* find_entry(Entry* entry, std::string_view name) noexcept {
    while (entry != nullptr && entry->name != name) entry = entry->next;
    return entry;
}

// The value, or a view without data when there is none.
std::string_view find_value(const MailProfile* profile, const char* section,
                            const char* key) noexcept {
    if (profile == nullptr || section == nullptr || key == nullptr) return {};
    const ProfileSection* const found = find_section(*profile, section);
    if (found == nullptr) return {};
    const ProfileKey* const entry = find_key(*found, key);
    return entry != nullptr ? entry->value : std::string_view();
}

}  // namespace

ProfileSection* find_section(const MailProfile& profile, std::string_view name) noexcept {
    return find_entry(profile.sections, name);
}

ProfileKey* find_key(const ProfileSection& section, std::string_view name) noexcept {
    return find_entry(section.keys, name);
}

}  // namespace ovrmail::common

using namespace ovrmail::common;

MailProfile* Com_OpenPrivateProfile(const char* path, std::uint32_t flags) noexcept {
    return Com_OpenPrivateProfile2(path, flags, nullptr);
}

MailProfile* Com_OpenPrivateProfile2(const char* path, std::uint32_t flags,
                                     std::uint32_t* err) noexcept {
    void* const place = std::malloc(sizeof(MailProfile));
    if (place == nullptr) return set_error(err, errno), nullptr;
    auto* const profile = new (place) MailProfile;
    profile->flags = flags;
    if (path == nullptr || read_profile(path, *profile)) return profile;
    set_error(err, errno);
    Com_ClosePrivateProfile(profile, nullptr);
    return nullptr;
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
    constexpr std::size_t kDigits = 11;  // what of a value counts
    if (profile == nullptr) return 0;
    std::string_view text = find_value(profile, section, key);
    // Kept: a missing key gives 0 for a negative default, an empty value the default itself.
    if (!has_text(text)) return std::max(fallback, 0);
    if (text.empty()) return fallback;
    text = text.substr(0, kDigits);
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    std::int64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
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

// profile_fuzz.cpp - "flag section LF key LF value LF file": what a profile says, before and after
// a change, beside a reader that knows nothing but the rules of its header.
#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "fuzz.hpp"
#include "profile.h"

namespace {

using fuzz::demand;

constexpr std::size_t kLineMax = 1024;
constexpr std::size_t kNameMax = 67;

struct Section {
    std::string name;
    std::vector<std::pair<std::string, std::string>> keys;
};
using Profile = std::vector<Section>;

void read_line(Profile& sections, bool& ignored, std::string_view line) {
    line = line.substr(0, std::min(line.find('\r'), line.find('\0')));
    const std::size_t first = line.find_first_not_of(' ');
    if (first == line.npos || line[first] == ';') return;
    if (line[first] == '[') {
        const std::size_t end = line.find(']');
        if (end == line.npos) return;
        const std::string_view name = line.substr(first + 1, end - first - 1);
        ignored = name.size() > kNameMax;
        if (!ignored) sections.push_back({std::string(name), {}});
        return;
    }
    const std::size_t sign = line.find('=');
    if (sign == line.npos || sign == 0 || sign > kNameMax || sections.empty() || ignored) return;
    sections.back().keys.emplace_back(line.substr(0, sign), line.substr(sign + 1));
}

Profile read(std::string_view file) {
    Profile sections;
    bool ignored = false;
    while (!file.empty()) {
        const std::string_view line = file.substr(0, std::min(file.find('\n'), kLineMax));
        read_line(sections, ignored, line);
        file.remove_prefix(line.size());
        if (file.starts_with('\n') && line.size() < kLineMax) file.remove_prefix(1);
    }
    return sections;
}

const std::string* find(const Profile& profile, const std::string& section,
                        const std::string& key) {
    for (const Section& candidate : profile) {
        if (candidate.name != section) continue;
        for (const auto& [name, value] : candidate.keys)
            if (name == key) return &value;
        return nullptr;
    }
    return nullptr;
}

std::string value_of(const MailProfile* profile, const std::string& section,
                     const std::string& key) {
    std::string value(4096, 'u');
    const std::int32_t size = Com_GetPrivateProfileString(profile, section.c_str(), key.c_str(),
                                                          "(none)", value.data(), 4096);
    demand(size >= 0 && size < 4096 && value[static_cast<std::size_t>(size)] == '\0', "length");
    value.resize(static_cast<std::size_t>(size));
    return value;
}

// Every key that could be found before can be found after, but the one that was changed. (Sections
// without keys go, so that after them another of the same name may be seen.)
void compare(const Profile& before, const Profile& after, const std::string& section,
             const std::string& key) {
    for (const Section& part : before) {
        for (const auto& [name, ignored] : part.keys) {
            const std::string* const one = find(before, part.name, name);
            if (one == nullptr || (part.name == section && name == key)) continue;
            const std::string* const other = find(after, part.name, name);
            demand(other != nullptr && *other == *one, "the other keys stay");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    std::string_view rest = fuzz::text(data + 1, size - 1);
    const auto next = [&rest] {
        const std::string_view taken = fuzz::take(rest, '\n');
        return std::string(taken.substr(0, taken.find('\0')));
    };
    const std::string section = next();
    const std::string key = next();
    const std::string value = next();
    const Profile before = read(rest);
    const fuzz::MemoryFile file(rest);
    const std::uint32_t flags = (data[0] & 1) != 0 ? 0x21 : 1;
    MailProfile* const profile = Com_OpenPrivateProfile(file.path().c_str(), flags);
    demand(profile != nullptr, "a profile");
    const std::string* const known = find(before, section, key);
    demand(value_of(profile, section, key) == (known != nullptr ? *known : "(none)"), "the value");
    for (const Section& part : before) {
        for (const auto& [name, ignored] : part.keys) {
            const std::string* const first = find(before, part.name, name);
            if (first != nullptr)
                demand(value_of(profile, part.name, name) == *first, "each value");
        }
    }
    Com_GetPrivateProfileInt(profile, section.c_str(), key.c_str(), -1, nullptr);
    Com_GetPrivateProfileIntHex(profile, section.c_str(), key.c_str(), -1, nullptr);

    const bool plain = (section + key + value).find('\r') == std::string::npos &&
                       (section + key).find_first_of("[]=; \t") == std::string::npos &&
                       section.size() <= kNameMax && key.size() <= kNameMax && value.size() < 900;
    if (!plain || key.empty()) {
        demand(Com_ClosePrivateProfile(profile, nullptr) == 0, "closed unwritten");
        demand(file.bytes() == rest, "the file as it was");
        return 0;
    }
    demand(Com_WritePrivateProfileString(profile, section.c_str(), key.c_str(), value.c_str()) == 1,
           "changed");
    demand(Com_ClosePrivateProfile(profile, file.path().c_str()) == 0, "written");
    const Profile after = read(file.bytes());
    const std::string* const written = find(after, section, key);
    demand(written != nullptr && *written == value, "the new value");
    compare(before, after, section, key);
    return 0;
}

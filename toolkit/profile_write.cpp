// profile_write.cpp - changes profiles and writes them back.
//
// A send changes no profile; the setters of the installation records do. Changes are made to the
// copy in memory; a change that runs out of memory marks the profile, and closing it then writes
// nothing. rewrite_file() rewrites the file, wholly or not at all. No state beyond the profile.
#include <cerrno>
#include <cstring>
#include <utility>

#include "common/error_word.hpp"
#include "toolkit/profile.hpp"
#include "toolkit/rewrite.hpp"

namespace ovrmail::toolkit {

using namespace common;

namespace {

constexpr std::int32_t kDone = 1;
constexpr std::int32_t kRefused = 0;
constexpr std::int32_t kCloseFailed = -1;

void mark_changed(MailProfile& profile) noexcept {
    if (profile.state != ProfileState::kOutOfMemory) profile.state = ProfileState::kChanged;
}

std::int32_t out_of_memory(MailProfile& profile) noexcept {
    profile.state = ProfileState::kOutOfMemory;
    return kRefused;
}

// Takes `entry` out of the list it is in.
template <class Entry>
void unlink_entry(Entry*& first, Entry*& last, Entry* entry) noexcept {
    Entry* before = nullptr;
    for (Entry* at = first; at != entry; at = at->next) before = at;
    (before == nullptr ? first : before->next) = entry->next;
    if (last == entry) last = before;
}

ProfileKey* make_key(MailProfile& profile, std::string_view name, std::string_view value) noexcept {
    const std::string_view own_name = profile.arena.copy(name);
    const std::string_view own_value = profile.arena.copy(value);
    if (own_name.data() == nullptr || own_value.data() == nullptr) return nullptr;
    return profile.arena.make<ProfileKey>(own_name, own_value);
}

std::int32_t add_section(MailProfile& profile, std::string_view name, std::string_view key_name,
                         std::string_view value) noexcept {
    const std::string_view own_name = profile.arena.copy(name);
    if (own_name.data() == nullptr) return out_of_memory(profile);
    auto* const section = profile.arena.make<ProfileSection>(own_name);
    ProfileKey* const key = make_key(profile, key_name, value);
    if (section == nullptr || key == nullptr) return out_of_memory(profile);
    section->append(key);
    profile.append(section);
    mark_changed(profile);
    return kDone;
}

// Makes a list of the keys of `section`, to be changed. False when memory runs out; the section
// then stays as it is.
bool take_apart(MailProfile& profile, ProfileSection& section) noexcept {
    ProfileSection parted;
    ProfileKey key;
    for (std::string_view lines = section.lines; next_key(lines, key);) {
        auto* const own = profile.arena.make<ProfileKey>(key);
        if (own == nullptr) return false;
        parted.append(own);
    }
    if (section.lines.data() == nullptr) return true;
    section.lines = {};
    section.keys = parted.keys;
    section.last_key = parted.last_key;
    return true;
}

// Sets, replaces or (value null) deletes one key of a section that exists.
std::int32_t change_key(MailProfile& profile, ProfileSection& section, std::string_view name,
                        const char* value) noexcept {
    if (!take_apart(profile, section)) return out_of_memory(profile);
    ProfileKey* key = section.keys;
    while (key != nullptr && key->name != name) key = key->next;
    if (value == nullptr) {
        if (key == nullptr) return kDone;
        unlink_entry(section.keys, section.last_key, key);
    } else if (key == nullptr) {
        ProfileKey* const added = make_key(profile, name, value);
        if (added == nullptr) return out_of_memory(profile);
        section.append(added);
    } else {
        const std::string_view own_value = profile.arena.copy(value);
        if (own_value.data() == nullptr) return out_of_memory(profile);
        key->value = own_value;
    }
    mark_changed(profile);
    return kDone;
}

// Calls put(text) for each part of the file in order. Sections without keys are left out.
template <class Put>
void for_each_stretch(const MailProfile& profile, Put put) noexcept {
    const std::string_view line_end = (profile.flags & kProfileCrLf) != 0 ? "\r\n" : "\n";
    const auto put_line = [&](std::string_view a, std::string_view b, std::string_view c) {
        for (const std::string_view text : {a, b, c, line_end}) put(text);
    };
    for (const ProfileSection* section = profile.sections; section != nullptr;
         section = section->next) {
        bool first = true;
        visit_keys(*section, [&](const ProfileKey& key) {
            if (std::exchange(first, false)) put_line("[", section->name, "]");
            put_line(key.name, "=", key.value);
            return true;
        });
    }
}

// Writes the profile to `path`. Returns 0 or errno.
int write_back(const MailProfile& profile, const char* path) noexcept {
    std::size_t size = 0;
    for_each_stretch(profile, [&](std::string_view text) { size += text.size(); });
    const auto block = make_block(size);
    if (block == nullptr) return ENOMEM;
    char* out = block.get();
    for_each_stretch(profile, [&](std::string_view text) {
        std::memcpy(out, text.data(), text.size());
        out += text.size();
    });
    return rewrite_file(path, {block.get(), size});
}

}  // namespace
}  // namespace ovrmail::toolkit

using namespace ovrmail::toolkit;

std::int32_t Com_ClosePrivateProfile(MailProfile* profile, const char* path) noexcept {
    return Com_ClosePrivateProfile2(profile, path, nullptr);
}

std::int32_t Com_ClosePrivateProfile2(MailProfile* profile, const char* path,
                                      std::uint32_t* err) noexcept {
    if (profile == nullptr) return kCloseFailed;
    [[maybe_unused]] const ProfilePtr owner(profile);
    if (path == nullptr || profile->flags == 0 || profile->state != ProfileState::kChanged)
        return 0;
    const int failure = write_back(*profile, path);
    if (failure == 0) return 0;
    set_error(err, failure);
    return kCloseFailed;
}

std::int32_t Com_WritePrivateProfileString(MailProfile* profile, const char* section,
                                           const char* key, const char* value) noexcept {
    if (profile == nullptr || profile->flags == 0 || section == nullptr) return kRefused;
    const std::string_view section_name(section);
    const std::string_view key_name(key != nullptr ? key : "");
    if (section_name.size() > kProfileNameMax || key_name.size() > kProfileNameMax) return kRefused;
    ProfileSection* const found = find_section(*profile, section_name);
    if (found == nullptr) {
        if (key == nullptr || value == nullptr) return kDone;
        return add_section(*profile, section_name, key_name, value);
    }
    if (key != nullptr) return change_key(*profile, *found, key_name, value);
    unlink_entry(profile->sections, profile->last_section, found);
    mark_changed(*profile);
    return kDone;
}

// profile.hpp - a profile in memory: sections and keys in file order, shared by the reader and the
// writer. Names and values are views into the text of the file or into the arena; nothing is
// NUL-terminated. What is replaced or deleted keeps its memory until the profile is closed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "common/arena.hpp"
#include "common/heap.hpp"
#include "profile.h"

namespace ovrmail::common {

inline constexpr std::uint32_t kProfileCrLf = 0x20;  // bit of the open flags
inline constexpr std::size_t kProfileNameMax = 67;   // longer names are refused everywhere

enum class ProfileState : std::uint32_t { kUnchanged = 0, kChanged = 1, kOutOfMemory = 2 };

struct ProfileKey {
    std::string_view name;
    std::string_view value;
    ProfileKey* next = nullptr;
};

struct ProfileSection {
    std::string_view name;
    ProfileKey* keys = nullptr;
    ProfileKey* last_key = nullptr;
    ProfileSection* next = nullptr;

    void append(ProfileKey* key) noexcept {
        (keys == nullptr ? keys : last_key->next) = key;
        last_key = key;
    }
};

}  // namespace ovrmail::common

struct MailProfile {
    std::uint32_t flags = 0;
    ovrmail::common::ProfileState state = ovrmail::common::ProfileState::kUnchanged;
    ovrmail::common::ProfileSection* sections = nullptr;
    ovrmail::common::ProfileSection* last_section = nullptr;
    ovrmail::common::HeapPtr<char[]> text;  // the file as read
    ovrmail::common::Arena arena;

    void append(ovrmail::common::ProfileSection* section) noexcept {
        (sections == nullptr ? sections : last_section->next) = section;
        last_section = section;
    }
};

namespace ovrmail::common {

// First entry of that name, or null.
ProfileSection* find_section(const MailProfile& profile, std::string_view name) noexcept;
ProfileKey* find_key(const ProfileSection& section, std::string_view name) noexcept;

// Where the list holds `entry`, so that it can be unlinked; `entry` must be in the list.
template <class Entry>
void unlink_entry(Entry*& first, Entry*& last, Entry* entry) noexcept {
    Entry* before = nullptr;
    for (Entry* at = first; at != entry; at = at->next) before = at;
    (before == nullptr ? first : before->next) = entry->next;
    if (last == entry) last = before;
}

}  // namespace ovrmail::common

// profile.hpp - a profile in memory, shared by the reader and the writer: its sections in file
// order, each with its lines as read. Lookups walk the lines of one section; only a section that
// is changed is taken apart into keys. Names and values are views into the text of the file or
// into the arena; nothing is NUL-terminated. What is replaced or deleted keeps its memory until
// the profile is closed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "common/arena.hpp"
#include "common/heap.hpp"
#include "profile.h"

namespace ovrmail::toolkit {

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
    std::string_view lines = {};  // as read; without data once taken apart
    ProfileKey* keys = nullptr;
    ProfileKey* last_key = nullptr;
    ProfileSection* next = nullptr;

    void append(ProfileKey* key) noexcept {
        (keys == nullptr ? keys : last_key->next) = key;
        last_key = key;
    }
};

}  // namespace ovrmail::toolkit

struct MailProfile {
    std::uint32_t flags = 0;
    ovrmail::toolkit::ProfileState state = ovrmail::toolkit::ProfileState::kUnchanged;
    int read_error = 0;  // errno when there is a file, but it could not be read
    ovrmail::toolkit::ProfileSection* sections = nullptr;
    ovrmail::toolkit::ProfileSection* last_section = nullptr;
    ovrmail::common::HeapPtr<char[]> text;  // the file as read
    ovrmail::common::Arena arena;

    void append(ovrmail::toolkit::ProfileSection* section) noexcept {
        (sections == nullptr ? sections : last_section->next) = section;
        last_section = section;
    }
};

namespace ovrmail::toolkit {

struct DeleteProfile {
    void operator()(MailProfile* profile) const noexcept {
        profile->~MailProfile();
        std::free(profile);
    }
};
// Owner of a profile that is not to be written back.
using ProfilePtr = std::unique_ptr<MailProfile, DeleteProfile>;

// Com_OpenPrivateProfile2: null, with `err`, when memory runs out.
ProfilePtr open_profile(const char* path, std::uint32_t flags, std::uint32_t* err) noexcept;

// First section of that name, or null.
ProfileSection* find_section(const MailProfile& profile, std::string_view name) noexcept;

// Takes lines off `lines` up to and including the next one that holds a key. False at the end.
bool next_key(std::string_view& lines, ProfileKey& key) noexcept;

// Com_GetPrivateProfileInt without the limit to 32 bits. Only the first 11 characters of a value
// count, which always fit this type, so that the caller sees a number that is out of range.
std::int64_t profile_number(const MailProfile& profile, const char* section, const char* key,
                            std::int32_t fallback) noexcept;

// Calls visit(key) for each key in order until it returns false.
template <class Visit>
void visit_keys(const ProfileSection& section, Visit visit) noexcept {
    ProfileKey key;
    for (std::string_view lines = section.lines; next_key(lines, key);)
        if (!visit(key)) return;
    for (const ProfileKey* at = section.keys; at != nullptr; at = at->next)
        if (!visit(*at)) return;
}

}  // namespace ovrmail::toolkit

// Profiles: tables for single lines and numbers, and a model for everything together.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "profile.h"
#include "support/support.hpp"

namespace {

using support::read_file;
using support::write_file;
using Maybe = const char*;  // null: absent

std::string get(const MailProfile* profile, const char* section, const char* key) {
    std::vector<char> buffer(8192);
    const int length =
        Com_GetPrivateProfileString(profile, section, key, "(none)", buffer.data(), 8192);
    EXPECT_EQ(length, static_cast<int>(std::string(buffer.data()).size()));
    return buffer.data();
}

class Profile : public ::testing::Test {
protected:
    MailProfile* open(std::string_view content, std::uint32_t flags = 0) {
        write_file(path_, content);
        return Com_OpenPrivateProfile(path_.c_str(), flags);
    }
    support::TempDir dir_;
    const std::string path_ = dir_.file("test.ini");
};

TEST_F(Profile, Lines) {
    const std::string name67(67, 'n');
    struct {
        std::string content, section, key, value;
    } const cases[] = {
        {"  ;word\n\n   [Sec] and more\nK=1\n", "Sec", "K", "1"},
        {"[S]\n  KEY=1\n", "S", "KEY", "(none)"},
        {"[S]\n  KEY=1\n", "S", "  KEY", "1"},
        {"[S]\n\t;K=1\n", "S", "\t;K", "1"},  // a tab is no blank
        {"[S]\n=5\nA==5\n", "S", "A", "=5"},
        {"[S]\n=5\nA==5\n", "S", "", "(none)"},
        {"[S]\nK = v \n", "S", "K ", " v "},
        {"[S]\nK=a\rb\nb=2", "S", "K", "a"},
        {"K=0\n[S\nK=0\n[ S ]\nK=1\n", " S ", "K", "1"},
        {"[S]\nA=1\n [x\nK=2\n", "S", "K", "2"},  // no header: the section goes on
        {"[S]\nK=1\n[S]\nK=2\nL=3\n", "S", "L", "(none)"},
        {"[S]\nK=1\nK=2\n", "S", "K", "1"},
        {"[s]\nk=1\n", "S", "k", "(none)"},
        {"[]\nk=1\n", "", "k", "1"},
        {"[" + name67 + "]\n" + name67 + "=1\n", name67, name67, "1"},
        {"[S]\n[" + name67 + "n]\nk=1\n", "S", "k", "(none)"},
        {"[S]\nk=" + std::string(1030, 'v') + "=w\n", "S", "k", std::string(1022, 'v')},
        {"[S]\nk=" + std::string(1030, 'v') + "=w\n", "S", "vvvvvvvv", "w"},
        {std::string("[S]\nk=a\0b\nl=1\n", 14), "S", "k", "a"},
    };
    for (const auto& c : cases) {
        MailProfile* const profile = open(c.content);
        EXPECT_EQ(get(profile, c.section.c_str(), c.key.c_str()), c.value) << c.content;
        Com_ClosePrivateProfile(profile, nullptr);
    }
}

TEST_F(Profile, Numbers) {
    struct {
        Maybe value;
        int fallback, decimal, hexadecimal;
    } const cases[] = {
        {nullptr, -1, 0, -1},
        {nullptr, 7, 7, 7},
        {"", -1, -1, -1},
        {"12abc", 3, 12, 0x12abc},
        {"abc", 3, 0, 0xabc},
        {" \t-12", 3, -12, 3},
        {"+5", 3, 5, 3},
        {"+-5", 3, 0, 3},
        {"          12", 3, 1, 3},  // eleven characters count
        {"99999999999", 3, INT_MAX, static_cast<int>(0x99999999)},
        {"0x1F", 3, 0, 31},
        {"1f", 3, 1, 31},
        {"0X1F", 3, 0, 3},
        {"12 ", 3, 12, 3},
        {"0x", 3, 0, 0},
        {"0x0x1", 3, 0, 3},
        {"ffffffff", 3, 0, -1},
    };
    for (const auto& c : cases) {
        MailProfile* const profile =
            open(c.value != nullptr ? "[S]\nk=" + std::string(c.value) + "\n" : "[S]\n");
        const char* const name = c.value != nullptr ? c.value : "(none)";
        EXPECT_EQ(Com_GetPrivateProfileInt(profile, "S", "k", c.fallback, nullptr), c.decimal)
            << name;
        EXPECT_EQ(Com_GetPrivateProfileIntHex(profile, "S", "k", c.fallback, nullptr),
                  c.hexadecimal)
            << name;
        Com_ClosePrivateProfile(profile, nullptr);
    }
}

TEST_F(Profile, NullsAndSmallBuffers) {
    EXPECT_EQ(Com_GetPrivateProfileString(nullptr, "S", "k", "", nullptr, 0), -1);
    EXPECT_EQ(Com_GetPrivateProfileInt(nullptr, "S", "k", 5, nullptr), 0);
    EXPECT_EQ(Com_GetPrivateProfileIntHex(nullptr, "S", "k", 5, nullptr), 5);
    EXPECT_EQ(Com_ClosePrivateProfile(nullptr, "x"), -1);
    MailProfile* const profile = open("[S]\nk=value\n");
    char buffer[4] = "***";
    EXPECT_EQ(Com_GetPrivateProfileString(profile, "S", "k", "", buffer, 0), 0);
    EXPECT_STREQ(buffer, "***");
    EXPECT_EQ(Com_GetPrivateProfileString(profile, "S", "k", "", buffer, 4), 3);
    EXPECT_STREQ(buffer, "val");
    EXPECT_EQ(Com_GetPrivateProfileString(profile, nullptr, "k", "fallback", buffer, 4), 3);
    EXPECT_EQ(Com_WritePrivateProfileString(profile, "S", "k", "x"), 0);  // read only
    EXPECT_EQ(Com_ClosePrivateProfile(profile, path_.c_str()), 0);
    EXPECT_EQ(read_file(path_), "[S]\nk=value\n");
    MailProfile* const empty = Com_OpenPrivateProfile(dir_.path().c_str(), 1);  // a directory
    EXPECT_EQ(Com_WritePrivateProfileString(empty, nullptr, "k", "x"), 0);
    EXPECT_EQ(Com_WritePrivateProfileString(empty, "S", std::string(68, 'k').c_str(), "x"), 0);
    EXPECT_EQ(Com_WritePrivateProfileString(empty, "S", "k", "x"), 1);
    std::uint32_t err = 0;
    EXPECT_EQ(Com_ClosePrivateProfile2(empty, dir_.path().c_str(), &err), -1);
    EXPECT_EQ(err, static_cast<std::uint32_t>(EISDIR));
}

// The file and its rules once more, as plainly as possible.
struct Model {
    struct Section {
        std::string name;
        std::vector<std::pair<std::string, std::string>> keys;
    };
    std::vector<Section> sections;
    bool changed = false;

    explicit Model(const std::string& path) {
        std::FILE* const in = std::fopen(path.c_str(), "r");
        char piece[1025];
        bool ignored = true;
        while (std::fgets(piece, sizeof piece, in) != nullptr) {
            std::string line = piece;
            line = line.substr(0, line.find_first_of("\r\n"));
            const auto start = line.find_first_not_of(' ');
            if (start == std::string::npos || line[start] == ';') continue;
            if (line[start] == '[') {
                const auto end = line.find(']');
                if (end == std::string::npos) continue;
                ignored = end - start - 1 > 67;
                if (!ignored) sections.push_back({line.substr(start + 1, end - start - 1), {}});
                continue;
            }
            const auto equals = line.find('=');
            if (ignored || equals == std::string::npos || equals == 0 || equals > 67) continue;
            sections.back().keys.emplace_back(line.substr(0, equals), line.substr(equals + 1));
        }
        std::fclose(in);
    }

    void write(const std::string& name, Maybe key, Maybe value) {
        auto section = sections.begin();
        while (section != sections.end() && section->name != name) ++section;
        if (section == sections.end()) {
            if (key == nullptr || value == nullptr) return;
            sections.push_back({name, {{key, value}}});
        } else if (key == nullptr) {
            sections.erase(section);
        } else {
            auto at = section->keys.begin();
            while (at != section->keys.end() && at->first != key) ++at;
            if (at == section->keys.end() && value == nullptr) return;
            if (at == section->keys.end())
                section->keys.emplace_back(key, value);
            else if (value == nullptr)
                section->keys.erase(at);
            else
                at->second = value;
        }
        changed = true;
    }

    [[nodiscard]] std::string find(const std::string& name, const std::string& key) const {
        for (const auto& section : sections) {
            if (section.name != name) continue;
            for (const auto& entry : section.keys)
                if (entry.first == key) return entry.second;
            break;
        }
        return "(none)";
    }

    [[nodiscard]] std::string text(const std::string& line_end) const {
        std::string all;
        for (const auto& section : sections) {
            if (!section.keys.empty()) all += "[" + section.name + "]" + line_end;
            for (const auto& [key, value] : section.keys) all += key + "=" + value + line_end;
        }
        return all;
    }
};

TEST_F(Profile, RandomFilesAndEditsAgreeWithTheModel) {
    std::mt19937 random(20240229);
    const auto below = [&](std::size_t n) { return random() % n; };
    std::vector<std::string> pieces{"[",  "]", "=", ";",     " ",     "\r",   "\n",   "\n",
                                    "\n", "a", "b", "[a]\n", "[b]\n", "\na=", "\nb=", "\r\n"};
    for (const auto& [byte, count] : {std::pair{'\0', 1U}, {'a', 67U}, {'b', 1023U}})
        pieces.emplace_back(count, byte);
    const std::string names[] = {"a", "b", "aa", "", " ", std::string(67, 'a')};
    const std::string values[] = {"", "1", "a=b", std::string(3000, 'v')};
    for (std::uint32_t round = 0; round < 400; ++round) {
        std::string content;
        for (auto n = below(60); n > 0; --n) content += pieces[below(std::size(pieces))];
        const std::uint32_t flags = round % 3 == 0 ? 0x21U : round % 3;
        MailProfile* const profile = open(content, flags);
        Model model(path_);
        for (auto n = below(30); n > 0 && flags != 0; --n) {
            const std::string& section = names[below(std::size(names))];
            const Maybe key = below(8) != 0 ? names[below(std::size(names))].c_str() : nullptr;
            const Maybe value = below(4) != 0 ? values[below(std::size(values))].c_str() : nullptr;
            EXPECT_EQ(Com_WritePrivateProfileString(profile, section.c_str(), key, value), 1);
            model.write(section, key, value);
        }
        for (const auto& section : names)
            for (const auto& key : names)
                ASSERT_EQ(get(profile, section.c_str(), key.c_str()), model.find(section, key))
                    << "round " << round << ": " << content;
        ASSERT_EQ(Com_ClosePrivateProfile(profile, path_.c_str()), 0);
        ASSERT_EQ(read_file(path_),
                  model.changed ? model.text((flags & 0x20) != 0 ? "\r\n" : "\n") : content)
            << "round " << round << ": " << content;
    }
}

}  // namespace

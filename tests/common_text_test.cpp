// Bounded text.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "common/text.hpp"

using namespace ovrmail::common;

TEST(Text, FormatTellsWhatDoesNotFit) {
    std::array<char, 4> room{};
    EXPECT_EQ(format_into(room, "%s", "abc"), 3);
    EXPECT_EQ(format_into(room, "%s", "abcd"), -1);
    EXPECT_STREQ(room.data(), "abc");
    EXPECT_EQ(format_into(std::span<char>{}, "%s", ""), -1);
}

TEST(Text, FixedFieldWithoutNulIsBounded) {
    const std::array<char, 3> full{'a', 'b', 'c'};
    EXPECT_EQ(bounded(full), "abc");
    const std::array<char, 3> terminated{'a', '\0', 'c'};
    EXPECT_EQ(bounded(terminated), "a");
}

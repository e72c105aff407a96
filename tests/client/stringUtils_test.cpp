#include "stringUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <tuple>
#include <vector>

namespace {

using ::testing::ElementsAre;
using Pieces = std::vector<std::string>;

TEST(SplitTest, CutsAtEveryDelimiterCharacter) {
    struct Case {
        std::string text;
        std::string delimiters;
        Pieces expected;
    };
    const Case cases[] = {
            {"", ",", {}},
            {",,,", ",", {}},
            {"", "", {}},
            {",a,,b,", ",", {"a", "b"}},         // leading, trailing and runs of delimiters
            {"a b", "", {"a b"}},                // an empty set keeps the whole text
            {"a=1, b=2", ",", {"a=1", " b=2"}},  // pieces are not trimmed
            {"a,b;c", ",;", {"a", "b", "c"}},
            {"a;b,c", ";,;,", {"a", "b", "c"}},  // order and repetition in the set do not matter
            {"a::b:c", "::", {"a", "b", "c"}},   // not a multi-character separator
            {"-1", "-", {"1"}},
            {"abc", ",", {"abc"}},
            {"  a  b ", " ", {"a", "b"}},  // a blank is an ordinary delimiter
    };
    for (const Case& c : cases) {
        EXPECT_EQ(stringUtils::split(c.text, c.delimiters), c.expected)
                << ::testing::PrintToString(c.text) << " at "
                << ::testing::PrintToString(c.delimiters);
    }
    // A text with an embedded NUL is cut by its length.
    EXPECT_THAT(stringUtils::split(std::string("a\0b,c", 5), ","),
                ElementsAre(std::string("a\0b", 3), "c"));
}

TEST(ParseIntTest, ConvertsBase10) {
    const std::pair<std::string, int32_t> cases[] = {
            {"42", 42},
            {"  42", 42},
            {"\t\n7", 7},
            {"-7x", -7},
            {"+15", 15},
            {"12abc", 12},
            {"0x10", 0},  // hex is not read
            {"", 0},
            {"x", 0},
            {"-", 0},
            {"   ", 0},
            {"- 5", 0},
            {"-0", 0},
            {"2147483647", std::numeric_limits<int32_t>::max()},
            {"-2147483648", std::numeric_limits<int32_t>::min()},
            {"2147483648", 0},
            {"-2147483649", 0},
            {"99999999999999999999999", 0},
            {"007", 7},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(stringUtils::parseInt(text), expected) << ::testing::PrintToString(text);
    }
}

// Decimal text without padding, which parseInt reads back.
TEST(ValueOfTest, DecimalTextWithoutPadding) {
    const std::pair<int32_t, const char*> cases[] = {
            {0, "0"},
            {1200, "1200"},
            {-1, "-1"},
            {0x01011040, "16846912"},
            {std::numeric_limits<int32_t>::min(), "-2147483648"},
            {std::numeric_limits<int32_t>::max(), "2147483647"},
    };
    for (const auto& [value, text] : cases) {
        EXPECT_EQ(stringUtils::valueOf(value), text);
        EXPECT_EQ(stringUtils::parseInt(stringUtils::valueOf(value)), value);
    }
}

TEST(WhitespaceTest, IsBlankNewlineReturnTabInThatOrderAndWritable) {
    ASSERT_NE(stringUtils::WHITESPACE, nullptr);
    EXPECT_EQ(std::string(stringUtils::WHITESPACE), std::string(" \n\r\t"));
    const char* const saved = stringUtils::WHITESPACE;
    stringUtils::WHITESPACE = "x";
    EXPECT_EQ(stringUtils::trim("xxaxx", stringUtils::WHITESPACE), "a");
    stringUtils::WHITESPACE = saved;
}

TEST(TrimTest, RemovesSetMembersAtTheEnds) {
    struct Case {
        std::string text;
        const char* set;
        std::string left;
        std::string right;
        std::string both;
    };
    const Case cases[] = {
            {" \t x y \r\n", " \n\r\t", "x y \r\n", " \t x y", "x y"},
            {"\f", " \n\r\t", "\f", "\f", "\f"},  // form feed and vertical tab are not whitespace
            {"\va\v", " \n\r\t", "\va\v", "\va\v", "\va\v"},
            {"    ", " \n\r\t", "", "", ""},
            {"", " \n\r\t", "", "", ""},
            {"  a  ", "", "  a  ", "  a  ", "  a  "},   // an empty set copies
            {"--a-b--", "-", "a-b--", "--a-b", "a-b"},  // inner members stay
            {"abc", " ", "abc", "abc", "abc"},
            {"xyaxy", "yx", "axy", "xya", "a"},  // the order of the set does not matter
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.text) + " by " + ::testing::PrintToString(c.set));
        EXPECT_EQ(stringUtils::trimLeft(c.text, c.set), c.left);
        EXPECT_EQ(stringUtils::trimRight(c.text, c.set), c.right);
        EXPECT_EQ(stringUtils::trim(c.text, c.set), c.both);
    }
}

TEST(ContainsTest, SubstringEdges) {
    const std::tuple<std::string, std::string, bool> cases[] = {
            {"abc", "", true},     {"", "", true},       {"", "a", false},
            {"ab", "abc", false},  {"abc", "abc", true}, {"abc", "bc", true},
            {"abc", "ac", false},  {"ABC", "b", false},  {"xTALVEN_y", "TALVEN_", true},
            {"aaab", "aab", true}, {"ab", "ba", false},
    };
    for (const auto& [s, part, expected] : cases) {
        EXPECT_EQ(stringUtils::contains(s, part), expected)
                << "'" << s << "' contains '" << part << "'";
    }
}

TEST(EqualsTest, ExactBytes) {
    EXPECT_TRUE(stringUtils::equals("", ""));
    EXPECT_TRUE(stringUtils::equals("ACTION_LAUNCH", "ACTION_LAUNCH"));
    EXPECT_FALSE(stringUtils::equals("A", "a"));
    EXPECT_FALSE(stringUtils::equals("a", "a "));
    EXPECT_FALSE(stringUtils::equals("a", ""));
    EXPECT_FALSE(stringUtils::equals(std::string("a\0b", 3), std::string("a\0c", 3)));
    EXPECT_TRUE(stringUtils::equals(std::string("a\0b", 3), std::string("a\0b", 3)));
}

}  // namespace

#include "stringUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Pieces = std::vector<std::string>;

struct SplitCase {
    const char* name;
    std::string text;
    std::string delimiters;
    Pieces expected;
};

void PrintTo(const SplitCase& c, std::ostream* os) {
    *os << c.name;
}

class SplitTest : public ::testing::TestWithParam<SplitCase> {};

TEST_P(SplitTest, CutsAtEveryDelimiterCharacter) {
    const SplitCase& c = GetParam();
    EXPECT_EQ(stringUtils::split(c.text, c.delimiters), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
        Cases, SplitTest,
        ::testing::Values(
                SplitCase{"EmptyText", "", ",", {}}, SplitCase{"OnlyDelimiters", ",,,", ",", {}},
                SplitCase{"EmptyTextEmptySet", "", "", {}},
                SplitCase{"LeadingTrailingAndRuns", ",a,,b,", ",", {"a", "b"}},
                SplitCase{"EmptySetKeepsWholeText", "a b", "", {"a b"}},
                SplitCase{"PiecesAreNotTrimmed", "a=1, b=2", ",", {"a=1", " b=2"}},
                SplitCase{"SetOfSingleCharacters", "a,b;c", ",;", {"a", "b", "c"}},
                SplitCase{"SetOrderAndRepetitionIrrelevant", "a;b,c", ";,;,", {"a", "b", "c"}},
                SplitCase{"NotAMultiCharacterSeparator", "a::b:c", "::", {"a", "b", "c"}},
                SplitCase{"MinusOneOnMinus", "-1", "-", {"1"}},
                SplitCase{"NoDelimiterInText", "abc", ",", {"abc"}},
                SplitCase{"SingleCharacterPiece", "x", ",", {"x"}},
                SplitCase{"MixedRuns", ";;1,2;;3,,", ";,", {"1", "2", "3"}},
                SplitCase{"BlankIsAnOrdinaryDelimiter", "  a  b ", " ", {"a", "b"}}),
        [](const ::testing::TestParamInfo<SplitCase>& info) { return info.param.name; });

TEST(SplitTest, TextWithEmbeddedNulIsCutByLength) {
    const std::string text("a\0b,c", 5);
    EXPECT_THAT(stringUtils::split(text, ","), ElementsAre(std::string("a\0b", 3), "c"));
}

struct ParseCase {
    const char* name;
    std::string text;
    int32_t expected;
};

void PrintTo(const ParseCase& c, std::ostream* os) {
    *os << c.name;
}

class ParseIntTest : public ::testing::TestWithParam<ParseCase> {};

TEST_P(ParseIntTest, ConvertsBase10) {
    EXPECT_EQ(stringUtils::parseInt(GetParam().text), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
        Cases, ParseIntTest,
        ::testing::Values(ParseCase{"Plain", "42", 42}, ParseCase{"LeadingBlanks", "  42", 42},
                          ParseCase{"LeadingTabAndNewline", "\t\n7", 7},
                          ParseCase{"NegativeWithJunk", "-7x", -7},
                          ParseCase{"PlusSign", "+15", 15}, ParseCase{"TrailingJunk", "12abc", 12},
                          ParseCase{"HexIsNotRead", "0x10", 0}, ParseCase{"Empty", "", 0},
                          ParseCase{"Junk", "x", 0}, ParseCase{"SignOnly", "-", 0},
                          ParseCase{"BlanksOnly", "   ", 0}, ParseCase{"BlankAfterSign", "- 5", 0},
                          ParseCase{"Zero", "-0", 0},
                          ParseCase{"Int32Max", "2147483647", std::numeric_limits<int32_t>::max()},
                          ParseCase{"Int32Min", "-2147483648", std::numeric_limits<int32_t>::min()},
                          ParseCase{"AboveInt32", "2147483648", 0},
                          ParseCase{"BelowInt32", "-2147483649", 0},
                          ParseCase{"BeyondInt64", "99999999999999999999999", 0},
                          ParseCase{"LeadingZeros", "007", 7}),
        [](const ::testing::TestParamInfo<ParseCase>& info) { return info.param.name; });

TEST(ValueOfTest, DecimalTextWithoutPadding) {
    EXPECT_EQ(stringUtils::valueOf(0), "0");
    EXPECT_EQ(stringUtils::valueOf(1200), "1200");
    EXPECT_EQ(stringUtils::valueOf(-1), "-1");
    EXPECT_EQ(stringUtils::valueOf(std::numeric_limits<int32_t>::min()), "-2147483648");
    EXPECT_EQ(stringUtils::valueOf(std::numeric_limits<int32_t>::max()), "2147483647");
}

TEST(ValueOfTest, RoundTripsThroughParseInt) {
    for (int32_t v : {std::numeric_limits<int32_t>::min(), -65536, -1, 0, 1, 0x01011040,
                      std::numeric_limits<int32_t>::max()}) {
        EXPECT_EQ(stringUtils::parseInt(stringUtils::valueOf(v)), v) << v;
    }
}

TEST(WhitespaceTest, IsBlankNewlineReturnTabInThatOrder) {
    ASSERT_NE(stringUtils::WHITESPACE, nullptr);
    EXPECT_EQ(std::string(stringUtils::WHITESPACE), std::string(" \n\r\t"));
}

TEST(WhitespaceTest, PointerIsWritable) {
    const char* const saved = stringUtils::WHITESPACE;
    stringUtils::WHITESPACE = "x";
    EXPECT_EQ(stringUtils::trim("xxaxx", stringUtils::WHITESPACE), "a");
    stringUtils::WHITESPACE = saved;
}

struct TrimCase {
    const char* name;
    std::string text;
    const char* set;
    std::string left;
    std::string right;
    std::string both;
};

void PrintTo(const TrimCase& c, std::ostream* os) {
    *os << c.name;
}

class TrimTest : public ::testing::TestWithParam<TrimCase> {};

TEST_P(TrimTest, RemovesSetMembersAtTheEnds) {
    const TrimCase& c = GetParam();
    EXPECT_EQ(stringUtils::trimLeft(c.text, c.set), c.left);
    EXPECT_EQ(stringUtils::trimRight(c.text, c.set), c.right);
    EXPECT_EQ(stringUtils::trim(c.text, c.set), c.both);
}

INSTANTIATE_TEST_SUITE_P(
        Cases, TrimTest,
        ::testing::Values(TrimCase{"ControlCharacters", " \t x y \r\n", " \n\r\t", "x y \r\n",
                                   " \t x y", "x y"},
                          TrimCase{"FormFeedIsNotWhitespace", "\f", " \n\r\t", "\f", "\f", "\f"},
                          TrimCase{"VerticalTabIsNotWhitespace", "\va\v", " \n\r\t", "\va\v",
                                   "\va\v", "\va\v"},
                          TrimCase{"BlanksOnly", "    ", " \n\r\t", "", "", ""},
                          TrimCase{"EmptyText", "", " \n\r\t", "", "", ""},
                          TrimCase{"EmptySetCopies", "  a  ", "", "  a  ", "  a  ", "  a  "},
                          TrimCase{"InnerMembersStay", "--a-b--", "-", "a-b--", "--a-b", "a-b"},
                          TrimCase{"NothingToTrim", "abc", " ", "abc", "abc", "abc"},
                          TrimCase{"SetOrderIrrelevant", "xyaxy", "yx", "axy", "xya", "a"}),
        [](const ::testing::TestParamInfo<TrimCase>& info) { return info.param.name; });

TEST(TrimTest, WhitespaceConstantTrimsRealControlCharacters) {
    EXPECT_EQ(stringUtils::trim(" \t x y \r\n", stringUtils::WHITESPACE), "x y");
    EXPECT_EQ(stringUtils::trim("\f", stringUtils::WHITESPACE), "\f");
}

struct ContainsCase {
    std::string s;
    std::string part;
    bool expected;
};

TEST(ContainsTest, SubstringEdges) {
    const ContainsCase cases[] = {
            {"abc", "", true},     {"", "", true},       {"", "a", false},
            {"ab", "abc", false},  {"abc", "abc", true}, {"abc", "bc", true},
            {"abc", "ac", false},  {"ABC", "b", false},  {"xTALVEN_y", "TALVEN_", true},
            {"aaab", "aab", true}, {"ab", "ba", false},
    };
    for (const ContainsCase& c : cases) {
        EXPECT_EQ(stringUtils::contains(c.s, c.part), c.expected)
                << "'" << c.s << "' contains '" << c.part << "'";
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

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "version/WFVersionComparator.h"

namespace wf {
namespace {

using Parts = std::vector<std::string>;

WFVersionComparator& comparator() { return *WFVersionComparator::defaultComparator(); }

TEST(VersionComparator, SharedInstanceIsMadeOnce) {
  WFVersionComparator* first = WFVersionComparator::defaultComparator();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first, WFVersionComparator::defaultComparator());
}

TEST(VersionComparator, CharacterClassesKeepTheirValues) {
  EXPECT_EQ(WFVersionComparator::kNumberType, 0);
  EXPECT_EQ(WFVersionComparator::kStringType, 1);
  EXPECT_EQ(WFVersionComparator::kPeriodType, 2);
}

TEST(VersionComparator, TypeOfCharacter) {
  EXPECT_EQ(comparator().typeOfCharacter("."), 2);
  EXPECT_EQ(comparator().typeOfCharacter("7"), 0);
  EXPECT_EQ(comparator().typeOfCharacter("b"), 1);
  EXPECT_EQ(comparator().typeOfCharacter("-"), 1);
  EXPECT_EQ(comparator().typeOfCharacter(" "), 1);
  // Only the first character counts, and only a lone period is a period.
  EXPECT_EQ(comparator().typeOfCharacter("12ab"), 0);
  EXPECT_EQ(comparator().typeOfCharacter("b12"), 1);
  EXPECT_EQ(comparator().typeOfCharacter(".5"), 1);
  EXPECT_EQ(comparator().typeOfCharacter(".."), 1);
}

TEST(VersionComparator, UnicodeDecimalDigitsAreNumbers) {
  EXPECT_EQ(comparator().typeOfCharacter("\u0663"), 0);  // ARABIC-INDIC DIGIT THREE
  EXPECT_EQ(comparator().typeOfCharacter("\uFF15"), 0);  // FULLWIDTH DIGIT FIVE
  EXPECT_EQ(comparator().typeOfCharacter("\u0967"), 0);  // DEVANAGARI DIGIT ONE
  // Digits that are not decimal digits are letters here.
  EXPECT_EQ(comparator().typeOfCharacter("\u00B2"), 1);  // SUPERSCRIPT TWO
  EXPECT_EQ(comparator().typeOfCharacter("\u2163"), 1);  // ROMAN NUMERAL FOUR
}

TEST(VersionComparator, BrokenUtf8IsAString) {
  EXPECT_EQ(comparator().typeOfCharacter("\xff"), 1);
  EXPECT_EQ(comparator().typeOfCharacter(std::string("\0", 1)), 1);
  EXPECT_EQ(comparator().typeOfCharacter(""), 1);
}

TEST(VersionComparator, SplitExamples) {
  EXPECT_EQ(comparator().splitVersionString("1.2.3b45"),
            (Parts{"1", ".", "2", ".", "3", "b", "45"}));
  EXPECT_EQ(comparator().splitVersionString("1.0-beta2"), (Parts{"1", ".", "0", "-beta", "2"}));
  EXPECT_EQ(comparator().splitVersionString("10..2rc"), (Parts{"10", ".", ".", "2", "rc"}));
}

TEST(VersionComparator, SplitEmptyGivesNoParts) {
  EXPECT_TRUE(comparator().splitVersionString("").empty());
}

TEST(VersionComparator, SplitKeepsPunctuationAndBlanksWithLetters) {
  EXPECT_EQ(comparator().splitVersionString("2 beta (3)"), (Parts{"2", " beta (", "3", ")"}));
  EXPECT_EQ(comparator().splitVersionString("..."), (Parts{".", ".", "."}));
  EXPECT_EQ(comparator().splitVersionString("a"), (Parts{"a"}));
}

TEST(VersionComparator, SplitKeepsMultibyteCharactersWhole) {
  EXPECT_EQ(comparator().splitVersionString("1\u0663.\u00E9t\u00E9"),
            (Parts{"1\u0663", ".", "\u00E9t\u00E9"}));
  // A broken byte is a letter of its own and is never lost.
  EXPECT_EQ(comparator().splitVersionString("1\xff"
                                            "2"),
            (Parts{"1", "\xff", "2"}));
}

struct Example {
  const char* a;
  const char* b;
  int result;
};

void PrintTo(const Example& e, std::ostream* os) {
  *os << "'" << e.a << "' vs '" << e.b << "' gives " << e.result;
}

class WorkedExample : public ::testing::TestWithParam<Example> {};

TEST_P(WorkedExample, ComparesAsDocumented) {
  const Example& e = GetParam();
  EXPECT_EQ(comparator().compareVersion(e.a, e.b), e.result) << e.a << " vs " << e.b;
  EXPECT_EQ(comparator().compareVersion(e.b, e.a), -e.result) << e.b << " vs " << e.a;
}

INSTANTIATE_TEST_SUITE_P(VersionComparator, WorkedExample,
                         ::testing::Values(Example{"1.0", "1.0.1", -1},  // b goes on with a period
                                           Example{"2.0", "2.0.0", -1},  // trailing zeros count
                                           Example{"1.0", "1.0b1", 1},   // b is a pre-release
                                           Example{"1.0a", "1.0", -1},   // a is a pre-release
                                           Example{"1.0b1", "1.0b2", -1},  // same letters, 1 < 2
                                           Example{"1.10", "1.9", 1},      // numbers by value
                                           Example{"1.0", "1.a", 1},       // number beats letters
                                           Example{"1..2", "1.2", -1},     // number beats period
                                           Example{"1.0beta", "1.0alpha", 1},
                                           Example{"010", "10", 0}, Example{"", "1", -1},
                                           Example{"", "beta", 1}),
                         [](const ::testing::TestParamInfo<Example>& info) {
                           return "Row" + std::to_string(info.index + 1);
                         });

TEST(VersionComparator, IdenticalStringsAreTheSame) {
  for (const char* v : {"1.0", "1.0b3", "2.1.10", "10..2rc", "beta", "1.0-beta2"})
    EXPECT_EQ(comparator().compareVersion(v, v), 0) << v;
}

TEST(VersionComparator, LeadingZerosDoNotMatter) {
  EXPECT_EQ(comparator().compareVersion("1.002.3", "1.2.03"), 0);
  EXPECT_EQ(comparator().compareVersion("0", "000"), 0);
  EXPECT_EQ(comparator().compareVersion("1.00b007", "1.0b7"), 0);
}

TEST(VersionComparator, LetterCaseMatters) {
  EXPECT_EQ(comparator().compareVersion("1.0B", "1.0a"), -1);
  EXPECT_EQ(comparator().compareVersion("1.0a", "1.0B"), 1);
  EXPECT_EQ(comparator().compareVersion("1.0beta", "1.0Beta"), 1);
}

TEST(VersionComparator, EmptyAgainstEmptyIsTheSame) {
  EXPECT_EQ(comparator().compareVersion("", ""), 0);
}

TEST(VersionComparator, EmptyAgainstAPeriodIsOlder) {
  EXPECT_EQ(comparator().compareVersion("", "."), -1);
}

TEST(VersionComparator, NumbersOfAnyLengthCompareByValue) {
  // Far past 64 bits: no overflow, no wrap-around.
  EXPECT_EQ(
      comparator().compareVersion("1.99999999999999999999999999", "1.100000000000000000000000000"),
      -1);
  EXPECT_EQ(comparator().compareVersion("18446744073709551616", "18446744073709551615"), 1);
  EXPECT_EQ(comparator().compareVersion("0000000000000000000000000000042", "42"), 0);
}

TEST(VersionComparator, UnicodeDigitsCompareByTheirValue) {
  EXPECT_EQ(comparator().compareVersion("1.\u0663", "1.3"), 0);        // Arabic-Indic three
  EXPECT_EQ(comparator().compareVersion("1.\u0661\u0660", "1.9"), 1);  // Arabic-Indic ten
  EXPECT_EQ(comparator().compareVersion("\uFF12.0", "10.0"), -1);      // fullwidth two
}

TEST(VersionComparator, NumberAgainstPeriodAtTheSamePlace) {
  EXPECT_EQ(comparator().compareVersion("1.2", "1..2"), 1);
  EXPECT_EQ(comparator().compareVersion("1.", "12"), -1);
}

TEST(VersionComparator, LongerWithANumberAfterLettersIsNewer) {
  EXPECT_EQ(comparator().compareVersion("1.0b", "1.0b1"), -1);
  EXPECT_EQ(comparator().compareVersion("1.0b1", "1.0b"), 1);
}

TEST(VersionComparator, BrokenUtf8NeverCrashes) {
  EXPECT_EQ(comparator().compareVersion("1.\xff", "1.\xff"), 0);
  EXPECT_EQ(comparator().compareVersion("1.\xff", "1.0"), -1);
  EXPECT_EQ(comparator().compareVersion(std::string("1\0"
                                                    "2",
                                                    3),
                                        "1"),
            -1);
}

}  // namespace
}  // namespace wf

// Tag-list normalisation: validation, form D, case-insensitive duplicates,
// ordering by a hint.
#include <gtest/gtest.h>

#include "XAttrTestSupport.h"
#include "openmeta/OpenMeta.h"
#include "platform/foundation/Strings.h"

namespace wf::test {
namespace {

Value tags(std::initializer_list<Value> items) { return Value(Array(items)); }

const std::string kCafeComposed = "caf\xC3\xA9";     // é as one code point
const std::string kCafeDecomposed = "cafe\xCC\x81";  // e + combining acute
const std::string kCafeCapitalDecomposed = "Cafe\xCC\x81";

TEST(TagLists, Validation) {
  EXPECT_FALSE(OpenMeta::validateAsArrayOfStrings(Value()));
  EXPECT_FALSE(OpenMeta::validateAsArrayOfStrings(Value("a")));
  EXPECT_FALSE(OpenMeta::validateAsArrayOfStrings(tags({Value("a"), Value(1)})));
  EXPECT_FALSE(OpenMeta::validateAsArrayOfStrings(tags({Value(Array{})})));
  EXPECT_TRUE(OpenMeta::validateAsArrayOfStrings(Value(Array{})));
  EXPECT_TRUE(OpenMeta::validateAsArrayOfStrings(tags({Value("a"), Value("")})));
}

TEST(TagLists, DecomposeDropsNonStrings) {
  EXPECT_EQ(OpenMeta::decomposeArrayOfStrings(tags({Value(kCafeComposed), Value(3), Value("x")})),
            tags({Value(kCafeDecomposed), Value("x")}));
  EXPECT_EQ(OpenMeta::decomposeArrayOfStrings(Value(Array{})), Value(Array{}));
}

TEST(TagLists, RemoveDuplicatesWorkedExamples) {
  EXPECT_EQ(OpenMeta::removeDuplicateTags(tags({Value("Work"), Value("work"), Value("Home")})),
            tags({Value("Work"), Value("Home")}));
  EXPECT_EQ(OpenMeta::removeDuplicateTags(tags({Value("home"), Value("Work"), Value("HOME")})),
            tags({Value("home"), Value("Work")}));
  EXPECT_EQ(
      OpenMeta::removeDuplicateTags(tags({Value(kCafeComposed), Value(kCafeCapitalDecomposed)})),
      tags({Value(kCafeDecomposed)}));
  EXPECT_EQ(OpenMeta::removeDuplicateTags(tags({Value("a"), Value(1), Value("A")})),
            tags({Value("a")}));
}

TEST(TagLists, RemoveDuplicatesOfNilAndEmpty) {
  EXPECT_TRUE(OpenMeta::removeDuplicateTags(Value()).isNil());
  EXPECT_EQ(OpenMeta::removeDuplicateTags(Value(Array{})), Value(Array{}));
}

TEST(TagLists, LowercasingIsNoFullCaseFolding) {
  // 'ß' and 'ss' stay different tags.
  EXPECT_EQ(OpenMeta::removeDuplicateTags(tags({Value("stra\xC3\x9F"
                                                      "e"),
                                                Value("STRASSE")})),
            tags({Value("stra\xC3\x9F"
                        "e"),
                  Value("STRASSE")}));
  // Non-ASCII letters are lower-cased by Unicode data.
  EXPECT_EQ(OpenMeta::removeDuplicateTags(tags({Value("\xC3\x84rger"), Value("\xC3\xA4rger")})),
            tags({Value("A\xCC\x88rger")}));
}

// Properties over a set of awkward lists.
TEST(TagLists, ResultIsShorterStringsInFormDAndStable) {
  const std::vector<Value> inputs = {
      tags({Value("Work"), Value("work"), Value("WORK"), Value("Home")}),
      tags({Value(kCafeComposed), Value(kCafeDecomposed), Value("CAF\xC3\x89")}),
      tags({Value(""), Value(""), Value(" "), Value(1.5), Value(Array{})}),
      tags({Value("\xE1\xBA\x9E"), Value("\xC3\x9F"), Value("SS"), Value("ss")}),
      tags({Value("\xC7\x85"), Value("\xC7\x84"), Value("\xC7\x86")}),       // Dž DŽ dž
      tags({Value("\xE2\x84\xAB"), Value("\xC3\x85"), Value("A\xCC\x8A")}),  // Å three ways
  };
  for (const Value& input : inputs) {
    const Value once = OpenMeta::removeDuplicateTags(input);
    ASSERT_TRUE(once.isArray());
    EXPECT_LE(once.count(), input.count());
    for (const Value& tag : once.asArray()) {
      ASSERT_TRUE(tag.isString());
      EXPECT_EQ(tag.asString(), ns::decomposedStringWithCanonicalMapping(tag.asString()));
    }
    EXPECT_EQ(OpenMeta::removeDuplicateTags(once), once);
  }
}

TEST(TagLists, RemoveDuplicatesIsTheTableOrderedByItsOwnTags) {
  // The duplicates are removed in one pass; it must give what the table of
  // the decomposed tags, ordered with those tags as the hint, gives.
  const std::vector<Value> inputs = {
      tags({Value("Work"), Value("Home"), Value("work"), Value("Urgent"), Value("HOME")}),
      tags({Value("b"), Value("A"), Value("a"), Value("B"), Value("c")}),
      tags({Value(kCafeComposed), Value("Caf\xC3\x89"), Value(kCafeDecomposed), Value("x")}),
      tags({Value("\xC3\x84rger"), Value("\xC3\xA4rger"), Value(2), Value("ARGER")}),
      tags({Value(""), Value("I"), Value("i"), Value("\xC4\xB0")}),
  };
  for (const Value& input : inputs) {
    const Value decomposed = OpenMeta::decomposeArrayOfStrings(input);
    OpenMeta::TagTable table;
    for (const Value& tag : decomposed.asArray())
      table.insert_or_assign(ns::lowercaseString(tag.asString()), tag.asString());
    EXPECT_EQ(OpenMeta::removeDuplicateTags(input),
              OpenMeta::orderedArrayWithDict(table, decomposed));
  }
}

TEST(TagLists, OrderedArrayUsesTheHintsSpellingThenTheLeftovers) {
  const OpenMeta::TagTable table{{"b", "B"}, {"c", "c"}};
  EXPECT_EQ(OpenMeta::orderedArrayWithDict(table, tags({Value("b"), Value("x")})),
            tags({Value("b"), Value("c")}));
}

TEST(TagLists, OrderedArraySkipsConsumedAndMissingHints) {
  const OpenMeta::TagTable table{{"a", "A"}, {"b", "B"}, {"z", "Z"}};
  EXPECT_EQ(OpenMeta::orderedArrayWithDict(
                table, tags({Value("B"), Value("b"), Value("q"), Value(7), Value("a")})),
            tags({Value("B"), Value("a"), Value("Z")}));
}

TEST(TagLists, OrderedArrayWithoutHintIsInAscendingKeyOrder) {
  const OpenMeta::TagTable table{{"m", "M"}, {"a", "a"}, {"z", "Z"}};
  const Value expected = tags({Value("a"), Value("M"), Value("Z")});
  EXPECT_EQ(OpenMeta::orderedArrayWithDict(table, Value()), expected);
  EXPECT_EQ(OpenMeta::orderedArrayWithDict(table, Value(Array{})), expected);
  EXPECT_EQ(OpenMeta::orderedArrayWithDict({}, Value()), Value(Array{}));
}

}  // namespace
}  // namespace wf::test

#include <gtest/gtest.h>

#include "import/StringCompare.h"

namespace wf {
namespace {

Value strings(std::initializer_list<const char*> items) {
  Array a;
  for (const char* s : items) a.emplace_back(s);
  return Value(std::move(a));
}

TEST(IsEqualToArrayStringCompareOptions, EqualArraysOfStrings) {
  EXPECT_TRUE(isEqualToArray(strings({"Work", "Home"}), strings({"Work", "Home"}), 0));
}

TEST(IsEqualToArrayStringCompareOptions, EmptyArraysAreEqual) {
  EXPECT_TRUE(isEqualToArray(Value(Array{}), Value(Array{}), 0));
}

TEST(IsEqualToArrayStringCompareOptions, LetterCaseCountsWithoutOptions) {
  EXPECT_FALSE(isEqualToArray(strings({"work"}), strings({"Work"}), 0));
}

TEST(IsEqualToArrayStringCompareOptions, CaseInsensitiveOptionIgnoresCase) {
  EXPECT_TRUE(isEqualToArray(strings({"work"}), strings({"WORK"}), NSCaseInsensitiveSearch));
}

TEST(IsEqualToArrayStringCompareOptions, CanonicallyEquivalentStringsAreEqualUnlessLiteral) {
  Value composed = strings({"caf\xC3\xA9"});     // é as one code point
  Value decomposed = strings({"cafe\xCC\x81"});  // e + combining acute
  EXPECT_TRUE(isEqualToArray(composed, decomposed, 0));
  EXPECT_FALSE(isEqualToArray(composed, decomposed, NSLiteralSearch));
}

TEST(IsEqualToArrayStringCompareOptions, OrderMatters) {
  EXPECT_FALSE(isEqualToArray(strings({"a", "b"}), strings({"b", "a"}), 0));
}

TEST(IsEqualToArrayStringCompareOptions, DifferentCountsAreUnequal) {
  EXPECT_FALSE(isEqualToArray(strings({"a"}), strings({"a", "a"}), 0));
  EXPECT_FALSE(isEqualToArray(strings({"a", "a"}), strings({"a"}), 0));
}

TEST(IsEqualToArrayStringCompareOptions, NilOtherIsUnequal) {
  EXPECT_FALSE(isEqualToArray(strings({}), Value(), 0));
}

TEST(IsEqualToArrayStringCompareOptions, NilOrNonArrayReceiverIsUnequal) {
  EXPECT_FALSE(isEqualToArray(Value(), strings({}), 0));
  EXPECT_FALSE(isEqualToArray(Value("a"), strings({"a"}), 0));
  EXPECT_FALSE(isEqualToArray(strings({"a"}), Value("a"), 0));
}

TEST(IsEqualToArrayStringCompareOptions, NonStringsUseGeneralEquality) {
  EXPECT_TRUE(isEqualToArray(Value(Array{Value(5)}), Value(Array{Value(5.0)}), 0));
  EXPECT_FALSE(isEqualToArray(Value(Array{Value(5)}), Value(Array{Value(6)}), 0));
  EXPECT_FALSE(isEqualToArray(Value(Array{Value("5")}), Value(Array{Value(5)}), 0));
  Value nested(Array{strings({"x"})});
  EXPECT_TRUE(isEqualToArray(nested, Value(Array{strings({"x"})}), 0));
}

}  // namespace
}  // namespace wf

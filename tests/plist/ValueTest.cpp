#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "platform/foundation/Format.h"
#include "platform/plist/Value.h"

using namespace wf;

TEST(ValueEquality, NumbersCompareByValue) {
  EXPECT_EQ(Value(5), Value(5.0));
  EXPECT_EQ(Value(5.0), Value(5));
  EXPECT_NE(Value(5), Value(5.5));
  EXPECT_EQ(Value(true), Value(1));
  EXPECT_EQ(Value(false), Value(0));
  EXPECT_EQ(Value(true), Value(1.0));
  EXPECT_NE(Value(true), Value(2));
  EXPECT_NE(Value(false), Value(true));
  EXPECT_EQ(Value(-3), Value(-3.0));
}

TEST(ValueEquality, UnsignedAgainstSigned) {
  const unsigned long long kMax = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(Value(kMax), Value(kMax));
  EXPECT_NE(Value(kMax), Value(-1));  // same bits, different numbers
  EXPECT_EQ(Value(kMax).type(), Value::Type::Unsigned);
  // Values in the signed range are plain integers, whatever their C type.
  EXPECT_EQ(Value(7ull).type(), Value::Type::Integer);
  EXPECT_EQ(Value(7ull), Value(7));
  EXPECT_EQ(Value(9223372036854775808ull), Value(9223372036854775808.0));
  EXPECT_NE(Value(9223372036854775808ull), Value(std::numeric_limits<std::int64_t>::min()));
}

TEST(ValueEquality, NaNEqualsNaNSoRoundTripsCompare) {
  double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(Value(nan), Value(nan));
  EXPECT_NE(Value(nan), Value(0));
  EXPECT_EQ(Value(HUGE_VAL), Value(HUGE_VAL));
  EXPECT_NE(Value(HUGE_VAL), Value(-HUGE_VAL));
}

TEST(ValueEquality, StringsByExactContent) {
  EXPECT_EQ(Value("abc"), Value(std::string("abc")));
  EXPECT_NE(Value("abc"), Value("ABC"));
  // isEqual: is literal: precomposed and decomposed forms differ.
  EXPECT_NE(Value("\u00E9"), Value("e\u0301"));
  EXPECT_NE(Value("5"), Value(5));
  EXPECT_NE(Value(""), Value());
}

TEST(ValueEquality, DatesDataNilAndNull) {
  EXPECT_EQ(Value(Date{12.5}), Value(Date{12.5}));
  EXPECT_NE(Value(Date{12.5}), Value(Date{12}));
  EXPECT_NE(Value(Date{0}), Value(0));
  EXPECT_EQ(Value(Date{std::nan("")}), Value(Date{std::nan("")}));
  EXPECT_NE(Value(Date{std::nan("")}), Value(Date{0}));
  EXPECT_EQ(Value(Data{1, 2}), Value(Data{1, 2}));
  EXPECT_NE(Value(Data{1, 2}), Value(Data{2, 1}));
  EXPECT_NE(Value(Data{}), Value(""));
  EXPECT_EQ(Value(), Value());
  EXPECT_EQ(Value::null(), Value::null());
  EXPECT_NE(Value(), Value::null());
}

TEST(ValueEquality, ArraysElementByElementInOrder) {
  EXPECT_EQ(Value(Array{Value(1), Value("a")}), Value(Array{Value(1.0), Value("a")}));
  EXPECT_NE(Value(Array{Value(1), Value(2)}), Value(Array{Value(2), Value(1)}));
  EXPECT_NE(Value(Array{Value(1)}), Value(Array{Value(1), Value(1)}));
  EXPECT_EQ(Value(Array{}), Value(Array{}));
  EXPECT_NE(Value(Array{}), Value(Dictionary{}));
}

TEST(ValueEquality, DictionariesByKeysAndValues) {
  Dictionary a{{"x", Value(1)}, {"y", Value(Array{Value(true)})}};
  Dictionary b{{"y", Value(Array{Value(1)})}, {"x", Value(1.0)}};
  Dictionary c{{"x", Value(1)}};
  Dictionary d{{"x", Value(1)}, {"z", Value(Array{Value(true)})}};
  EXPECT_EQ(Value(a), Value(b));
  EXPECT_NE(Value(a), Value(c));
  EXPECT_NE(Value(a), Value(d));
}

TEST(ValueConversions, BoolAndIntegerValues) {
  EXPECT_TRUE(Value("  +0003").boolValue());
  EXPECT_FALSE(Value("0").boolValue());
  EXPECT_TRUE(Value(2).boolValue());
  EXPECT_FALSE(Value(0.0).boolValue());
  EXPECT_TRUE(Value(0.5).boolValue());
  EXPECT_FALSE(Value(Array{Value(1)}).boolValue());
  EXPECT_EQ(Value("  +0003").integerValue(), 3);
  EXPECT_EQ(Value(3.9).integerValue(), 3);
  EXPECT_EQ(Value(-3.9).integerValue(), -3);
  EXPECT_EQ(Value(true).integerValue(), 1);
  EXPECT_EQ(Value(1e300).integerValue(), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(Value(std::nan("")).integerValue(), 0);
  EXPECT_EQ(Value(18446744073709551615ull).unsignedIntegerValue(), 18446744073709551615ull);
  EXPECT_DOUBLE_EQ(Value("2.5").doubleValue(), 2.5);
}

TEST(ValueAccess, LookupsAndKeyPaths) {
  Dictionary inner{{"c", Value("deep")}};
  Dictionary outer{{"a", Value(Dictionary{{"b", Value(inner)}})}, {"n", Value(1)}};
  Value v(outer);
  EXPECT_EQ(v.count(), 2u);
  EXPECT_EQ(v.get("n"), Value(1));
  EXPECT_TRUE(v.get("missing").isNil());
  EXPECT_EQ(v.find("missing"), nullptr);
  EXPECT_EQ(v.valueForKeyPath("a.b.c"), Value("deep"));
  EXPECT_TRUE(v.valueForKeyPath("a.x.c").isNil());
  EXPECT_TRUE(v.valueForKeyPath("n.c").isNil());
  EXPECT_TRUE(Value(1).get("a").isNil());
  EXPECT_EQ(Value(Array{Value(1), Value(2)}).count(), 2u);
  EXPECT_EQ(Value("abc").count(), 0u);
}

TEST(ValueCopies, ShareStorage) {
  Value a(Array(1000, Value("x")));
  Value b = a;
  EXPECT_EQ(&a.asArray(), &b.asArray());
  Value c = std::move(b);
  EXPECT_EQ(&a.asArray(), &c.asArray());
}

TEST(ValueEquality, AUidEqualsOnlyAUidOfTheSameNumber) {
  EXPECT_EQ(Value(Uid{5}), Value(Uid{5}));
  EXPECT_NE(Value(Uid{5}), Value(Uid{6}));
  EXPECT_NE(Value(Uid{5}), Value(5));
  EXPECT_NE(Value(5), Value(Uid{5}));
  EXPECT_NE(Value(Uid{1}), Value(true));
  EXPECT_NE(Value(Uid{5}), Value(Dictionary{{"CF$UID", Value(5)}}));
  EXPECT_FALSE(Value(Uid{5}).isNumber());
  EXPECT_EQ(Value(Uid{5}).type(), Value::Type::Uid);
}

TEST(ValueDescription, AUidShowsItsNumber) {
  EXPECT_EQ(describe(Value(Uid{5})), "<CFKeyedArchiverUID>{value = 5}");
  EXPECT_EQ(describe(Value(Array{Value(Uid{12})})), "(\n    <CFKeyedArchiverUID>{value = 12}\n)");
  EXPECT_EQ(format("root %@", Value(Uid{0})), "root <CFKeyedArchiverUID>{value = 0}");
}

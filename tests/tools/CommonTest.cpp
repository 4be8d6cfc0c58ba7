// The pieces the tools share: dates, JSON and key paths.
#include <gtest/gtest.h>

#include "Dates.h"
#include "Json.h"
#include "KeyPath.h"

namespace wf::tools {
namespace {

TEST(ToolDates, FormsAndOffsets) {
  Date d;
  ASSERT_TRUE(parseDate("2001-01-01T00:00:00Z", d));
  EXPECT_EQ(d.seconds, 0);
  ASSERT_TRUE(parseDate("2001-01-01 01:00:00 +0100", d));
  EXPECT_EQ(d.seconds, 0);
  ASSERT_TRUE(parseDate("2000-12-31T19:00:00-05", d));
  EXPECT_EQ(d.seconds, 0);
  ASSERT_TRUE(parseDate("2024-02-29T12:00:00.25Z", d)) << "a leap day";
  EXPECT_EQ(iso8601(d), "2024-02-29T12:00:00Z");
  ASSERT_TRUE(parseDate("1970-01-01T00:00:00Z", d));
  EXPECT_EQ(d.seconds, -978307200);
}

TEST(ToolDates, AnythingPartlyUnderstoodIsRefused) {
  Date d{42};
  for (const char* bad :
       {"2001-01-01", "2001-01-01T00:00:00", "2001-01-01T00:00:00Zx", "2001-01-01 00:00:00 Z",
        "2001-01-01 00:00:00 +00:00", "2001-1-01T00:00:00Z", "2001-01-01T00:00:60Z",
        "2001-04-31T00:00:00Z", "2001-01-01T00:00:00.Z", "2001-01-01T00:00:00+1", "", " "})
    EXPECT_FALSE(parseDate(bad, d)) << bad;
  EXPECT_EQ(d.seconds, 42) << "a refused date leaves the output alone";
}

TEST(ToolJson, WritesWhatJsonHoldsAndNothingElse) {
  std::string out, error;
  ASSERT_TRUE(toJSON(Value(Dictionary{{"t", Value("a\"\\\n\x01")},
                                      {"n", Value(Array{Value(-1), Value(0.5), Value(true)})}}),
                     false, out, error));
  EXPECT_EQ(out, "{\"n\":[-1,0.5,true],\"t\":\"a\\\"\\\\\\n\\u0001\"}\n");
  EXPECT_FALSE(toJSON(Value(Array{Value(Date{0})}), false, out, error));
  EXPECT_NE(error.find("invalid object in plist for destination format"), std::string::npos);
  EXPECT_FALSE(toJSON(Value(Data{1}), false, out, error));
  EXPECT_FALSE(toJSON(Value(1.0 / 0.0), false, out, error));
}

TEST(ToolJson, ReadsBackWithIntegersKept) {
  Value v;
  std::string error;
  ASSERT_TRUE(parseJSON(" {\"a\": [1, -2, 2.5, 1e2, true, \"\\u00e9\\ud83d\\ude00\"]} ", v, error))
      << error;
  EXPECT_EQ(v,
            Value(Dictionary{{"a", Value(Array{Value(1), Value(-2), Value(2.5), Value(100.0),
                                               Value(true), Value("\xC3\xA9\xF0\x9F\x98\x80")})}}));
  EXPECT_TRUE(v.get("a").asArray()[0].isInteger());
  EXPECT_TRUE(v.get("a").asArray()[3].isReal());
  for (const char* bad : {"", "[", "{\"a\" 1}", "[1,]", "nul", "null", "[\"\\ud800\"]", "\"\\x\"",
                          "[1] 2", "{1: 2}", "\"\xff\""})
    EXPECT_FALSE(parseJSON(bad, v, error)) << bad;
}

TEST(ToolKeyPaths, SplitWithEscapes) {
  EXPECT_EQ(splitKeyPath("a.b.0"), (std::vector<std::string>{"a", "b", "0"}));
  EXPECT_EQ(splitKeyPath("a\\.b.c"), (std::vector<std::string>{"a.b", "c"}));
  EXPECT_EQ(splitKeyPath("a\\\\.b"), (std::vector<std::string>{"a\\", "b"}));
  EXPECT_EQ(splitKeyPath("a\\x"), (std::vector<std::string>{"a\\x"}));
}

TEST(ToolKeyPaths, EditsLeaveTheOriginalAlone) {
  const Value root(Dictionary{{"l", Value(Array{Value("x"), Value(Dictionary{})})}});
  std::string error;
  Value changed =
      editAtKeyPath(root, splitKeyPath("l.1.k"), Edit::Insert, Value(1), "l.1.k", error);
  ASSERT_FALSE(changed.isNil()) << error;
  EXPECT_EQ(changed.get("l").asArray()[1], Value(Dictionary{{"k", Value(1)}}));
  EXPECT_EQ(root.get("l").asArray()[1], Value(Dictionary{})) << "values are shared, not changed";
  EXPECT_TRUE(
      editAtKeyPath(root, splitKeyPath("l.-1"), Edit::Replace, Value(1), "l.-1", error).isNil());
  EXPECT_TRUE(
      editAtKeyPath(root, splitKeyPath("l.0.k"), Edit::Insert, Value(1), "l.0.k", error).isNil())
      << "a string has no keys";
  EXPECT_EQ(valueAtKeyPath(root, splitKeyPath("l.0")), &root.get("l").asArray()[0]);
  EXPECT_EQ(valueAtKeyPath(root, splitKeyPath("l.2")), nullptr);
}

}  // namespace
}  // namespace wf::tools

// The dictionary's map-like behaviour: keys in byte order, each once, and
// the two rules for repeated keys (first kept when built in code, last kept
// when read from a file).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/plist/PropertyList.h"

namespace wf {
namespace {

std::vector<std::string> keysOf(const Dictionary& d) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : d) keys.push_back(key);
  return keys;
}

TEST(Dictionary, KeysAreKeptInByteOrder) {
  Dictionary d{{"b", Value(1)}, {"\xC3\xA9t\xC3\xA9", Value(2)}, {"B", Value(3)}, {"a", Value(4)}};
  EXPECT_EQ(keysOf(d), (std::vector<std::string>{"B", "a", "b", "\xC3\xA9t\xC3\xA9"}));
  d["A"] = Value(5);
  d.emplace("c", Value(6));
  EXPECT_EQ(keysOf(d), (std::vector<std::string>{"A", "B", "a", "b", "c", "\xC3\xA9t\xC3\xA9"}));
}

TEST(Dictionary, BuiltInCodeTheFirstOfARepeatedKeyStays) {
  Dictionary d{{"k", Value("first")}, {"k", Value("second")}};
  ASSERT_EQ(d.size(), 1u);
  EXPECT_EQ(d.at("k"), Value("first"));
  auto [it, inserted] = d.emplace("k", Value("third"));
  EXPECT_FALSE(inserted);
  EXPECT_EQ(it->second, Value("first"));
  auto [again, added] = d.insert_or_assign("k", Value("fourth"));
  EXPECT_FALSE(added);
  EXPECT_EQ(d.at("k"), Value("fourth"));
}

TEST(Dictionary, ReadFromEntriesTheLastOfARepeatedKeyStays) {
  Dictionary::Entries entries{{"z", Value(1)}, {"a", Value(2)}, {"z", Value(3)},
                              {"m", Value(4)}, {"a", Value(5)}, {"z", Value(6)}};
  Dictionary d = Dictionary::fromEntries(std::move(entries));
  EXPECT_EQ(keysOf(d), (std::vector<std::string>{"a", "m", "z"}));
  EXPECT_EQ(d.at("a"), Value(5));
  EXPECT_EQ(d.at("m"), Value(4));
  EXPECT_EQ(d.at("z"), Value(6));
}

TEST(Dictionary, SortedEntriesAreTakenAsTheyCome) {
  Dictionary d = Dictionary::fromEntries({{"a", Value(1)}, {"b", Value(2)}, {"c", Value(3)}});
  EXPECT_EQ(keysOf(d), (std::vector<std::string>{"a", "b", "c"}));
  Dictionary twice = Dictionary::fromEntries({{"a", Value(1)}, {"a", Value(2)}});
  ASSERT_EQ(twice.size(), 1u);
  EXPECT_EQ(twice.at("a"), Value(2));
}

TEST(Dictionary, ManyKeysInReverseOrderComeOutSortedAndFindable) {
  Dictionary::Entries entries;
  for (int i = 20000; i > 0; --i) entries.emplace_back("key" + std::to_string(i), Value(i));
  Dictionary d = Dictionary::fromEntries(std::move(entries));
  ASSERT_EQ(d.size(), 20000u);
  EXPECT_TRUE(std::is_sorted(d.begin(), d.end(),
                             [](const auto& a, const auto& b) { return a.first < b.first; }));
  for (int i = 1; i <= 20000; i += 997) EXPECT_EQ(d.at("key" + std::to_string(i)), Value(i));
}

TEST(Dictionary, AValueTakenFromTheSameDictionaryIsCopiedBeforeEntriesMove) {
  Dictionary d;
  for (int i = 0; i < 8; ++i) d.emplace("k" + std::to_string(i), Value("v" + std::to_string(i)));
  d.insert_or_assign("a", d.at("k7"));  // inserted before every entry, may reallocate
  d.emplace("b", d.at("k0"));
  EXPECT_EQ(d.at("a"), Value("v7"));
  EXPECT_EQ(d.at("b"), Value("v0"));
  d.insert_or_assign("a", d.at("b"));
  EXPECT_EQ(d.at("a"), Value("v0"));
}

TEST(Dictionary, LookupsOfAbsentKeys) {
  const Dictionary d{{"present", Value(true)}};
  EXPECT_EQ(d.find("absent"), d.end());
  EXPECT_EQ(d.find(""), d.end());
  EXPECT_EQ(d.count("absent"), 0u);
  EXPECT_EQ(d.count("present"), 1u);
  EXPECT_TRUE(d.contains("present"));
  EXPECT_THROW(d.at("absent"), std::out_of_range);
  EXPECT_EQ(d.find("pres"), d.end());
  EXPECT_EQ(d.find("presents"), d.end());
}

TEST(Dictionary, SubscriptMakesAnAbsentKeyWithNil) {
  Dictionary d;
  EXPECT_TRUE(d["new"].isNil());
  EXPECT_EQ(d.size(), 1u);
  d["new"] = Value(7);
  EXPECT_EQ(d.at("new"), Value(7));
}

TEST(Dictionary, EraseByKeyAndByPosition) {
  Dictionary d{{"a", Value(1)}, {"b", Value(2)}, {"c", Value(3)}};
  EXPECT_EQ(d.erase("b"), 1u);
  EXPECT_EQ(d.erase("b"), 0u);
  auto next = d.erase(d.find("a"));
  EXPECT_EQ(next->first, "c");
  EXPECT_EQ(keysOf(d), std::vector<std::string>{"c"});
}

TEST(Dictionary, EqualityIsByKeysAndValues) {
  Dictionary a{{"n", Value(5)}, {"s", Value("x")}};
  Dictionary b{{"s", Value("x")}, {"n", Value(5.0)}};
  EXPECT_EQ(a, b);  // 5 equals 5.0, as NSNumber compares them
  b["extra"] = Value(1);
  EXPECT_NE(a, b);
  Dictionary c{{"n", Value(5)}, {"s", Value("y")}};
  EXPECT_NE(a, c);
}

TEST(Dictionary, ARepeatedKeyInAReadListKeepsItsLastValue) {
  Value xml = plist::parse(
      "<plist version=\"1.0\"><dict><key>k</key><string>first</string>"
      "<key>a</key><true/><key>k</key><string>last</string></dict></plist>");
  ASSERT_TRUE(xml.isDictionary());
  EXPECT_EQ(xml.count(), 2u);
  EXPECT_EQ(xml.get("k"), Value("last"));
}

}  // namespace
}  // namespace wf

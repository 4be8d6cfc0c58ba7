#include <gtest/gtest.h>

#include <limits>

#include "platform/foundation/Strings.h"

using namespace wf::ns;

TEST(BoolValue, YesForLeadingYTOrNonZeroDigit) {
  EXPECT_TRUE(boolValue("YES"));
  EXPECT_TRUE(boolValue("yes"));
  EXPECT_TRUE(boolValue("true"));
  EXPECT_TRUE(boolValue("T"));
  EXPECT_TRUE(boolValue("Tuesday"));  // only the first letter counts
  EXPECT_TRUE(boolValue("1"));
  EXPECT_TRUE(boolValue("9"));
  EXPECT_TRUE(boolValue("42abc"));
}

TEST(BoolValue, SkipsBlanksSignAndZeros) {
  EXPECT_TRUE(boolValue("  +0003"));
  EXPECT_TRUE(boolValue(" -y"));
  EXPECT_TRUE(boolValue("-1"));
  EXPECT_TRUE(boolValue("\t0001"));
  EXPECT_TRUE(boolValue("\n 1"));
  EXPECT_TRUE(boolValue("0000y"));
}

TEST(BoolValue, NoForEverythingElse) {
  EXPECT_FALSE(boolValue(""));
  EXPECT_FALSE(boolValue("   "));
  EXPECT_FALSE(boolValue("0"));
  EXPECT_FALSE(boolValue("000"));
  EXPECT_FALSE(boolValue("-0"));
  EXPECT_FALSE(boolValue("+"));
  EXPECT_FALSE(boolValue("NO"));
  EXPECT_FALSE(boolValue("false"));
  EXPECT_FALSE(boolValue("0x1"));
  EXPECT_FALSE(boolValue("+-1"));  // one sign only
  EXPECT_FALSE(boolValue("abc"));
  EXPECT_FALSE(boolValue(".5"));
}

TEST(IntegerValue, LeadingDecimalInteger) {
  EXPECT_EQ(integerValue("42"), 42);
  EXPECT_EQ(integerValue("  -17abc"), -17);
  EXPECT_EQ(integerValue("+5"), 5);
  EXPECT_EQ(integerValue("  +0003"), 3);
  EXPECT_EQ(integerValue("12.7"), 12);
  EXPECT_EQ(integerValue(" \n 3"), 3);
  EXPECT_EQ(integerValue("abc"), 0);
  EXPECT_EQ(integerValue(""), 0);
  EXPECT_EQ(integerValue("-"), 0);
  EXPECT_EQ(integerValue("--1"), 0);
}

TEST(IntegerValue, Saturates) {
  constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
  constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(integerValue("9223372036854775807"), kMax);
  EXPECT_EQ(integerValue("9223372036854775808"), kMax);
  EXPECT_EQ(integerValue("99999999999999999999999"), kMax);
  EXPECT_EQ(integerValue("-9223372036854775808"), kMin);
  EXPECT_EQ(integerValue("-99999999999999999999999"), kMin);
}

TEST(DoubleValue, LeadingNumber) {
  EXPECT_DOUBLE_EQ(doubleValue("3.5"), 3.5);
  EXPECT_DOUBLE_EQ(doubleValue(" -2e3x"), -2000.0);
  EXPECT_DOUBLE_EQ(doubleValue(".5"), 0.5);
  EXPECT_DOUBLE_EQ(doubleValue("7e"), 7.0);
  EXPECT_DOUBLE_EQ(doubleValue("abc"), 0.0);
  EXPECT_DOUBLE_EQ(doubleValue(""), 0.0);
}

TEST(LowercaseString, UsesUnicodeData) {
  EXPECT_EQ(lowercaseString("HeLLo"), "hello");
  EXPECT_EQ(lowercaseString("\u00C9COLE"), "\u00E9cole");
  EXPECT_EQ(lowercaseString("STRA\u00DFE"), "stra\u00DFe");
  EXPECT_EQ(lowercaseString("\u0394\u0399\u0391"), "\u03B4\u03B9\u03B1");
  EXPECT_EQ(lowercaseString(""), "");
}

TEST(LowercaseString, InvalidUTF8KeepsBytesAndLowersASCII) {
  EXPECT_EQ(lowercaseString("AB\xff"), "ab\xff");
}

TEST(LowercaseString, PlainASCIIAsGLibLowersIt) {
  // ASCII text takes a short way; it must come out as GLib's tables make it.
  const std::string ascii = "Project ALPHA, Inbox-42 [IJ] ~{}";
  EXPECT_EQ(lowercaseString(ascii), "project alpha, inbox-42 [ij] ~{}");
  std::string everyCharacter;
  for (int c = 1; c < 0x80; ++c) everyCharacter.push_back(static_cast<char>(c));
  std::string expected = everyCharacter;
  for (char& c : expected)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  EXPECT_EQ(lowercaseString(everyCharacter), expected);
}

TEST(Decomposition, PlainASCIIIsItsOwnDecomposition) {
  std::string everyCharacter;
  for (int c = 1; c < 0x80; ++c) everyCharacter.push_back(static_cast<char>(c));
  EXPECT_EQ(decomposedStringWithCanonicalMapping(everyCharacter), everyCharacter);
  EXPECT_EQ(decomposedStringWithCanonicalMapping(""), "");
}

TEST(Decomposition, FormD) {
  EXPECT_EQ(decomposedStringWithCanonicalMapping("\u00E9"), "e\u0301");
  EXPECT_EQ(decomposedStringWithCanonicalMapping("\u00C5ngstr\u00F6m"), "A\u030Angstro\u0308m");
  EXPECT_EQ(decomposedStringWithCanonicalMapping("\uAC00"), "\u1100\u1161");
  EXPECT_EQ(decomposedStringWithCanonicalMapping("plain"), "plain");
  EXPECT_EQ(decomposedStringWithCanonicalMapping("e\u0301"), "e\u0301");
}

TEST(Compare, CanonicallyEquivalentStringsAreEqual) {
  EXPECT_EQ(compare("\u00E9t\u00E9", "e\u0301te\u0301"), 0);
  EXPECT_EQ(compare("", ""), 0);
  EXPECT_EQ(compare("abc", "abc"), 0);
}

TEST(Compare, CaseSensitiveCodePointOrder) {
  EXPECT_EQ(compare("a", "b"), -1);
  EXPECT_EQ(compare("b", "a"), 1);
  EXPECT_EQ(compare("B", "a"), -1);
  EXPECT_EQ(compare("abc", "ab"), 1);
  EXPECT_EQ(compare("ab", "abc"), -1);
  EXPECT_NE(compare("A", "a"), 0);
  EXPECT_EQ(compare("z", "\u00E9"), 1);  // e + accent sorts as "e..."
}

TEST(Affixes, EmptyAffixIsNeverAMatch) {
  EXPECT_TRUE(hasPrefix("abc", "ab"));
  EXPECT_FALSE(hasPrefix("abc", ""));
  EXPECT_FALSE(hasPrefix("a", "abc"));
  EXPECT_TRUE(hasSuffix("abc", "bc"));
  EXPECT_FALSE(hasSuffix("abc", ""));
  EXPECT_FALSE(hasSuffix("c", "abc"));
}

TEST(PathComponents, LastPathComponent) {
  EXPECT_EQ(lastPathComponent("/tmp/scratch.tiff"), "scratch.tiff");
  EXPECT_EQ(lastPathComponent("/tmp/scratch"), "scratch");
  EXPECT_EQ(lastPathComponent("/tmp/"), "tmp");
  EXPECT_EQ(lastPathComponent("scratch///"), "scratch");
  EXPECT_EQ(lastPathComponent("S//name"), "name");
  EXPECT_EQ(lastPathComponent("/"), "/");
  EXPECT_EQ(lastPathComponent("//"), "/");
  EXPECT_EQ(lastPathComponent(""), "");
  EXPECT_EQ(lastPathComponent(".hidden"), ".hidden");
}

TEST(PathComponents, DeletingLastPathComponent) {
  EXPECT_EQ(stringByDeletingLastPathComponent("/tmp/scratch.tiff"), "/tmp");
  EXPECT_EQ(stringByDeletingLastPathComponent("/tmp/lock/"), "/tmp");
  EXPECT_EQ(stringByDeletingLastPathComponent("/tmp/"), "/");
  EXPECT_EQ(stringByDeletingLastPathComponent("/tmp"), "/");
  EXPECT_EQ(stringByDeletingLastPathComponent("/"), "/");
  EXPECT_EQ(stringByDeletingLastPathComponent("scratch.tiff"), "");
  EXPECT_EQ(stringByDeletingLastPathComponent("S//name"), "S");
  EXPECT_EQ(stringByDeletingLastPathComponent("a//b//c//"), "a/b");
  EXPECT_EQ(stringByDeletingLastPathComponent(""), "");
}

TEST(PathComponents, PathExtension) {
  EXPECT_EQ(pathExtension("/tmp/scratch.tiff"), "tiff");
  EXPECT_EQ(pathExtension(".scratch.tiff"), "tiff");
  EXPECT_EQ(pathExtension("/tmp/scratch"), "");
  EXPECT_EQ(pathExtension("/tmp/"), "");
  EXPECT_EQ(pathExtension("/tmp/scratch..tiff"), "tiff");
  EXPECT_EQ(pathExtension("812.partial.emlx"), "emlx");
  EXPECT_EQ(pathExtension(".profile"), "");
  EXPECT_EQ(pathExtension("/home/.profile"), "");
  EXPECT_EQ(pathExtension("name."), "");
  EXPECT_EQ(pathExtension("/a.b/c"), "");
  EXPECT_EQ(pathExtension("bundle.app/"), "app");
  EXPECT_EQ(pathExtension("/"), "");
  EXPECT_EQ(pathExtension(""), "");
}

TEST(PathComponents, DeletingPathExtension) {
  EXPECT_EQ(stringByDeletingPathExtension("/tmp/scratch.tiff"), "/tmp/scratch");
  EXPECT_EQ(stringByDeletingPathExtension("/tmp/"), "/tmp");
  EXPECT_EQ(stringByDeletingPathExtension("scratch.bundle/"), "scratch");
  EXPECT_EQ(stringByDeletingPathExtension("scratch..tiff"), "scratch.");
  EXPECT_EQ(stringByDeletingPathExtension(".tiff"), ".tiff");
  EXPECT_EQ(stringByDeletingPathExtension("/"), "/");
  EXPECT_EQ(stringByDeletingPathExtension("812.partial.emlx"), "812.partial");
  EXPECT_EQ(stringByDeletingPathExtension("/a.b/c"), "/a.b/c");
  EXPECT_EQ(stringByDeletingPathExtension(""), "");
}

TEST(PathComponents, AppendingPathComponent) {
  EXPECT_EQ(stringByAppendingPathComponent("/tmp", "scratch.tiff"), "/tmp/scratch.tiff");
  EXPECT_EQ(stringByAppendingPathComponent("/tmp/", "scratch.tiff"), "/tmp/scratch.tiff");
  EXPECT_EQ(stringByAppendingPathComponent("/", "scratch.tiff"), "/scratch.tiff");
  EXPECT_EQ(stringByAppendingPathComponent("", "scratch.tiff"), "scratch.tiff");
  EXPECT_EQ(stringByAppendingPathComponent("/tmp", ""), "/tmp");
  EXPECT_EQ(stringByAppendingPathComponent("/tmp//", "/x/"), "/tmp/x");
  EXPECT_EQ(stringByAppendingPathComponent("a", "b/c"), "a/b/c");
  EXPECT_EQ(stringByAppendingPathComponent("Mail", ".hidden"), "Mail/.hidden");
}

TEST(UTF8, Validation) {
  EXPECT_TRUE(isValidUTF8("abc"));
  EXPECT_TRUE(isValidUTF8("\u00E9\u4E2D\U0001F600"));
  EXPECT_TRUE(isValidUTF8(std::string("a\0b", 3)));
  EXPECT_TRUE(isValidUTF8(""));
  EXPECT_FALSE(isValidUTF8("\xff"));
  EXPECT_FALSE(isValidUTF8("\xc0\x80"));          // overlong
  EXPECT_FALSE(isValidUTF8("\xed\xa0\x80"));      // surrogate
  EXPECT_FALSE(isValidUTF8("\xf4\x90\x80\x80"));  // beyond U+10FFFF
  EXPECT_FALSE(isValidUTF8("\xe2\x82"));          // truncated
  EXPECT_FALSE(isValidUTF8("a\x80z"));            // stray continuation
}

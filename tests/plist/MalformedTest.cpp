// Every malformed input yields nil and a message that says what is wrong
// and where.
#include <gtest/gtest.h>

#include "Bplist.h"
#include "platform/plist/PropertyList.h"
#include "support/HostilePlist.h"

using namespace wf;
using test::Bplist;

namespace {

struct Case {
  const char* name;
  std::string input;
  const char* message;  // expected part of the error
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

class Malformed : public ::testing::TestWithParam<Case> {};

TEST_P(Malformed, FailsWithAMessageThatSaysWhatAndWhere) {
  const Case& c = GetParam();
  std::string error;
  Value v = plist::parse(c.input, &error);
  EXPECT_TRUE(v.isNil()) << c.name;
  EXPECT_NE(error.find(c.message), std::string::npos) << c.name << ": got \"" << error << "\"";
}

std::string p(const std::string& body) { return "<plist version=\"1.0\">" + body + "</plist>"; }

std::string nested(int depth) {
  std::string s;
  for (int i = 0; i < depth; ++i) s += "<array>";
  for (int i = 0; i < depth; ++i) s += "</array>";
  return p(s);
}

const Case kXmlCases[] = {
    {"Empty", "", "line 1, column 1: no property list"},
    {"OnlyBlanks", "  \n ", "line 2, column 2: no property list"},
    {"PlainText", "hello", "line 1, column 1: expected an element"},
    {"KeyWithoutValue", p("<dict><key>a</key></dict>"), "key \"a\" has no value"},
    {"KeyFollowedByKey", p("<dict><key>a</key><key>b</key><true/></dict>"),
     "key \"a\" has no value"},
    {"ValueWithoutKey", p("<dict><string>x</string></dict>"), "expected <key> in <dict>"},
    {"IntegerNotANumber", p("<integer>12x</integer>"), "<integer> \"12x\" is not a number"},
    {"IntegerTooBig", p("<integer>99999999999999999999</integer>"), "out of the 64-bit range"},
    {"IntegerTooSmall", p("<integer>-9223372036854775809</integer>"), "out of the 64-bit range"},
    {"IntegerEmpty", p("<integer></integer>"), "empty <integer>"},
    {"IntegerDoubleSign", p("<integer>--1</integer>"), "is not a number"},
    {"RealNotANumber", p("<real>abc</real>"), "<real> \"abc\" is not a number"},
    {"RealEmpty", p("<real/>"), "empty <real>"},
    {"DateMonth13", p("<date>2026-13-01T00:00:00Z</date>"), "is out of range"},
    {"DateYearTooFar", p("<date>9999999999-01-01T00:00:00Z</date>"), "is out of range"},
    {"DateNotADate", p("<date>yesterday</date>"), "is not a date"},
    {"DateWithoutZ", p("<date>2026-01-01T00:00:00</date>"), "is not a date"},
    {"DataBadCharacter", p("<data>AB$C</data>"), "invalid base64 character \"$\""},
    {"DataTruncated", p("<data>QUJDR</data>"), "truncated base64"},
    {"UnknownEntity", p("<string>a &foo; b</string>"), "unknown entity &foo;"},
    {"BareAmpersand", p("<string>a & b</string>"), "does not start an entity"},
    {"NulReference", p("<string>&#0;</string>"), "is not a character"},
    {"SurrogateReference", p("<string>&#xD800;</string>"), "is not a character"},
    {"MalformedReference", p("<string>&#xZZ;</string>"), "malformed character reference"},
    {"MismatchedEndTag", p("<string>abc</strong>"), "expected </string>, found </strong>"},
    {"UnclosedString", "<plist><string>abc", "<string> is not closed"},
    {"UnclosedArray", "<plist><array><string>a</string>", "<array> is not closed"},
    {"UnknownElement", p("<foo/>"), "unknown element <foo>"},
    {"KeyOutsideDictionary", p("<key>a</key>"), "<key> outside a dictionary"},
    {"TrueWithContent", p("<true>yes</true>"), "<true> must be empty"},
    {"TwoRootValues", p("<string>a</string><string>b</string>"), "holds more than one value"},
    {"TrailingGarbage", p("<string>a</string>") + "trailing",
     "unexpected content after the property list"},
    {"TextInArray", p("<array>junk</array>"), "unexpected text \"junk</array></plist>\""},
    {"EmptyPlistElement", "<plist/>", "the <plist> element is empty"},
    {"EmptyPlistPair", "<plist></plist>", "the <plist> element is empty"},
    {"UnclosedComment", "<!-- unterminated", "comment is not closed"},
    {"UnsupportedEncoding", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><plist/>",
     "unsupported encoding \"ISO-8859-1\""},
    {"InvalidUTF8", p("<string>\xff</string>"), "invalid UTF-8 byte 0xFF"},
    {"UnclosedCdata", p("<string>a<![CDATA[b</string>"), "CDATA section is not closed"},
    {"AttributeWithoutValue", p("<dict attr></dict>"), "attribute without a value"},
    {"UnquotedAttribute", p("<dict a=1></dict>"), "attribute value is not quoted"},
    {"ElementInsideString", p("<string>a<b>c</b></string>"), "unexpected element inside <string>"},
    {"UnclosedDoctype", "<!DOCTYPE plist", "DOCTYPE is not closed"},
    {"UnclosedTag", "<plist", "tag <plist> is not closed"},
    {"TooDeep", nested(513), "nested deeper than 512 levels"},
    {"HostileDepth", nested(100000), "nested deeper than 512 levels"},
    {"LineAndColumn", "<plist>\n<dict>\n\t<key>a</key>\n\t<strin>x</strin>\n</dict>\n</plist>",
     "line 4, column 2: unknown element <strin>"},
    {"ColumnCountsCharacters", "<plist>\n<string>\u00E9\u00E9</string><x/></plist>",
     "line 2, column 20: <plist> holds more than one value"},
};

INSTANTIATE_TEST_SUITE_P(Xml, Malformed, ::testing::ValuesIn(kXmlCases),
                         [](const auto& info) { return std::string(info.param.name); });

Bplist one(std::string object) {
  Bplist b;
  b.objects = {std::move(object)};
  return b;
}

std::string withTrailerByte(std::string bytes, std::size_t fromEnd, char value) {
  bytes[bytes.size() - fromEnd] = value;
  return bytes;
}

std::vector<Case> binaryCases() {
  std::vector<Case> cases;
  auto add = [&](const char* name, std::string input, const char* message) {
    cases.push_back({name, std::move(input), message});
  };
  std::string good = one("\x51x").build();
  add("HeaderOnly", "bplist00", "truncated (8 bytes)");
  add("ShortList", good.substr(0, 41), "truncated (41 bytes)");
  add("Version01", "bplist01" + good.substr(8), "unsupported binary property list version \"01\"");
  add("OffsetSize9", withTrailerByte(good, 26, 9), "offset size 9 is not 1 to 8");
  add("OffsetSize0", withTrailerByte(good, 26, 0), "offset size 0 is not 1 to 8");
  add("RefSize0", withTrailerByte(good, 25, 0), "reference size 0 is not 1 to 8");
  add("RefSize9", withTrailerByte(good, 25, 9), "reference size 9 is not 1 to 8");
  add("SharedObjectsExpandWithoutBound", test::hostileExpansionPlist(64),
      "shared objects expand to more than 1048576 values");
  {
    Bplist b = one("\x51x");
    b.countOverride = 0;
    add("NoObjects", b.build(), "the list has no objects");
  }
  {
    Bplist b = one("\x51x");
    b.top = 1;
    add("TopBeyondCount", b.build(), "top object 1 is beyond the 1 objects");
  }
  {
    Bplist b = one("\x51x");
    b.tableOverride = 5000;
    add("TableOutside", b.build(), "offset table at byte 5000 is outside the file");
  }
  {
    Bplist b = one("\x51x");
    b.countOverride = 1000;
    add("CountBeyondTable", b.build(), "1000 objects do not fit the offset table");
  }
  {
    Bplist b = one("\x51x");
    b.offsetOverrides = {200};
    add("ObjectOffsetOutside", b.build(), "object 0 at byte 200 is outside the object area");
  }
  {
    Bplist b = one("\x51x");
    b.offsetOverrides = {2};
    add("ObjectOffsetInHeader", b.build(), "outside the object area");
  }
  add("SelfReference", one(std::string("\xA1\x00", 2)).build(),
      "object 0 at byte 8: reference cycle");
  {
    Bplist b;
    b.objects = {"\xA1\x01", std::string("\xA1\x00", 2)};
    add("MutualReference", b.build(), "reference cycle");
  }
  {
    Bplist b;
    b.objects = {"\xD1\x01\x02", std::string("\xA1\x00", 2), "\x09"};
    add("CycleThroughDictionaryKey", b.build(), "reference cycle");
  }
  add("HugeStringLength", one("\x5F\x13" + Bplist::be(~0ull >> 1, 8)).build(),
      "string of 9223372036854775807 bytes runs past the object area");
  add("HugeUTF16Length", one("\x6F\x13" + Bplist::be(~0ull, 8)).build(),
      "runs past the object area");
  add("StringPastEnd",
      one("\x55"
          "ab")
          .build(),
      "runs past the object area");
  add("HugeArrayCount", one("\xAF\x13" + Bplist::be(1ull << 62, 8)).build(),
      "array of 4611686018427387904 items runs past the object area");
  add("HugeDictionaryCount", one("\xDF\x13" + Bplist::be(1ull << 63, 8)).build(),
      "runs past the object area");
  add("DataPastEnd", one("\x4F\x11\xFF\xFF").build(), "data of 65535 bytes runs past");
  {
    Bplist b;
    b.objects = {"\xD1\x01\x01", "\x10\x01"};
    add("KeyNotAString", b.build(), "key 0 (object 1) is not a string");
  }
  add("ReferenceBeyondCount", one("\xA1\x05").build(),
      "reference to object 5 beyond the 1 objects");
  add("UnknownMarker", one("\x70").build(), "unknown marker 0x70");
  add("UnknownMarkerF0", one("\xF0").build(), "unknown marker 0xF0");
  add("NullObject", one(std::string(1, '\0')).build(), "null objects cannot be read");
  add("FillByte", one("\x0F").build(), "unknown marker 0x0F");
  add("NonAsciiInAsciiString", one("\x51\xE9").build(), "ASCII string holds byte 0xE9");
  add("IntegerOfSize32", one("\x15" + std::string(32, '\0')).build(), "integer of unknown size");
  add("TruncatedInteger", one("\x13\x01\x02").build(), "truncated integer");
  add("TruncatedReal", one("\x23\x01").build(), "truncated real");
  add("RealOfSize1", one("\x20\x01").build(), "real of unknown size");
  add("DateOfSize4", one("\x32\x01\x02\x03\x04").build(), "date of unknown size");
  add("TruncatedDate", one("\x33\x01").build(), "truncated date");
  add("MalformedLength", one("\x5F\x20\x01").build(), "object 0 at byte 8: malformed length");
  add("LengthPastEnd", one("\x5F\x13\x01").build(), "length runs past the object area");
  add("WideUID", one("\x8F" + std::string(16, '\x01')).build(), "UID wider than 8 bytes");
  {
    Bplist b;
    for (int i = 0; i < 600; ++i) b.objects.push_back("\xA1" + Bplist::be(i + 1, 2));
    b.objects.push_back("\xA0");
    b.refSize = 2;
    b.offsetSize = 2;
    add("TooDeep", b.build(), "nested deeper than 512 levels");
  }
  {
    Bplist b;
    for (int i = 0; i < 300; ++i) b.objects.push_back("\x09");
    b.offsetSize = 2;
    add("TooManyObjectsForRefSize", b.build(), "300 objects cannot be named by 1-byte references");
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Binary, Malformed, ::testing::ValuesIn(binaryCases()),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace

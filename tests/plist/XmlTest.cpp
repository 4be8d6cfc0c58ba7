#include <glib.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "platform/plist/PropertyList.h"

using namespace wf;

namespace {

const std::string kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
const std::string kTail = "</plist>\n";

std::string xml(const Value& v) {
  std::string out, error;
  EXPECT_TRUE(plist::toXML(v, out, &error)) << error;
  return out;
}

Value read(const std::string& text) {
  std::string error;
  plist::Format format = plist::Format::Binary;
  Value v = plist::parse(text, &error, &format);
  EXPECT_FALSE(v.isNil()) << error << "\n" << text;
  EXPECT_EQ(format, plist::Format::XML);
  return v;
}

Value inPlist(const std::string& body) { return read(kHead + body + "\n" + kTail); }

}  // namespace

TEST(XmlWriter, DictionaryLayoutIsFoundations) {
  Dictionary d;
  d["b"] = Value("two & <three>");
  d["a"] = Value(Array{Value(1), Value(-2), Value(true), Value(false)});
  d["c"] = Value(Dictionary{});
  d["d"] = Value(Array{});
  d["e"] = Value(2.5);
  d["f"] = Value(Date{817036205});
  d["g"] = Value(Data{0, 1, 2, 3});
  d["h"] = Value(Dictionary{{"x", Value("y")}});
  EXPECT_EQ(xml(Value(d)), kHead +
                               "<dict>\n"
                               "\t<key>a</key>\n"
                               "\t<array>\n"
                               "\t\t<integer>1</integer>\n"
                               "\t\t<integer>-2</integer>\n"
                               "\t\t<true/>\n"
                               "\t\t<false/>\n"
                               "\t</array>\n"
                               "\t<key>b</key>\n"
                               "\t<string>two &amp; &lt;three&gt;</string>\n"
                               "\t<key>c</key>\n"
                               "\t<dict/>\n"
                               "\t<key>d</key>\n"
                               "\t<array/>\n"
                               "\t<key>e</key>\n"
                               "\t<real>2.5</real>\n"
                               "\t<key>f</key>\n"
                               "\t<date>2026-11-22T10:30:05Z</date>\n"
                               "\t<key>g</key>\n"
                               "\t<data>\n"
                               "\tAAECAw==\n"
                               "\t</data>\n"
                               "\t<key>h</key>\n"
                               "\t<dict>\n"
                               "\t\t<key>x</key>\n"
                               "\t\t<string>y</string>\n"
                               "\t</dict>\n"
                               "</dict>\n" +
                               kTail);
}

TEST(XmlWriter, ScalarRoots) {
  EXPECT_EQ(xml(Value("q\"'")), kHead + "<string>q\"'</string>\n" + kTail);
  EXPECT_EQ(xml(Value(Array{})), kHead + "<array/>\n" + kTail);
  EXPECT_EQ(xml(Value(Dictionary{})), kHead + "<dict/>\n" + kTail);
  EXPECT_EQ(xml(Value(Data{})), kHead + "<data>\n</data>\n" + kTail);
}

TEST(XmlWriter, RealsInShortestRoundTripForm) {
  auto real = [](double d) {
    std::string s = xml(Value(d));
    auto a = s.find("<real>") + 6;
    return s.substr(a, s.find("</real>") - a);
  };
  EXPECT_EQ(real(0.1), "0.1");
  EXPECT_EQ(real(5.0), "5");
  EXPECT_EQ(real(-0.5), "-0.5");
  EXPECT_EQ(real(1e100), "1e+100");
  EXPECT_EQ(real(1.0 / 3), "0.3333333333333333");
  EXPECT_EQ(real(std::numeric_limits<double>::quiet_NaN()), "nan");
  EXPECT_EQ(real(HUGE_VAL), "+infinity");
  EXPECT_EQ(real(-HUGE_VAL), "-infinity");
}

TEST(XmlWriter, IntegersSignedAndUnsigned) {
  EXPECT_EQ(xml(Value(std::numeric_limits<std::int64_t>::min())),
            kHead + "<integer>-9223372036854775808</integer>\n" + kTail);
  EXPECT_EQ(xml(Value(18446744073709551615ull)),
            kHead + "<integer>18446744073709551615</integer>\n" + kTail);
}

TEST(XmlWriter, DatesToTheSecondInZForm) {
  EXPECT_EQ(xml(Value(Date{0.75})), kHead + "<date>2001-01-01T00:00:00Z</date>\n" + kTail);
  EXPECT_EQ(xml(Value(Date{-0.25})), kHead + "<date>2000-12-31T23:59:59Z</date>\n" + kTail);
  EXPECT_EQ(xml(Value(Date::distantFuture())),
            kHead + "<date>4001-01-01T00:00:00Z</date>\n" + kTail);
  // The distant past is 0001-01-01 in the Julian calendar that NSDate
  // prints; property lists use the proleptic Gregorian calendar.
  EXPECT_EQ(xml(Value(Date::distantPast())), kHead + "<date>0000-12-30T00:00:00Z</date>\n" + kTail);
}

TEST(XmlWriter, YearsBeforeOneKeepFourDigitsAfterTheSign) {
  Value v(Date{-63300000000.0});
  std::string s = xml(v);
  EXPECT_NE(s.find("<date>-0005-"), std::string::npos) << s;
  EXPECT_EQ(read(s), v);
}

TEST(XmlWriter, DataInLinesOfSeventySixColumnsLessIndentation) {
  Data bytes(100);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i);
  std::string root = xml(Value(bytes));
  EXPECT_NE(
      root.find("<data>\n"
                "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4\n"
                "OTo7PD0+P0BBQkNERUZHSElKS0xNTk9QUVJTVFVWV1hZWltcXV5fYGFiYw==\n"
                "</data>\n"),
      std::string::npos)
      << root;
  std::string nested = xml(Value(Dictionary{{"k", Value(bytes)}}));
  EXPECT_NE(nested.find("\t<data>\n"
                        "\tAAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEy\n"
                        "\tMzQ1Njc4OTo7PD0+P0BBQkNERUZHSElKS0xNTk9QUVJTVFVWV1hZWltcXV5fYGFiYw==\n"
                        "\t</data>\n"),
            std::string::npos)
      << nested;
}

TEST(XmlWriter, KeysInUTF16CodeUnitOrderAndWrittenAsUTF8) {
  Dictionary d{{"\u00E9lan", Value(1)},     {"zebra", Value(2)},       {"\u00C5benraa", Value(3)},
               {"fin", Value(4)},           {"E\u0301cole", Value(5)}, {"\uFF21", Value(6)},
               {"\U0001F600", Value(7)},    {"\uE000", Value(8)},      {"\uD7FF", Value(9)},
               {"a\U00010000b", Value(10)}, {"a\uFFFF", Value(11)},    {"Zebra", Value(12)}};
  std::string s = xml(Value(d));
  std::vector<std::string> order;
  for (std::size_t at = s.find("<key>"); at != std::string::npos; at = s.find("<key>", at + 1))
    order.push_back(s.substr(at + 5, s.find("</key>", at) - at - 5));
  // No normalisation: "E" + combining accent is an "E"; precomposed letters
  // sort after every ASCII letter; a character beyond the BMP sorts by its
  // surrogates, below U+E000.
  std::vector<std::string> expected{"E\u0301cole", "Zebra",      "a\U00010000b", "a\uFFFF",
                                    "fin",         "zebra",      "\u00C5benraa", "\u00E9lan",
                                    "\uD7FF",      "\U0001F600", "\uE000",       "\uFF21"};
  EXPECT_EQ(order, expected);
  EXPECT_EQ(read(s), Value(d));
}

TEST(XmlWriter, UidsAsFoundationWritesThem) {
  EXPECT_EQ(xml(Value(Dictionary{{"root", Value(Uid{7})}})), kHead +
                                                                 "<dict>\n"
                                                                 "\t<key>root</key>\n"
                                                                 "\t<dict>\n"
                                                                 "\t\t<key>CF$UID</key>\n"
                                                                 "\t\t<integer>7</integer>\n"
                                                                 "\t</dict>\n"
                                                                 "</dict>\n" +
                                                                 kTail);
}

TEST(XmlWriter, DatesXmlCannotCarryAreRefusedWithTheirKeyPath) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  struct Case {
    double seconds;
    const char* why;
  } cases[] = {{nan, "an undefined date (NaN)"},
               {HUGE_VAL, "an infinitely late date"},
               {-HUGE_VAL, "an infinitely early date"},
               {1e300, "more than 3 billion years away"}};
  for (const Case& c : cases) {
    Value v(Dictionary{
        {"events", Value(Array{Value(1), Value(Dictionary{{"when", Value(Date{c.seconds})}})})}});
    std::string out = "untouched", error;
    EXPECT_FALSE(plist::toXML(v, out, &error)) << c.why;
    EXPECT_NE(error.find(c.why), std::string::npos) << error;
    EXPECT_NE(error.find("cannot be written in XML"), std::string::npos) << error;
    EXPECT_NE(error.find("at key path \"events.1.when\""), std::string::npos) << error;
    EXPECT_EQ(out, "untouched");
  }
  // Binary keeps them all.
  Value all(
      Array{Value(Date{nan}), Value(Date{HUGE_VAL}), Value(Date{-HUGE_VAL}), Value(Date{1e300})});
  std::string bin;
  ASSERT_TRUE(plist::toBinary(all, bin));
  EXPECT_EQ(plist::parse(bin), all);
}

TEST(XmlWriter, YearsAfter9999ReadBackAsTheSameDate) {
  for (double seconds : {315537897600.0, 4e12, -4e12, 9e16, -9e16}) {
    Value v(Date{seconds});
    EXPECT_EQ(read(xml(v)), v) << seconds << "\n" << xml(v);
  }
}

TEST(XmlWriter, RefusesNilNullAndInvalidUTF8) {
  std::string out = "untouched", error;
  EXPECT_FALSE(plist::toXML(Value(), out, &error));
  EXPECT_NE(error.find("nil"), std::string::npos);
  EXPECT_FALSE(plist::toXML(Value(Array{Value::null()}), out, &error));
  EXPECT_NE(error.find("NSNull"), std::string::npos);
  EXPECT_FALSE(plist::toXML(Value(std::string("\xff")), out, &error));
  EXPECT_NE(error.find("UTF-8"), std::string::npos);
  EXPECT_EQ(out, "untouched");
}

TEST(XmlReader, WithOrWithoutDeclarationAndDoctype) {
  EXPECT_EQ(read("<plist version=\"1.0\"><string>a</string></plist>"), Value("a"));
  EXPECT_EQ(read("<?xml version=\"1.0\"?><plist><string>a</string></plist>"), Value("a"));
  EXPECT_EQ(read("\xEF\xBB\xBF<?xml version='1.0' encoding='utf-8'?>\n<!DOCTYPE plist SYSTEM "
                 "\"x.dtd\" [ <!ENTITY x \"y\"> ]>\n<plist version=\"1.0\">\n<true/>\n</plist>"),
            Value(true));
  // Foundation also reads a bare value without the <plist> element.
  EXPECT_EQ(read("<array><integer>1</integer></array>"), Value(Array{Value(1)}));
}

TEST(XmlReader, UTF16WithByteOrderMark) {
  std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-16\"?><plist><string>h\u00E9</string></plist>";
  gsize n = 0;
  gchar* be = g_convert(text.data(), static_cast<gssize>(text.size()), "UTF-16BE", "UTF-8", nullptr,
                        &n, nullptr);
  ASSERT_NE(be, nullptr);
  std::string big = "\xFE\xFF" + std::string(be, n);
  g_free(be);
  gchar* le = g_convert(text.data(), static_cast<gssize>(text.size()), "UTF-16LE", "UTF-8", nullptr,
                        &n, nullptr);
  ASSERT_NE(le, nullptr);
  std::string little = "\xFF\xFE" + std::string(le, n);
  g_free(le);
  EXPECT_EQ(read(big), Value("h\u00E9"));
  EXPECT_EQ(read(little), Value("h\u00E9"));
  std::string error;
  EXPECT_TRUE(plist::parse(std::string("\xFE\xFF\x00<\xD8\x00", 6), &error).isNil());
  EXPECT_NE(error.find("invalid UTF-16"), std::string::npos) << error;
}

TEST(XmlReader, EntitiesCharacterReferencesCdataComments) {
  EXPECT_EQ(inPlist("<string>&amp;&lt;&gt;&quot;&apos;</string>"), Value("&<>\"'"));
  EXPECT_EQ(inPlist("<string>&#233;&#xE9;&#x1F600;</string>"), Value("\u00E9\u00E9\U0001F600"));
  EXPECT_EQ(inPlist("<string>a<![CDATA[<b> & c]]>d</string>"), Value("a<b> & cd"));
  EXPECT_EQ(inPlist("<string>a<!-- note -->b</string>"), Value("ab"));
  EXPECT_EQ(inPlist("<!-- before --><array><!-- inside --><true/><?pi x?></array>"),
            Value(Array{Value(true)}));
  EXPECT_EQ(inPlist("<string/>"), Value(""));
  EXPECT_EQ(inPlist("<string>  keep  \n blanks </string>"), Value("  keep  \n blanks "));
}

TEST(XmlReader, BooleansIntegersReals) {
  EXPECT_EQ(inPlist("<true></true>"), Value(true));
  EXPECT_EQ(inPlist("<false/>"), Value(false));
  EXPECT_EQ(inPlist("<integer> -42 </integer>"), Value(-42));
  EXPECT_EQ(inPlist("<integer>+7</integer>"), Value(7));
  EXPECT_EQ(inPlist("<integer>0x1F</integer>"), Value(31));
  EXPECT_EQ(inPlist("<integer>-9223372036854775808</integer>"),
            Value(std::numeric_limits<std::int64_t>::min()));
  Value big = inPlist("<integer>18446744073709551615</integer>");
  EXPECT_EQ(big.type(), Value::Type::Unsigned);
  EXPECT_EQ(big.asUnsigned(), 18446744073709551615ull);
  EXPECT_EQ(inPlist("<real>1e3</real>"), Value(1000.0));
  EXPECT_EQ(inPlist("<real>-0.5</real>"), Value(-0.5));
  EXPECT_EQ(inPlist("<real>.25</real>"), Value(0.25));
  EXPECT_EQ(inPlist("<real>7</real>").type(), Value::Type::Real);
  EXPECT_TRUE(std::isnan(inPlist("<real>nan</real>").asReal()));
  EXPECT_TRUE(std::isnan(inPlist("<real>NaN</real>").asReal()));
  EXPECT_EQ(inPlist("<real>inf</real>"), Value(HUGE_VAL));
  EXPECT_EQ(inPlist("<real>+infinity</real>"), Value(HUGE_VAL));
  EXPECT_EQ(inPlist("<real>-infinity</real>"), Value(-HUGE_VAL));
  EXPECT_EQ(inPlist("<real>-inf</real>"), Value(-HUGE_VAL));
  EXPECT_EQ(inPlist("<real>1e999</real>"), Value(HUGE_VAL));
}

TEST(XmlReader, DatesAndData) {
  EXPECT_EQ(inPlist("<date>2026-11-22T10:30:05Z</date>"), Value(Date{817036205}));
  EXPECT_EQ(inPlist("<date>2001-01-01T00:00:00Z</date>"), Value(Date{0}));
  EXPECT_EQ(inPlist("<date>0001-01-01T00:00:00Z</date>"), Value(Date{-63113904000.0}));
  EXPECT_EQ(inPlist("<date>2001-01-02Z</date>"), Value(Date{86400}));
  EXPECT_EQ(inPlist("<data>\n\tAAEC\n\tAw==\n</data>"), Value(Data{0, 1, 2, 3}));
  EXPECT_EQ(inPlist("<data>AAECAw</data>"), Value(Data{0, 1, 2, 3}));
  EXPECT_EQ(inPlist("<data></data>"), Value(Data{}));
}

TEST(XmlReader, AKeyedArchiveReferenceReadsBackAsAUid) {
  Value v = inPlist(
      "<dict><key>a</key><dict><key>CF$UID</key><integer>3</integer></dict>"
      "<key>big</key><dict><key>CF$UID</key><integer>18446744073709551615</integer></dict>"
      "<key>negative</key><dict><key>CF$UID</key><integer>-1</integer></dict>"
      "<key>real</key><dict><key>CF$UID</key><real>1</real></dict>"
      "<key>text</key><dict><key>CF$UID</key><string>1</string></dict>"
      "<key>two</key><dict><key>CF$UID</key><integer>1</integer><key>x</key><true/></dict>"
      "</dict>");
  EXPECT_EQ(v.get("a"), Value(Uid{3}));
  EXPECT_EQ(v.get("big"), Value(Uid{18446744073709551615ull}));
  // Only a dictionary whose one key is "CF$UID" with a whole number.
  EXPECT_TRUE(v.get("negative").isDictionary());
  EXPECT_TRUE(v.get("real").isDictionary());
  EXPECT_TRUE(v.get("text").isDictionary());
  EXPECT_TRUE(v.get("two").isDictionary());
  EXPECT_EQ(read(xml(v)), v);
}

TEST(XmlReader, EntityDeclarationsAreNeverExpanded) {
  // The classic "billion laughs": each entity ten times the one before.
  std::string doc = "<?xml version=\"1.0\"?>\n<!DOCTYPE plist [\n<!ENTITY lol \"lol\">\n";
  for (int i = 1; i <= 9; ++i) {
    doc += "<!ENTITY lol" + std::to_string(i) + " \"";
    for (int k = 0; k < 10; ++k) doc += "&lol" + (i > 1 ? std::to_string(i - 1) : "") + ";";
    doc += "\">\n";
  }
  doc += "]>\n<plist version=\"1.0\"><string>&lol9;</string></plist>\n";
  std::string error;
  EXPECT_TRUE(plist::parse(doc, &error).isNil());
  EXPECT_NE(error.find("unknown entity &lol9;"), std::string::npos) << error;
}

TEST(XmlReader, RepeatedKeyKeepsTheLastValue) {
  EXPECT_EQ(inPlist("<dict><key>a</key><integer>1</integer><key>a</key><integer>2</integer>"
                    "</dict>"),
            Value(Dictionary{{"a", Value(2)}}));
}

TEST(XmlReader, AttributesAreIgnored) {
  EXPECT_EQ(read("<plist version=\"1.0\" xmlns:x='y'><dict x:a=\"1\" ><key>k</key><string "
                 "id='s'>v</string></dict></plist>"),
            Value(Dictionary{{"k", Value("v")}}));
}

TEST(XmlReader, NestingUpTo512LevelsIsRead) {
  std::string open, close;
  for (int i = 0; i < 512; ++i) open += "<array>", close += "</array>";
  Value v = inPlist(open + close);
  int depth = 0;
  while (v.isArray()) {
    ++depth;
    v = v.asArray().empty() ? Value() : v.asArray()[0];
  }
  EXPECT_EQ(depth, 512);
}

TEST(XmlRoundTrip, EveryTypeSurvivesXmlAndBinary) {
  Dictionary d;
  d["string"] = Value("h\u00E9llo \U0001F600 & <tags>");
  d["empty string"] = Value("");
  d["negative"] = Value(-123456789012345LL);
  d["min"] = Value(std::numeric_limits<std::int64_t>::min());
  d["max"] = Value(std::numeric_limits<std::int64_t>::max());
  d["unsigned"] = Value(18446744073709551615ull);
  d["small"] = Value(200);
  d["real"] = Value(0.1);
  d["nan"] = Value(std::numeric_limits<double>::quiet_NaN());
  d["inf"] = Value(HUGE_VAL);
  d["-inf"] = Value(-HUGE_VAL);
  d["true"] = Value(true);
  d["false"] = Value(false);
  d["date"] = Value(Date{817036205});
  d["past"] = Value(Date::distantPast());
  d["future"] = Value(Date::distantFuture());
  d["data"] = Value(Data(300, 0xA5));
  d["empty data"] = Value(Data{});
  d["array"] = Value(Array{Value(1), Value("two"), Value(Array{}), Value(Dictionary{})});
  d["\u4E2D\u6587 key"] = Value(Dictionary{{"\u00E9", Value("\u00E9")}});
  d["uid"] = Value(Uid{42});
  Value v(d);
  std::string x1 = xml(v);
  Value fromXml = read(x1);
  EXPECT_EQ(fromXml, v);
  std::string bin, error;
  ASSERT_TRUE(plist::toBinary(fromXml, bin, &error)) << error;
  plist::Format format = plist::Format::XML;
  Value fromBinary = plist::parse(bin, &error, &format);
  EXPECT_EQ(format, plist::Format::Binary);
  EXPECT_EQ(fromBinary, v);
  EXPECT_EQ(xml(fromBinary), x1);  // XML -> binary -> XML is byte-identical
  EXPECT_EQ(fromBinary.get("unsigned").type(), Value::Type::Unsigned);
  EXPECT_EQ(fromBinary.get("real").type(), Value::Type::Real);
  EXPECT_EQ(fromBinary.get("true").type(), Value::Type::Boolean);
  EXPECT_EQ(fromBinary.get("past").asDate().seconds, Date::distantPast().seconds);
  EXPECT_EQ(fromBinary.get("future").asDate().seconds, Date::distantFuture().seconds);
}

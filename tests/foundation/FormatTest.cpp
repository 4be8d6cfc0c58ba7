#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>

#include "platform/foundation/Format.h"

using namespace wf;

TEST(Describe, Scalars) {
  EXPECT_EQ(describe(Value()), "(null)");
  EXPECT_EQ(describe(Value::null()), "<null>");
  EXPECT_EQ(describe(Value(true)), "1");
  EXPECT_EQ(describe(Value(false)), "0");
  EXPECT_EQ(describe(Value(42)), "42");
  EXPECT_EQ(describe(Value(-7)), "-7");
  EXPECT_EQ(describe(Value(18446744073709551615ull)), "18446744073709551615");
  EXPECT_EQ(describe(Value(2.5)), "2.5");
  EXPECT_EQ(describe(Value(0.1)), "0.1");
  EXPECT_EQ(describe(Value(5.0)), "5");
  EXPECT_EQ(describe(Value("a \"b\" c")), "a \"b\" c");  // top level: as it is
  EXPECT_EQ(describe(Value("")), "");
}

TEST(Describe, Dates) {
  EXPECT_EQ(describe(Value(Date{0})), "2001-01-01 00:00:00 +0000");
  EXPECT_EQ(describe(Value(Date{817036205})), "2026-11-22 10:30:05 +0000");
  EXPECT_EQ(describe(Value(Date{817036205.9})), "2026-11-22 10:30:05 +0000");
  EXPECT_EQ(describe(Value(Date{-1})), "2000-12-31 23:59:59 +0000");
  EXPECT_EQ(describe(Value(Date::distantPast())), "0001-01-01 00:00:00 +0000");
  EXPECT_EQ(describe(Value(Date::distantFuture())), "4001-01-01 00:00:00 +0000");
}

TEST(Describe, EmptyContainers) {
  EXPECT_EQ(describe(Value(Array{})), "(\n)");
  EXPECT_EQ(describe(Value(Dictionary{})), "{\n}");
}

TEST(Describe, ArrayQuotesOnlyWhereNeeded) {
  Array a{Value("plain"),
          Value("/tmp/a_b-c.txt:$"),
          Value("two words"),
          Value(""),
          Value("say \"hi\""),
          Value("back\\slash"),
          Value(1),
          Value(true),
          Value(1.5),
          Value("\u00E9")};
  EXPECT_EQ(describe(Value(a)),
            "(\n"
            "    plain,\n"
            "    /tmp/a_b-c.txt:$,\n"
            "    \"two words\",\n"
            "    \"\",\n"
            "    \"say \\\"hi\\\"\",\n"
            "    \"back\\\\slash\",\n"
            "    1,\n"
            "    1,\n"
            "    1.5,\n"
            "    \"\u00E9\"\n"
            ")");
}

TEST(Describe, DictionarySortedKeysQuotedByTheSameRule) {
  Dictionary d;
  d["b"] = Value(1);
  d["a"] = Value("x y");
  d["c d"] = Value(Array{});
  d["e"] = Value::null();
  d["f"] = Value(Date{0});
  EXPECT_EQ(describe(Value(d)),
            "{\n"
            "    a = \"x y\";\n"
            "    b = 1;\n"
            "    \"c d\" = (\n"
            "    );\n"
            "    e = \"<null>\";\n"
            "    f = \"2001-01-01 00:00:00 +0000\";\n"
            "}");
}

TEST(Describe, NestedContainersIndentByFour) {
  Dictionary inner;
  inner["k"] = Value("v");
  Array a{Value("a"), Value(Array{Value("b"), Value(inner), Value(Dictionary{})})};
  EXPECT_EQ(describe(Value(a)),
            "(\n"
            "    a,\n"
            "    (\n"
            "        b,\n"
            "        {\n"
            "            k = v;\n"
            "        },\n"
            "        {\n"
            "        }\n"
            "    )\n"
            ")");
}

TEST(Describe, Data) {
  EXPECT_EQ(describe(Value(Data{1, 2, 0xab})), "{length = 3, bytes = 0x0102ab}");
  Data big(40, 0x11);
  big.back() = 0xff;
  EXPECT_EQ(describe(Value(big)),
            "{length = 40, bytes = 0x11111111111111111111111111111111 ... 11111111111111ff}");
}

TEST(FileURL, PercentEncodesAllButSlashAndUnreserved) {
  EXPECT_EQ(FileURL{"/Users/me/Mail Folder/\u00E9#?.txt"}.absoluteString(),
            "file:///Users/me/Mail%20Folder/%C3%A9%23%3F.txt");
  EXPECT_EQ(FileURL{"/a-b_c.d~e"}.absoluteString(), "file:///a-b_c.d~e");
  EXPECT_EQ(FileURL{"/100%"}.absoluteString(), "file:///100%25");
}

TEST(Format, ObjectsAndNil) {
  EXPECT_EQ(format("%@ and %@", Value(1), "x"), "1 and x");
  EXPECT_EQ(format("[%@]", Value()), "[(null)]");
  EXPECT_EQ(format("[%@] [%@]", Value("only")), "[only] [(null)]");  // missing argument
  EXPECT_EQ(format("%@", Value(Array{Value("a b")})), "(\n    \"a b\"\n)");
  EXPECT_EQ(format("%@", std::string("std")), "std");
  EXPECT_EQ(format("%@", FileURL{"/a b"}), "file:///a%20b");
  EXPECT_EQ(format("%@", OptError()), "(null)");
  Error e = Error::posix(ENOENT);
  EXPECT_EQ(format("failed: %@", e), "failed: Error Domain=NSPOSIXErrorDomain Code=2 \"" +
                                         std::string(std::strerror(ENOENT)) + "\"");
  EXPECT_EQ(format("%@", OptError(e)), e.describe());
}

TEST(Format, Integers) {
  EXPECT_EQ(format("%d %i %ld %lld", 1, -2, 3L, -4LL), "1 -2 3 -4");
  EXPECT_EQ(format("%u %lu %llu", 5u, 6UL, 18446744073709551615ULL), "5 6 18446744073709551615");
  EXPECT_EQ(format("%d", true), "1");
  EXPECT_EQ(format("%ld", Value(7)), "7");
  EXPECT_EQ(format("%5d|%-5d|%05d", 42, 42, -42), "   42|42   |-0042");
  EXPECT_EQ(format("%lu", std::numeric_limits<std::size_t>::max()), "18446744073709551615");
}

TEST(Format, RealsStringsCharsPercent) {
  EXPECT_EQ(format("%f", 1.5), "1.500000");
  EXPECT_EQ(format("%.2f", 3.14159), "3.14");
  EXPECT_EQ(format("%g", 0.5), "0.5");
  EXPECT_EQ(format("%g", 1e20), "1e+20");
  EXPECT_EQ(format("%s", "abc"), "abc");
  EXPECT_EQ(format("%s", std::string("std")), "std");
  EXPECT_EQ(format("%c%c", 'O', 'K'), "OK");
  EXPECT_EQ(format("100%%"), "100%");
  EXPECT_EQ(format("no args"), "no args");
  EXPECT_EQ(format("trailing %"), "trailing %");
}

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>

#include "Bplist.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"
#include "support/HostilePlist.h"

using namespace wf;
using test::Bplist;

namespace {

std::string binary(const Value& v) {
  std::string out, error;
  EXPECT_TRUE(plist::toBinary(v, out, &error)) << error;
  return out;
}

Value read(const std::string& bytes) {
  std::string error;
  Value v = plist::parse(bytes, &error);
  EXPECT_FALSE(v.isNil()) << error;
  return v;
}

struct Trailer {
  unsigned offsetSize, refSize;
  std::uint64_t count, top, table;
};

Trailer trailerOf(const std::string& b) {
  auto be = [&](std::size_t at) {
    std::uint64_t v = 0;
    for (int i = 0; i < 8; ++i) v = v << 8 | static_cast<unsigned char>(b[at + i]);
    return v;
  };
  std::size_t t = b.size() - 32;
  return {static_cast<unsigned char>(b[t + 6]), static_cast<unsigned char>(b[t + 7]), be(t + 8),
          be(t + 16), be(t + 24)};
}

}  // namespace

TEST(BinaryWriter, ByteExactSmallList) {
  std::string expected(
      "bplist00"
      "\xA2\x01\x01"  // array of two references to object 1
      "\x51"
      "a"         // the shared string
      "\x08\x0B"  // offsets
      "\0\0\0\0\0\0\x01\x01",
      23);
  expected += Bplist::be(2, 8) + Bplist::be(0, 8) + Bplist::be(13, 8);
  EXPECT_EQ(binary(Value(Array{Value("a"), Value("a")})), expected);
}

TEST(BinaryWriter, SharedStringsAndKeysAreWrittenOnce) {
  Dictionary d{{"name", Value("name")}, {"other", Value(Array(50, Value("name")))}};
  std::string b = binary(Value(d));
  Trailer t = trailerOf(b);
  EXPECT_EQ(t.count, 4u);  // dict, "name", "other", array
  EXPECT_EQ(t.refSize, 1u);
  EXPECT_EQ(t.top, 0u);
  EXPECT_EQ(read(b), Value(d));
}

TEST(BinaryWriter, NumbersOfDifferentTypesStayDistinct) {
  Array a{Value(1), Value(1.0), Value(true), Value(1), Value(1.0), Value(true)};
  std::string b = binary(Value(a));
  EXPECT_EQ(trailerOf(b).count, 4u);
  Value back = read(b);
  EXPECT_EQ(back.asArray()[0].type(), Value::Type::Integer);
  EXPECT_EQ(back.asArray()[1].type(), Value::Type::Real);
  EXPECT_EQ(back.asArray()[2].type(), Value::Type::Boolean);
}

TEST(BinaryWriter, SmallestReferenceAndOffsetSizes) {
  Array many;
  for (int i = 0; i < 300; ++i) many.push_back(Value("s" + std::to_string(i)));
  std::string b = binary(Value(many));
  Trailer t = trailerOf(b);
  EXPECT_EQ(t.count, 301u);
  EXPECT_EQ(t.refSize, 2u);
  EXPECT_EQ(t.offsetSize, 2u);
  EXPECT_EQ(read(b), Value(many));

  Trailer small = trailerOf(binary(Value(Array{Value(1)})));
  EXPECT_EQ(small.refSize, 1u);
  EXPECT_EQ(small.offsetSize, 1u);

  // Between 64 KiB and 16 MiB offsets take three bytes, as Foundation writes them.
  std::string threeByteOffsets = binary(Value(Array{Value(Data(70000, 1)), Value(2)}));
  Trailer bigOffsets = trailerOf(threeByteOffsets);
  EXPECT_EQ(bigOffsets.refSize, 1u);
  EXPECT_EQ(bigOffsets.offsetSize, 3u);
  EXPECT_EQ(read(threeByteOffsets), Value(Array{Value(Data(70000, 1)), Value(2)}));
}

TEST(BinaryWriter, ThreeByteReferencesBeyond65536Objects) {
  Array many;
  for (int i = 0; i < 70000; ++i) many.push_back(Value(i));
  std::string b = binary(Value(many));
  Trailer t = trailerOf(b);
  EXPECT_EQ(t.count, 70001u);
  EXPECT_EQ(t.refSize, 3u);
  EXPECT_EQ(t.offsetSize, 3u);
  EXPECT_EQ(read(b), Value(many));
}

TEST(BinaryWriter, EqualScalarsAndDataAreWrittenOnce) {
  // 1000 equal five-byte data values: one object, as Foundation writes it
  // (1054 bytes: 1000 one-byte references, two two-byte offsets).
  std::string b = binary(Value(Array(1000, Value(Data{1, 2, 3, 4, 5}))));
  EXPECT_EQ(b.size(), 1054u);
  EXPECT_EQ(trailerOf(b).count, 2u);
  Array mixed;
  for (int i = 0; i < 3; ++i) {
    mixed.push_back(Value("s"));
    mixed.push_back(Value(Data{9}));
    mixed.push_back(Value(Date{5}));
    mixed.push_back(Value(7));
    mixed.push_back(Value(0.5));
    mixed.push_back(Value(Uid{3}));
    mixed.push_back(Value(Array{Value(1)}));  // containers are never merged
  }
  std::string m = binary(Value(mixed));
  // the root, six scalars, three arrays and the 1 they hold
  EXPECT_EQ(trailerOf(m).count, 1u + 6u + 3u + 1u);
  EXPECT_EQ(read(m), Value(mixed));
}

TEST(BinaryWriter, UidsAsKeyedArchiveReferences) {
  auto encoded = [](std::uint64_t u) {
    std::string b = binary(Value(Array{Value(Uid{u})}));
    return b.substr(10, trailerOf(b).table - 10);
  };
  EXPECT_EQ(encoded(5), std::string("\x80\x05", 2));
  EXPECT_EQ(encoded(300), std::string("\x81\x01\x2C", 3));
  EXPECT_EQ(encoded(70000), std::string("\x83\x00\x01\x11\x70", 5));
  EXPECT_EQ(encoded(1ull << 40), "\x87" + Bplist::be(1ull << 40, 8));
  Value archive(Dictionary{{"$top", Value(Dictionary{{"root", Value(Uid{1})}})},
                           {"$objects", Value(Array{Value("$null"), Value(Uid{0})})}});
  Value back = read(binary(archive));
  EXPECT_EQ(back, archive);
  EXPECT_TRUE(back.valueForKeyPath("$top.root").isUid());
  EXPECT_EQ(back.valueForKeyPath("$top.root").asUid().value, 1u);
}

TEST(BinaryWriter, IntegerEncodings) {
  auto encoded = [](const Value& v) {
    std::string b = binary(Value(Array{v}));
    return b.substr(10, trailerOf(b).table - 10);  // the integer object
  };
  EXPECT_EQ(encoded(Value(5)), std::string("\x10\x05", 2));
  EXPECT_EQ(encoded(Value(300)), std::string("\x11\x01\x2C", 3));
  EXPECT_EQ(encoded(Value(70000)), std::string("\x12\x00\x01\x11\x70", 5));
  EXPECT_EQ(encoded(Value(5000000000LL)), "\x13" + Bplist::be(5000000000LL, 8));
  EXPECT_EQ(encoded(Value(-1)), "\x13" + std::string(8, '\xFF'));
  EXPECT_EQ(encoded(Value(18446744073709551615ull)),
            "\x14" + std::string(8, '\0') + std::string(8, '\xFF'));
}

TEST(BinaryWriter, NonAsciiStringsAsUTF16) {
  std::string b = binary(Value("\u00E9\U0001F600"));
  EXPECT_EQ(b.substr(8, 7), std::string("\x63\x00\xE9\xD8\x3D\xDE\x00", 7));
  EXPECT_EQ(read(b), Value("\u00E9\U0001F600"));
}

TEST(BinaryWriter, LongCountsUseAnIntegerObject) {
  std::string s(20, 'x');
  std::string b = binary(Value(s));
  EXPECT_EQ(b.substr(8, 3), std::string("\x5F\x10\x14", 3));
  EXPECT_EQ(read(b), Value(s));
}

TEST(BinaryWriter, UndefinedDatesAndRealsRoundTrip) {
  Value v(Array{Value(Date{std::nan("")}), Value(std::nan("")), Value(Date{HUGE_VAL})});
  EXPECT_EQ(read(binary(v)), v);
}

TEST(BinaryWriter, RefusesNilAndNull) {
  std::string out, error;
  EXPECT_FALSE(plist::toBinary(Value(Dictionary{{"a", Value::null()}}), out, &error));
  EXPECT_NE(error.find("NSNull"), std::string::npos);
  EXPECT_FALSE(plist::toBinary(Value(), out, &error));
}

TEST(BinaryReader, EveryObjectType) {
  Bplist p;
  p.objects = {
      "",  // 0: the dictionary, filled in below
      "\x51k",
      std::string("\x09"),
      std::string("\x08"),
      std::string("\x10\xFF", 2),
      "\x13" + std::string(8, '\xFF'),
      "\x22" + Bplist::be(0x3FC00000, 4),             // float 1.5
      "\x23" + Bplist::be(0x3FB999999999999AULL, 8),  // double 0.1
      "\x33" + Bplist::be(0x41C8597DD6800000ULL, 8),  // date 817036205
      std::string("\x43\x01\x02\x03"),
      std::string("\x63\x00\xE9\xD8\x3D\xDE\x00", 7),
      std::string("\x81\x01\x00", 3),  // UID 256
      std::string("\xA2\x04\x03"),
      std::string("\xC1\x05"),  // a set reads as an array
      std::string("\x52xy"),
      "\x14" + std::string(8, '\0') + std::string(8, '\xFF'),
      "\x14" + std::string(8, '\xFF') + Bplist::be(static_cast<std::uint64_t>(-5), 8),
      "\x51z",
      "\x52zz",
      "\x53zzz",
      "\x54zzzz",
      "\x55zzzzz",
      "\x56zzzzzz",
      "\x57zzzzzzz",
      "\x52qa",
      "\x52qb",
      "\x52qc",
      "\x52qd",
      "\x52qe",
  };
  const int keys[] = {1, 14, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28};
  const int values[] = {2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15, 16};
  p.objects[0] = "\xDE";
  for (int r : keys) p.objects[0] += p.ref(static_cast<std::uint64_t>(r));
  for (int r : values) p.objects[0] += p.ref(static_cast<std::uint64_t>(r));
  Value d = read(p.build());
  ASSERT_TRUE(d.isDictionary());
  EXPECT_EQ(d.get("k"), Value(true));
  EXPECT_EQ(d.get("xy"), Value(false));
  EXPECT_EQ(d.get("z"), Value(255));
  EXPECT_EQ(d.get("zz"), Value(-1));
  EXPECT_EQ(d.get("zzz"), Value(1.5));
  EXPECT_EQ(d.get("zzzz"), Value(0.1));
  EXPECT_EQ(d.get("zzzzz"), Value(Date{817036205}));
  EXPECT_EQ(d.get("zzzzzz"), Value(Data{1, 2, 3}));
  EXPECT_EQ(d.get("zzzzzzz"), Value("\u00E9\U0001F600"));
  EXPECT_EQ(d.get("qa"), Value(Uid{256}));
  EXPECT_EQ(d.get("qb"), Value(Array{Value(255), Value(false)}));
  EXPECT_EQ(d.get("qc"), Value(Array{Value(-1)}));
  Value unsignedMax = d.get("qd");
  EXPECT_EQ(unsignedMax.type(), Value::Type::Unsigned);
  EXPECT_EQ(unsignedMax.asUnsigned(), 18446744073709551615ull);
  EXPECT_EQ(d.get("qe"), Value(-5));  // 128-bit negative: the low 64 bits
}

TEST(BinaryReader, AllOffsetAndReferenceSizes) {
  for (unsigned offsetSize = 1; offsetSize <= 8; ++offsetSize) {
    for (unsigned refSize = 1; refSize <= 8; ++refSize) {
      Bplist p;
      p.offsetSize = offsetSize;
      p.refSize = refSize;
      p.objects = {"\xA3" + p.ref(1) + p.ref(2) + p.ref(1), "\x51x", std::string("\x10\x07")};
      EXPECT_EQ(read(p.build()), Value(Array{Value("x"), Value(7), Value("x")}))
          << offsetSize << " " << refSize;
    }
  }
}

TEST(BinaryReader, UidsOfEveryPayloadWidth) {
  for (unsigned width = 1; width <= 8; ++width) {
    Bplist p;
    p.objects = {"\xA1\x01",
                 static_cast<char>(0x80 | (width - 1)) + Bplist::be(200 + width, width)};
    Value v = read(p.build());
    ASSERT_TRUE(v.isArray()) << width;
    EXPECT_EQ(v.asArray()[0], Value(Uid{200 + width})) << width;
  }
}

TEST(BinaryReader, UnpairedSurrogatesBecomeReplacementCharacters) {
  Bplist p;
  p.objects = {std::string("\x62\xD8\x3D\x00\x41", 5)};
  EXPECT_EQ(read(p.build()), Value("\uFFFDA"));
}

TEST(BinaryReader, UnsortedKeysComeOutSortedAndARepeatedKeyKeepsItsLastValue) {
  // {"b": 1, "a": 2, "b": 3}, keys and values in the order a writer left them.
  Bplist p;
  p.objects = {"\xD3" + p.ref(1) + p.ref(2) + p.ref(1) + p.ref(3) + p.ref(4) + p.ref(5),
               "\x51"
               "b",
               "\x51"
               "a",
               std::string("\x10\x01"),
               std::string("\x10\x02"),
               std::string("\x10\x03")};
  Value v = read(p.build());
  ASSERT_TRUE(v.isDictionary());
  ASSERT_EQ(v.count(), 2u);
  EXPECT_EQ(v.asDictionary().begin()->first, "a");
  EXPECT_EQ(v.get("a"), Value(2));
  EXPECT_EQ(v.get("b"), Value(3));
}

TEST(BinaryReader, SharedContainersAreParsedOnce) {
  // Sixteen levels that each refer twice to the next: 2^16 paths, 17 objects.
  Bplist p;
  const int levels = 16;
  for (int i = 0; i < levels; ++i) p.objects.push_back("\xA2" + p.ref(i + 1) + p.ref(i + 1));
  p.objects.push_back("\x51x");
  Value v = read(p.build());
  for (int i = 0; i + 1 < levels; ++i) {
    ASSERT_EQ(v.count(), 2u);
    ASSERT_TRUE(v.asArray()[0].isArray());
    EXPECT_EQ(&v.asArray()[0].asArray(), &v.asArray()[1].asArray()) << i;
    v = v.asArray()[0];
  }
  EXPECT_EQ(v, Value(Array{Value("x"), Value("x")}));
}

TEST(BinaryReader, DeepButLegalNesting) {
  Bplist p;
  for (int i = 0; i < 511; ++i) p.objects.push_back("\xA1" + Bplist::be(i + 1, 2));
  p.objects.push_back(std::string("\xA0"));
  p.refSize = 2;
  p.offsetSize = 2;
  EXPECT_FALSE(read(p.build()).isNil());
}

TEST(BinaryReader, PlistlibReadsWhatWeWrite) {
  if (std::system("python3 -c 'import plistlib' >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "python3 with plistlib is not installed";
  test::TempDir dir;
  Dictionary d{{"s", Value("h\u00E9")},
               {"i", Value(-5)},
               {"u", Value(18446744073709551615ull)},
               {"r", Value(0.5)},
               {"b", Value(true)},
               {"d", Value(Date{0})},
               {"x", Value(Data{1, 2})},
               {"a", Value(Array{Value("h\u00E9"), Value(1)})}};
  test::writeFile(dir / "ours.plist", binary(Value(d)));
  std::string script =
      "import plistlib, datetime, sys\n"
      "v = plistlib.load(open(sys.argv[1], 'rb'))\n"
      "ok = v == {'s': 'h\\u00e9', 'i': -5, 'u': 2**64 - 1, 'r': 0.5, 'b': True,\n"
      "           'd': datetime.datetime(2001, 1, 1), 'x': b'\\x01\\x02', 'a': ['h\\u00e9', 1]}\n"
      "sys.exit(0 if ok else 1)\n";
  test::writeFile(dir / "check.py", script);
  std::string command = "python3 " + dir / "check.py" + " " + dir / "ours.plist";
  EXPECT_EQ(std::system(command.c_str()), 0);
}

TEST(BinaryReader, SharingThatExpandsWithoutBoundIsRefused) {
  // 298 bytes that stand for 2^64 values once every reference is followed.
  std::string hostile = test::hostileExpansionPlist(64);
  EXPECT_EQ(hostile.size(), 298u);
  std::string error;
  EXPECT_TRUE(plist::parse(hostile, &error).isNil());
  EXPECT_NE(error.find("expand to more than"), std::string::npos) << error;
  EXPECT_EQ(error.find("object "), 0u) << error;
  // Twenty levels (2^21 values) are past the budget for so small a file.
  EXPECT_TRUE(plist::parse(test::hostileExpansionPlist(20), &error).isNil());
  EXPECT_FALSE(plist::parse(test::hostileExpansionPlist(12)).isNil());
}

TEST(BinaryReader, HonestFilesWithManyReferencesToOneValuePass) {
  // Foundation shares equal scalars: two million references to one string
  // are two million values in a file of about two million bytes.
  Value big(Array(2000000, Value("same")));
  std::string b = binary(big);
  EXPECT_EQ(read(b), big);
  // A small file may still share containers a little.
  Bplist p;
  const int levels = 18;  // 2^19 values in 80 bytes: under the smallest budget
  for (int i = 0; i < levels; ++i) p.objects.push_back("\xA2" + p.ref(i + 1) + p.ref(i + 1));
  p.objects.push_back("\x09");
  EXPECT_FALSE(read(p.build()).isNil());
}

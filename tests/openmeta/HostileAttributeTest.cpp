// Attributes written by other programs: read when they are property lists,
// refused with the store's own error when they are not.
#include <gtest/gtest.h>

#include <cstdint>

#include "XAttrTestSupport.h"
#include "openmeta/OpenMeta.h"
#include "support/Fakes.h"

namespace wf::test {
namespace {

// plistlib.dumps(['Work', 'Home'], fmt=FMT_BINARY)
constexpr const char* kBinaryWorkHome =
    "0x62706c6973743030a2010254576f726b54486f6d65080b1000000000000001010000000000000003000000"
    "00000000000000000000000015";
// plistlib.dumps(4.5, fmt=FMT_BINARY)
constexpr const char* kBinaryFourAndAHalf =
    "0x62706c6973743030234012000000000000080000000000000101000000000000000100000000000000000000"
    "000000000011";

std::string fromHex(std::string_view hex) {
  if (hex.substr(0, 2) == "0x") hex.remove_prefix(2);
  std::string out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
    out.push_back(static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  return out;
}

void putBigEndian(std::string& out, std::uint64_t v, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) out.push_back(static_cast<char>((v >> (8 * i)) & 0xff));
}

// A binary property list of `depth` arrays, each holding the next.
std::string nestedBinaryArrays(int depth) {
  std::string objects;
  std::vector<std::uint64_t> offsets;
  for (int i = 0; i < depth; ++i) {
    offsets.push_back(8 + objects.size());
    if (i + 1 < depth) {
      objects.push_back(static_cast<char>(0xA1));
      putBigEndian(objects, static_cast<std::uint64_t>(i + 1), 2);
    } else {
      objects.push_back(static_cast<char>(0xA0));
    }
  }
  std::string out = "bplist00" + objects;
  const std::uint64_t tableOffset = out.size();
  for (std::uint64_t o : offsets) putBigEndian(out, o, 2);
  out.append(6, '\0');
  out.push_back(2);  // offset size
  out.push_back(2);  // reference size
  putBigEndian(out, static_cast<std::uint64_t>(depth), 8);
  putBigEndian(out, 0, 8);
  putBigEndian(out, tableOffset, 8);
  return out;
}

// An array that holds itself.
std::string cyclicBinaryArray() {
  std::string out = "bplist00";
  out.push_back(static_cast<char>(0xA1));
  out.push_back(0);  // reference to object 0: itself
  out.push_back(8);  // offset table: object 0 at 8
  out.append(6, '\0');
  out.push_back(1);
  out.push_back(1);
  putBigEndian(out, 1, 8);
  putBigEndian(out, 0, 8);
  putBigEndian(out, 10, 8);
  return out;
}

class ForeignAttributes : public ::testing::Test {
 protected:
  TempDir dir{true};
  std::string file = dir / "file";
  void SetUp() override { writeFile(file, "content"); }

  // Reads kMDItemOMUserTags and expects the store's -2 error and nothing else.
  void expectParseError() {
    OptError error;
    const Value v = OpenMeta::getXAttrMetaData("kMDItemOMUserTags", file, &error);
    EXPECT_TRUE(v.isNil());
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->domain, "openmeta");
    EXPECT_EQ(error->code, -2);
    EXPECT_EQ(error->userInfo.size(), 1u);
    // The attribute is left as the other program wrote it.
    EXPECT_TRUE(rawAttribute(file, metadataAttribute("kMDItemOMUserTags")).has_value());
  }
};

TEST_F(ForeignAttributes, BinaryPropertyListWrittenBySetfattrIsRead) {
  const ToolRun r = runTool(
      "setfattr", {"-n", "user.com.apple.metadata:kMDItemOMUserTags", "-v", kBinaryWorkHome, file});
  ASSERT_EQ(r.status, 0) << r.err;
  const Value expected(Array{Value("Work"), Value("Home")});
  EXPECT_EQ(OpenMeta::getXAttrMetaData("kMDItemOMUserTags", file, nullptr), expected);
  EXPECT_EQ(OpenMeta::getNSArrayMetaData("kMDItemOMUserTags", file, nullptr), expected);
  {
    GenerationGuard beforeFinderTags(1187);
    EXPECT_EQ(OpenMeta::getUserTags(file, nullptr), expected);
  }
  ASSERT_EQ(runTool("setfattr", {"-n", "user.com.apple.metadata:kMDItemStarRating", "-v",
                                 kBinaryFourAndAHalf, file})
                .status,
            0);
  EXPECT_EQ(OpenMeta::getRating(file, nullptr), 4.5);
}

TEST_F(ForeignAttributes, XmlPropertyListWrittenBySetfattrIsRead) {
  const std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<array>\n"
      "\t<string>Red</string>\n</array>\n</plist>\n";
  ASSERT_EQ(
      runTool("setfattr", {"-n", "user.com.apple.metadata:kMDItemOMUserTags", "-v", xml, file})
          .status,
      0);
  EXPECT_EQ(OpenMeta::getNSArrayMetaData("kMDItemOMUserTags", file, nullptr),
            Value(Array{Value("Red")}));
}

TEST_F(ForeignAttributes, TruncatedBinaryPlistIsMinus2) {
  ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kMDItemOMUserTags"),
                              fromHex(kBinaryWorkHome).substr(0, 30)));
  expectParseError();
}

TEST_F(ForeignAttributes, TruncatedXmlPlistIsMinus2) {
  ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kMDItemOMUserTags"),
                              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist "
                              "version=\"1.0\">\n<array>\n\t<string>Wo"));
  expectParseError();
}

TEST_F(ForeignAttributes, TextThatIsNoPlistIsMinus2) {
  ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kMDItemOMUserTags"), "Work,Home"));
  expectParseError();
}

TEST_F(ForeignAttributes, BinaryGarbageIsMinus2) {
  std::string garbage = "bplist00";
  for (int i = 0; i < 200; ++i) garbage.push_back(static_cast<char>(i * 37 + 11));
  ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kMDItemOMUserTags"), garbage));
  expectParseError();
}

TEST_F(ForeignAttributes, DeeplyNestedArraysAreMinus2) {
  const std::string deep = nestedBinaryArrays(600);
  ASSERT_LE(deep.size(), 4096u);
  ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kMDItemOMUserTags"), deep));
  expectParseError();
}

TEST_F(ForeignAttributes, SelfContainingArrayIsMinus2) {
  ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kMDItemOMUserTags"), cyclicBinaryArray()));
  expectParseError();
}

TEST_F(ForeignAttributes, Attribute4097BytesLongIsERANGE) {
  std::string big = fromHex(kBinaryWorkHome);
  big.resize(4097, ' ');
  ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kMDItemOMUserTags"), big));
  OptError error;
  EXPECT_TRUE(OpenMeta::getXAttrMetaData("kMDItemOMUserTags", file, &error).isNil());
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->domain, "NSPOSIXErrorDomain");
  EXPECT_EQ(error->code, 34);
  EXPECT_EQ(error->userInfo.size(), 1u);
}

TEST_F(ForeignAttributes, HostileTagListNeverReachesTheTagOperations) {
  ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kMDItemOMUserTags"), "garbage"));
  // The tag operations report the read error and write nothing.
  const OptError cleared = OpenMeta::clearUserTags(Value(Array{Value("x")}), file);
  ASSERT_TRUE(cleared.has_value());
  EXPECT_EQ(cleared->code, -2);
  const OptError added = OpenMeta::addUserTags(Value(Array{Value("x")}), file);
  ASSERT_TRUE(added.has_value());
  EXPECT_EQ(added->code, -2);
  EXPECT_EQ(rawAttribute(file, metadataAttribute("kMDItemOMUserTags")), std::string("garbage"));
  EXPECT_FALSE(rawAttribute(file, metadataAttribute("kMDItemOMUserTagTime")).has_value());
}

TEST_F(ForeignAttributes, NumbersInAStoredTagListAreLeftOutOnRead) {
  ASSERT_FALSE(
      OpenMeta::setXAttrMetaData(Value(Array{Value(1), Value("a")}), "kMDItemOMUserTags", file)
          .has_value());
  // Common tags skip what is not a string rather than failing on it.
  TempDir other(true);
  writeFile(other / "f", "");
  ASSERT_FALSE(OpenMeta::setUserTags(Value(Array{Value("A")}), other / "f").has_value());
  EXPECT_EQ(OpenMeta::getCommonUserTags({file, other / "f"}, nullptr), Value(Array{Value("a")}));
}

}  // namespace
}  // namespace wf::test

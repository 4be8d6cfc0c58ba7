// The attribute codec: names, value formats, the size limit and the errors.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "XAttrTestSupport.h"
#include "openmeta/OpenMeta.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"

namespace wf::test {
namespace {

std::string infoOf(const Error& e) {
  const Value* info = e.userInfo.count("info") ? &e.userInfo.at("info") : nullptr;
  return info && info->isString() ? info->asString() : std::string("<no info>");
}

void expectStoreError(const OptError& e, long code, const std::string& info) {
  ASSERT_TRUE(e.has_value());
  EXPECT_EQ(e->domain, "openmeta");
  EXPECT_EQ(e->code, code);
  EXPECT_EQ(e->userInfo.size(), 1u);
  EXPECT_EQ(infoOf(*e), info);
}

void expectPosixError(const OptError& e, int err) {
  ASSERT_TRUE(e.has_value());
  EXPECT_EQ(e->domain, "NSPOSIXErrorDomain");
  EXPECT_EQ(e->code, err);
  EXPECT_EQ(e->userInfo.size(), 1u);
  EXPECT_EQ(infoOf(*e), OpenMeta::errnoString(err));
}

// A string value whose serialised form in `format` is exactly `size` bytes.
Value valueOfSerialisedSize(std::size_t size, plist::Format format) {
  for (std::size_t n = size; n > 0; --n) {
    Value v(std::string(n, 'x'));
    std::string bytes;
    if (!plist::serialize(v, format, bytes)) return Value();
    if (bytes.size() == size) return v;
  }
  return Value();
}

// A marker error that must survive calls that leave the error out alone.
OptError sentinel() {
  Error e;
  e.domain = "sentinel";
  e.code = 4711;
  return e;
}

class XAttrCodec : public ::testing::Test {
 protected:
  TempDir dir{true};  // tmpfs: stores values of the full 4096 bytes
  std::string file = dir / "file";
  void SetUp() override { writeFile(file, "content"); }
};

TEST(OpenMetaNames, KeysAndErrnoString) {
  EXPECT_EQ(OpenMeta::spotlightKey("kMDItemOMUserTags"), "com.apple.metadata:kMDItemOMUserTags");
  EXPECT_EQ(OpenMeta::openmetaKey("x"), "org.openmetainfo:x");
  EXPECT_EQ(OpenMeta::errnoString(ENODATA), "errno error: 61, No data available");
  EXPECT_EQ(OpenMeta::errnoString(34), "errno error: 34, Numerical result out of range");
  EXPECT_EQ(OpenMeta::errnoString(-7).rfind("errno error: -7, ", 0), 0u);
}

TEST_F(XAttrCodec, RoundTripsEveryValueType) {
  Dictionary d;
  d.emplace("s", Value("text é"));
  d.emplace("i", Value(42));
  d.emplace("r", Value(2.5));
  d.emplace("b", Value(true));
  d.emplace("d", Value(Date{123456.0}));  // XML dates keep whole seconds
  d.emplace("data", Value(Data{0, 1, 2, 255}));
  d.emplace("a", Value(Array{Value("x"), Value(Array{})}));
  const Value v(d);
  EXPECT_FALSE(OpenMeta::setXAttrMetaData(v, "kTest", file).has_value());
  OptError error = sentinel();
  EXPECT_EQ(OpenMeta::getXAttrMetaData("kTest", file, &error), v);
  EXPECT_FALSE(error.has_value()) << "a successful read resets the error out";
  // The Linux name: "user." + the OpenMeta name.
  EXPECT_TRUE(rawAttribute(file, "user.com.apple.metadata:kTest").has_value());
}

TEST_F(XAttrCodec, BareNameIsStoredWithoutPrefix) {
  EXPECT_FALSE(OpenMeta::setXAttr(Value(true), "kOM109SyncDone", file).has_value());
  EXPECT_TRUE(rawAttribute(file, "user.kOM109SyncDone").has_value());
  EXPECT_EQ(OpenMeta::getXAttr("kOM109SyncDone", file, nullptr), Value(true));
}

TEST_F(XAttrCodec, ValueOfExactly4096BytesIsWrittenAnd4097IsRefused) {
  const Value fits = valueOfSerialisedSize(4096, plist::Format::XML);
  const Value tooBig = valueOfSerialisedSize(4097, plist::Format::XML);
  ASSERT_FALSE(fits.isNil());
  ASSERT_FALSE(tooBig.isNil());
  EXPECT_FALSE(OpenMeta::setXAttrMetaData(fits, "kBig", file).has_value());
  const auto stored = rawAttribute(file, metadataAttribute("kBig"));
  ASSERT_TRUE(stored.has_value());
  EXPECT_EQ(stored->size(), 4096u);
  EXPECT_EQ(OpenMeta::getXAttrMetaData("kBig", file, nullptr), fits);

  expectStoreError(OpenMeta::setXAttrMetaData(tooBig, "kBig", file), -5,
                   "Meta data is too big - size as binary plist must be less than (perhaps 4k?) "
                   "some number of bytes");
  EXPECT_EQ(rawAttribute(file, metadataAttribute("kBig")), stored) << "left as it was";
}

// ext4 without large attributes cannot hold 4096 bytes: the store reports
// the file system's refusal as it is, and the old value stays.
TEST(XAttrCodecOnDisk, FullSizeValueIsStoredOrRefusedByTheFileSystem) {
  TempDir disk(false);
  const std::string file = disk / "file";
  writeFile(file, "content");
  ASSERT_FALSE(OpenMeta::setXAttrMetaData(Value("old"), "kBig", file).has_value());
  const auto before = rawAttribute(file, metadataAttribute("kBig"));
  const Value fits = valueOfSerialisedSize(4096, plist::Format::XML);
  const OptError e = OpenMeta::setXAttrMetaData(fits, "kBig", file);
  if (!e) {
    EXPECT_EQ(OpenMeta::getXAttrMetaData("kBig", file, nullptr), fits);
    return;
  }
  expectPosixError(e, ENOSPC);
  EXPECT_EQ(rawAttribute(file, metadataAttribute("kBig")), before);
}

TEST_F(XAttrCodec, BinaryGenerationHasTheSameLimit) {
  GenerationGuard binary(1265);
  const Value fits = valueOfSerialisedSize(4096, plist::Format::Binary);
  const Value tooBig = valueOfSerialisedSize(4097, plist::Format::Binary);
  ASSERT_FALSE(fits.isNil());
  ASSERT_FALSE(tooBig.isNil());
  EXPECT_FALSE(OpenMeta::setXAttrMetaData(fits, "kBig", file).has_value());
  EXPECT_EQ(rawAttribute(file, metadataAttribute("kBig"))->size(), 4096u);
  EXPECT_EQ(OpenMeta::setXAttrMetaData(tooBig, "kBig", file)->code, -5);
}

TEST_F(XAttrCodec, NilRemovesTheAttributeAndRemovingAgainIsENODATA) {
  ASSERT_FALSE(OpenMeta::setXAttrMetaData(Value(3.0), "kMDItemStarRating", file).has_value());
  ASSERT_TRUE(rawAttribute(file, "user.com.apple.metadata:kMDItemStarRating").has_value());
  EXPECT_FALSE(OpenMeta::setXAttrMetaData(Value(), "kMDItemStarRating", file).has_value());
  EXPECT_FALSE(rawAttribute(file, "user.com.apple.metadata:kMDItemStarRating").has_value());
  expectPosixError(OpenMeta::setXAttrMetaData(Value(), "kMDItemStarRating", file), ENODATA);
  EXPECT_EQ(ENODATA, 61);
}

TEST_F(XAttrCodec, MissingAttributeIsNilAndLeavesTheErrorOutAlone) {
  OptError error = sentinel();
  EXPECT_TRUE(OpenMeta::getXAttrMetaData("kAbsent", file, &error).isNil());
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->domain, "sentinel");
  EXPECT_EQ(error->code, 4711);
  // Without an error out it is just nil.
  EXPECT_TRUE(OpenMeta::getXAttrMetaData("kAbsent", file, nullptr).isNil());
}

TEST_F(XAttrCodec, AttributeLongerThan4096BytesIsERANGE) {
  ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kLong"), std::string(4097, 'x')));
  OptError error;
  EXPECT_TRUE(OpenMeta::getXAttrMetaData("kLong", file, &error).isNil());
  expectPosixError(error, ERANGE);
  EXPECT_EQ(ERANGE, 34);
}

TEST_F(XAttrCodec, AttributeOfExactly4096RawBytesIsReadInFull) {
  const Value v = valueOfSerialisedSize(4096, plist::Format::Binary);
  std::string bytes;
  ASSERT_TRUE(plist::toBinary(v, bytes));
  ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kFull"), bytes));
  EXPECT_EQ(OpenMeta::getXAttrMetaData("kFull", file, nullptr), v);
}

TEST_F(XAttrCodec, BytesThatAreNoPropertyListGiveMinus2) {
  ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kJunk"), "this is not a plist"));
  OptError error;
  EXPECT_TRUE(OpenMeta::getXAttrMetaData("kJunk", file, &error).isNil());
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->domain, "openmeta");
  EXPECT_EQ(error->code, -2);
  EXPECT_EQ(error->userInfo.size(), 1u);
  EXPECT_FALSE(infoOf(*error).empty()) << "the parser's own message";
}

TEST_F(XAttrCodec, ZeroLengthAttributeIsAPosixError) {
  ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kEmpty"), ""));
  OptError error;
  EXPECT_TRUE(OpenMeta::getXAttrMetaData("kEmpty", file, &error).isNil());
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->domain, "NSPOSIXErrorDomain");
}

TEST_F(XAttrCodec, UnserialisableValueGivesMinus2AndWritesNothing) {
  const Value v(Array{Value("a"), Value::null()});
  const OptError e = OpenMeta::setXAttrMetaData(v, "kNull", file);
  ASSERT_TRUE(e.has_value());
  EXPECT_EQ(e->domain, "openmeta");
  EXPECT_EQ(e->code, -2);
  EXPECT_FALSE(rawAttribute(file, metadataAttribute("kNull")).has_value());
}

TEST_F(XAttrCodec, EmptyPathOrPathWithoutRepresentationIsMinus1BeforeAnySystemCall) {
  expectStoreError(OpenMeta::setXAttrMetaData(Value("a"), "kS", ""), -1,
                   "Open Meta parameter error");
  OptError error;
  EXPECT_TRUE(OpenMeta::getXAttrMetaData("kS", "", &error).isNil());
  expectStoreError(error, -1, "Open Meta parameter error");

  // A NUL byte: were the call made, it would reach the real file in front of it.
  ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kS"), "<string>old</string>"));
  const std::string truncated = file + std::string("\0tail", 5);
  expectStoreError(OpenMeta::setXAttrMetaData(Value(), "kS", truncated), -1,
                   "Open Meta parameter error");
  expectStoreError(OpenMeta::setXAttrMetaData(Value("new"), "kS", truncated), -1,
                   "Open Meta parameter error");
  EXPECT_EQ(rawAttribute(file, metadataAttribute("kS")), std::string("<string>old</string>"));
  error.reset();
  EXPECT_TRUE(OpenMeta::getXAttrMetaData("kS", truncated, &error).isNil());
  expectStoreError(error, -1, "Open Meta parameter error");
}

TEST_F(XAttrCodec, MissingFileIsENOENT) {
  expectPosixError(OpenMeta::setXAttrMetaData(Value("a"), "kS", dir / "absent"), ENOENT);
  OptError error;
  EXPECT_TRUE(OpenMeta::getXAttrMetaData("kS", dir / "absent", &error).isNil());
  expectPosixError(error, ENOENT);
}

TEST_F(XAttrCodec, CurrentGenerationWritesXML) {
  ASSERT_FALSE(OpenMeta::setXAttrMetaData(Value("a"), "kS", file).has_value());
  const auto bytes = rawAttribute(file, metadataAttribute("kS"));
  ASSERT_TRUE(bytes.has_value());
  EXPECT_EQ(bytes->rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>", 0), 0u) << *bytes;
  EXPECT_NE(bytes->find("<string>a</string>"), std::string::npos);
}

TEST_F(XAttrCodec, OlderGenerationWritesBinaryAndReadsBoth) {
  {
    GenerationGuard older(1342.9);
    ASSERT_FALSE(OpenMeta::setXAttrMetaData(Value("a"), "kS", file).has_value());
    const auto bytes = rawAttribute(file, metadataAttribute("kS"));
    ASSERT_TRUE(bytes.has_value());
    EXPECT_EQ(bytes->substr(0, 8), "bplist00");
    ASSERT_TRUE(setRawAttribute(file, metadataAttribute("kX"),
                                "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist "
                                "version=\"1.0\">\n<string>b</string>\n</plist>\n"));
    EXPECT_EQ(OpenMeta::getXAttrMetaData("kX", file, nullptr), Value("b"));
  }
  // The current generation reads the binary value too.
  EXPECT_EQ(OpenMeta::getXAttrMetaData("kS", file, nullptr), Value("a"));
}

TEST_F(XAttrCodec, GenerationBoundaryIs1343) {
  GenerationGuard exactly(1343.0);
  ASSERT_FALSE(OpenMeta::setXAttrMetaData(Value("a"), "kS", file).has_value());
  EXPECT_EQ(rawAttribute(file, metadataAttribute("kS"))->rfind("<?xml", 0), 0u);
}

}  // namespace
}  // namespace wf::test

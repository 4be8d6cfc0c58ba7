// Whatever a message file holds, the import never changes its bytes.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "ImportSupport.h"
#include "platform/plist/PropertyList.h"

namespace wf {
namespace {

using test::emlxBytes;
using test::wrenfoldTrailer;
using test::xmlTrailer;

struct HostileMessage {
  const char* name;
  std::string bytes;
};

std::string binaryTrailer() {
  std::string out;
  plist::toBinary(
      Value(Dictionary{{"wrenfold", Value(Dictionary{{"wrenfoldPriority", Value(5)}})}}), out);
  return out;
}

std::vector<HostileMessage> hostileMessages() {
  std::string good = wrenfoldTrailer({{"wrenfoldKeyWords", Value(Array{Value("a")})}});
  Array many;
  for (int i = 0; i < 600; ++i) many.emplace_back("keyword number " + std::to_string(i));
  return {
      {"garbage", emlxBytes("body", "\x01\x02garbage\xff")},
      {"truncated", emlxBytes("body", good.substr(0, good.size() / 2))},
      {"count past the end", "5000\nshort" + good},
      {"4 GiB count", "4294967296\nbody" + good},
      {"negative count", "-12\nbody" + good},
      {"binary plist", emlxBytes("body", binaryTrailer())},
      {"no wrenfold dictionary", emlxBytes("body", xmlTrailer(Value(Dictionary{{"a", Value(1)}})))},
      {"wrenfold is a string",
       emlxBytes("body", xmlTrailer(Value(Dictionary{{"wrenfold", Value("x")}})))},
      {"trailer is an array", emlxBytes("body", xmlTrailer(Value(Array{Value(1)})))},
      {"count line of 11 digits", "00000000004\nbody" + good},
      {"empty", ""},
      {"only a line feed", "\n"},
      {"NUL bytes", std::string("12\0\0\0\0\0\0\0\0\0\0\0\0\0", 15) + good},
      {"values too big for an attribute",
       emlxBytes("body", wrenfoldTrailer({{"wrenfoldKeyWords", Value(many)},
                                          {"wrenfoldAnnotation", Value(std::string(8000, 'n'))}}))},
      {"well formed", emlxBytes("From: a@b\r\n\r\nHello\r\n", good)},
  };
}

struct FileState {
  std::string bytes;
  timespec mtime{};
  off_t size = 0;
};

FileState stateOf(const std::string& path) {
  FileState s;
  s.bytes = test::readFile(path);
  struct stat st;
  if (stat(path.c_str(), &st) == 0) {
    s.mtime = st.st_mtim;
    s.size = st.st_size;
  }
  return s;
}

class MessageSafety : public ::testing::Test, protected test::ImportFixture {};

TEST_F(MessageSafety, ImportNeverChangesTheBytesOfAMessage) {
  setLogOpenMeta(true);
  const Date stamp{790000000.0}, later{795000000.0};
  std::vector<Value> attributeSets = {
      Value(),
      Value(Dictionary{{"kMDItemWrenfoldTimeStamp", Value(stamp)},
                       {"kMDItemOMUserTagTime", Value(later)},
                       {"kMDItemOMUserTags", Value(Array{Value("om")})}}),
      Value(Dictionary{{"kMDItemWrenfoldTimeStamp", Value(stamp)},
                       {"kMDItemKeywords", Value("not an array")}}),
  };
  int n = 0;
  for (bool recognize : {false, true}) {
    setRecognizeOpenMetaTags(recognize);
    for (const auto& attributes : attributeSets) {
      for (const auto& message : hostileMessages()) {
        std::string path = writeMessage(std::to_string(++n) + ".emlx", message.bytes);
        FileState before = stateOf(path);
        delegate->importWrenfoldMetadataAtPath(path, attributes);
        delegate->delayedImport({path});
        FileState after = stateOf(path);
        EXPECT_EQ(after.bytes, before.bytes) << message.name;
        EXPECT_EQ(after.size, before.size) << message.name;
        EXPECT_EQ(after.mtime.tv_sec, before.mtime.tv_sec) << message.name;
        EXPECT_EQ(after.mtime.tv_nsec, before.mtime.tv_nsec) << message.name;
      }
    }
  }
}

TEST_F(MessageSafety, HostileTrailersImportNothing) {
  setLogOpenMeta(true);
  for (const auto& message : hostileMessages()) {
    std::string name = message.name;
    if (name == "binary plist" || name == "well formed" ||
        name == "values too big for an attribute")
      continue;  // these carry metadata that is imported
    std::string path = writeMessage("h.emlx", message.bytes);
    delegate->importWrenfoldMetadataAtPath(path, Value());
    EXPECT_TRUE(test::spotlightKeys(path).empty()) << name;
  }
}

TEST_F(MessageSafety, BinaryTrailerIsImported) {
  std::string path = writeMessage("b.emlx", emlxBytes("body", binaryTrailer()));
  delegate->importWrenfoldMetadataAtPath(path, Value());
  EXPECT_EQ(test::spotlightAttribute(path, "kMDItemStarRating"), Value(5));
}

TEST_F(MessageSafety, ValueTooBigForAnAttributeLeavesTheOthersWritten) {
  Array many;
  for (int i = 0; i < 600; ++i) many.emplace_back("keyword number " + std::to_string(i));
  std::string path = writeMessage(
      "big.emlx", emlxBytes("body", wrenfoldTrailer({{"wrenfoldKeyWords", Value(many)},
                                                     {"wrenfoldPriority", Value(1)}})));
  delegate->importWrenfoldMetadataAtPath(path, Value());
  EXPECT_FALSE(test::hasSpotlightAttribute(path, "kMDItemKeywords"));
  EXPECT_EQ(test::spotlightAttribute(path, "kMDItemStarRating"), Value(1));
  EXPECT_EQ(test::spotlightAttribute(path, "kMDItemWrenfoldTimeStamp"),
            Value(Date{fake.clock.now_}));
}

}  // namespace
}  // namespace wf

#include <gtest/gtest.h>

#include <algorithm>

#include "ImportSupport.h"
#include "import/OpenMetaFolderWatcher.h"

namespace wf {
namespace {

using test::emlxBytes;
using test::exists;
using test::setSpotlightAttribute;
using test::wrenfoldTrailer;

const char* kStartSelector = "startOpenMetaFolderWatcher";
const char* kStopSelector = "stopOpenMetaFolderWatcher";

class OpenMetaFolderWatcher : public ::testing::Test, protected test::ImportFixture {
 protected:
  std::string mailStore() const { return fake.library() + "/Mail/V2"; }
  std::string message(const std::string& name) {
    return writeMessage(
        name, emlxBytes("body", wrenfoldTrailer({{"wrenfoldKeyWords", Value(Array{Value("k")})}})));
  }
  std::size_t importsStarted() const {
    std::size_t n = 0;
    for (const auto& m : importMessages())
      if (m.rfind("OpenMeta Importing... TimeStamps", 0) == 0) ++n;
    return n;
  }
};

TEST_F(OpenMetaFolderWatcher, StartWatchesTheMailStoreWithFiveSecondsLatency) {
  setLogOpenMeta(true);
  EXPECT_EQ(delegate->startOpenMetaFolderWatcher(), 1);
  ASSERT_EQ(fake.fileEvents.streams.size(), 1u);
  auto* stream = fake.fileEvents.streams[0];
  EXPECT_EQ(stream->params.paths, std::vector<std::string>{mailStore()});
  EXPECT_DOUBLE_EQ(stream->params.latency, 5.0);
  EXPECT_FALSE(stream->params.ignoreSelf);
  EXPECT_TRUE(stream->params.fileEvents);
  EXPECT_TRUE(stream->started);
  EXPECT_TRUE(delegate->hasOpenMetaStream());
  EXPECT_EQ(keyedMessages(kStartSelector),
            (std::vector<std::string>{"starting set up OpenMeta Listener for Path: " + mailStore(),
                                      "Successfully set up OpenMeta Listener"}));
}

TEST_F(OpenMetaFolderWatcher, TheHelpersOwnDefaultSetsTheLatency) {
  fake.defaults.own = Dictionary{{"openMetaStreamLatency", Value(0.25)}};
  EXPECT_EQ(delegate->startOpenMetaFolderWatcher(), 1);
  ASSERT_EQ(fake.fileEvents.streams.size(), 1u);
  EXPECT_DOUBLE_EQ(fake.fileEvents.streams[0]->params.latency, 0.25);
}

TEST_F(OpenMetaFolderWatcher, TheCommandLineSetsTheLatencyAsText) {
  fake.defaults.own = Dictionary{{"openMetaStreamLatency", Value(0.25)}};
  fake.defaults.arguments = Dictionary{{"openMetaStreamLatency", Value("1.5")}};
  EXPECT_EQ(delegate->startOpenMetaFolderWatcher(), 1);
  ASSERT_EQ(fake.fileEvents.streams.size(), 1u);
  EXPECT_DOUBLE_EQ(fake.fileEvents.streams[0]->params.latency, 1.5);
}

TEST(OpenMetaStreamLatency, AnythingButSecondsWithinTheBoundsKeepsFiveSeconds) {
  const std::vector<Value> others{Value(),
                                  Value(0),
                                  Value(-1),
                                  Value(0.05),
                                  Value(61),
                                  Value(1e300),
                                  Value("fast"),
                                  Value("nan"),
                                  Value(true),
                                  Value(Array{Value(1)}),
                                  Value(Dictionary{})};
  for (std::size_t i = 0; i < others.size(); ++i)
    EXPECT_DOUBLE_EQ(openMetaStreamLatency(others[i]), 5.0) << "value #" << i;
  EXPECT_DOUBLE_EQ(openMetaStreamLatency(Value(1)), 1.0);
  EXPECT_DOUBLE_EQ(openMetaStreamLatency(Value(0.1)), 0.1);
  EXPECT_DOUBLE_EQ(openMetaStreamLatency(Value("60")), 60.0);
}

TEST_F(OpenMetaFolderWatcher, StartLogsNothingWhenTheKeyIsOff) {
  EXPECT_EQ(delegate->startOpenMetaFolderWatcher(), 1);
  EXPECT_TRUE(fake.log.lines.empty());
}

TEST_F(OpenMetaFolderWatcher, StreamNotCreatedLeavesNoWatcher) {
  setLogOpenMeta(true);
  fake.fileEvents.failCreate = true;
  EXPECT_EQ(delegate->startOpenMetaFolderWatcher(), 0);
  EXPECT_FALSE(delegate->hasOpenMetaStream());
  EXPECT_EQ(keyedMessages(kStartSelector),
            std::vector<std::string>{"starting set up OpenMeta Listener for Path: " + mailStore()});
  // A later start tries again.
  fake.fileEvents.failCreate = false;
  EXPECT_EQ(delegate->startOpenMetaFolderWatcher(), 1);
}

TEST_F(OpenMetaFolderWatcher, NoLibraryFolderMakesNoStream) {
  setLogOpenMeta(true);
  fake.environment.libraries_.clear();
  EXPECT_EQ(delegate->startOpenMetaFolderWatcher(), 0);
  EXPECT_EQ(fake.fileEvents.created, 0);
  EXPECT_FALSE(delegate->hasOpenMetaStream());
  EXPECT_EQ(keyedMessages(kStartSelector),
            std::vector<std::string>{"starting set up OpenMeta Listener for Path: (null)"});
}

TEST_F(OpenMetaFolderWatcher, StreamThatCannotStartIsReleasedButCountsAsPresent) {
  setLogOpenMeta(true);
  fake.fileEvents.failStart = true;
  EXPECT_EQ(delegate->startOpenMetaFolderWatcher(), 0);
  EXPECT_EQ(fake.fileEvents.created, 1);
  EXPECT_EQ(fake.fileEvents.destroyed, 1);
  EXPECT_TRUE(fake.fileEvents.streams.empty());
  EXPECT_TRUE(delegate->hasOpenMetaStream());
  EXPECT_EQ(delegate->_openMetaStreamRef, nullptr);
  EXPECT_EQ(keyedMessages(kStartSelector),
            (std::vector<std::string>{"starting set up OpenMeta Listener for Path: " + mailStore(),
                                      "failed to start the OpenMeta Listener\n"}));
}

TEST_F(OpenMetaFolderWatcher, PreferencesMakeNoSecondAttemptAfterAFailedStart) {
  fake.fileEvents.failStart = true;
  delegate->preferencesDidChange(nullptr);
  EXPECT_EQ(fake.fileEvents.created, 1);
  fake.fileEvents.failStart = false;
  delegate->preferencesDidChange(nullptr);
  delegate->preferencesDidChange(nullptr);
  EXPECT_EQ(fake.fileEvents.created, 1);
  EXPECT_TRUE(delegate->hasOpenMetaStream());
}

TEST_F(OpenMetaFolderWatcher, StopAfterAFailedStartTouchesNoStream) {
  setLogOpenMeta(true);
  fake.fileEvents.failStart = true;
  delegate->startOpenMetaFolderWatcher();
  delegate->stopOpenMetaFolderWatcher();
  delegate->stopOpenMetaFolderWatcher();
  EXPECT_EQ(fake.fileEvents.destroyed, 1);
  EXPECT_TRUE(delegate->hasOpenMetaStream());
  EXPECT_EQ(keyedMessages(kStopSelector).size(), 2u);
}

// Records the order in which the delegate stops and releases its stream.
class OrderedStream : public platform::FileEventStream {
 public:
  explicit OrderedStream(std::vector<std::string>& events) : events_(events) {}
  ~OrderedStream() override { events_.push_back("release"); }
  bool start() override {
    events_.push_back("start");
    return true;
  }
  void stop() override { events_.push_back("stop"); }

 private:
  std::vector<std::string>& events_;
};

class OrderedStreamFactory : public platform::FileEventStreamFactory {
 public:
  std::unique_ptr<platform::FileEventStream> create(const platform::FileEventStreamParams&,
                                                    platform::FileEventCallback) override {
    return std::make_unique<OrderedStream>(events);
  }
  std::vector<std::string> events;
};

TEST_F(OpenMetaFolderWatcher, StopStopsThenReleasesTheStream) {
  setLogOpenMeta(true);
  OrderedStreamFactory factory;
  platform::Services services = fake.services();
  services.fileEvents = factory;
  delegate.reset();
  delegate = std::make_unique<WFHelperAppDelegate>(services);
  ASSERT_EQ(delegate->startOpenMetaFolderWatcher(), 1);
  delegate->stopOpenMetaFolderWatcher();
  EXPECT_EQ(factory.events, (std::vector<std::string>{"start", "stop", "release"}));
  EXPECT_FALSE(delegate->hasOpenMetaStream());
  EXPECT_EQ(keyedMessages(kStopSelector),
            std::vector<std::string>{"Stopping the OpenMeta Listener"});
  // A second stop finds nothing to stop.
  delegate->stopOpenMetaFolderWatcher();
  EXPECT_EQ(factory.events.size(), 3u);
}

TEST_F(OpenMetaFolderWatcher, StopWithoutStreamDoesNothing) {
  setLogOpenMeta(true);
  delegate->stopOpenMetaFolderWatcher();
  EXPECT_TRUE(fake.log.lines.empty());
  EXPECT_EQ(fake.fileEvents.destroyed, 0);
}

TEST_F(OpenMetaFolderWatcher, CallbackSchedulesTheMessagePathsHalfASecondLater) {
  delegate->startOpenMetaFolderWatcher();
  auto* stream = fake.fileEvents.streams.at(0);
  stream->fire({mailStore() + "/INBOX.mbox/Info.plist", mailStore() + "/INBOX.mbox/1.emlx"});
  EXPECT_EQ(fake.loop.pendingDelays(), std::vector<double>{0.5});
}

TEST_F(OpenMetaFolderWatcher, CallbackWithoutMessageFilesSchedulesNothing) {
  delegate->startOpenMetaFolderWatcher();
  fake.fileEvents.streams.at(0)->fire({mailStore() + "/a.plist", mailStore() + "/b.emlxx"});
  EXPECT_EQ(fake.loop.pendingCount(), 0u);
}

TEST_F(OpenMetaFolderWatcher, UpperCaseExtensionIsDroppedByTheSuffixTest) {
  setLogOpenMeta(true);
  std::string upper = writeMessage("5.EMLX", emlxBytes("body", wrenfoldTrailer({})));
  delegate->startOpenMetaFolderWatcher();
  fake.fileEvents.streams.at(0)->fire({upper, messages / "6.Emlx"});
  EXPECT_EQ(fake.loop.pendingCount(), 0u);
  fake.loop.advance(1.0);
  EXPECT_EQ(importsStarted(), 0u);
}

TEST_F(OpenMetaFolderWatcher, ChangedMessageIsImportedAfterHalfASecond) {
  setLogOpenMeta(true);
  std::string path = message("7.emlx");
  delegate->startOpenMetaFolderWatcher();
  fake.fileEvents.streams.at(0)->fire({path});
  fake.loop.advance(0.49);
  EXPECT_FALSE(test::hasSpotlightAttribute(path, "kMDItemKeywords"));
  fake.loop.advance(0.02);
  EXPECT_EQ(test::spotlightAttribute(path, "kMDItemKeywords"), Value(Array{Value("k")}));
  EXPECT_EQ(fake.log.count("emlx file changed: " + path), 1u);
}

TEST_F(OpenMetaFolderWatcher, TwoCallbacksWithinHalfASecondImportTwice) {
  setLogOpenMeta(true);
  std::string path = message("8.emlx");
  delegate->startOpenMetaFolderWatcher();
  auto* stream = fake.fileEvents.streams.at(0);
  stream->fire({path});
  fake.loop.advance(0.2);
  stream->fire({path});
  EXPECT_EQ(fake.loop.pendingCount(), 2u);
  fake.loop.advance(1.0);
  EXPECT_EQ(fake.log.count("emlx file changed: " + path), 2u);
  EXPECT_EQ(importsStarted(), 2u);
}

TEST_F(OpenMetaFolderWatcher, ABatchLargerThanASliceIsImportedWholeAndInOrder) {
  setLogOpenMeta(true);
  std::vector<std::string> paths;
  for (std::size_t i = 0; i < 2 * kOpenMetaImportSlice + 5; ++i)
    paths.push_back(message(std::to_string(100 + i) + ".emlx"));
  delegate->startOpenMetaFolderWatcher();
  fake.fileEvents.streams.at(0)->fire(paths);
  fake.loop.advance(0.49);
  EXPECT_EQ(importsStarted(), 0u);
  fake.loop.advance(0.02);  // the slices follow one another at once
  EXPECT_EQ(importsStarted(), paths.size());
  std::vector<std::string> changed;
  for (const auto& line : fake.log.lines)
    if (line.rfind("emlx file changed: ", 0) == 0) changed.push_back(line.substr(19));
  EXPECT_EQ(changed, paths);
}

TEST_F(OpenMetaFolderWatcher, PendingImportOutlivingTheDelegateDoesNothing) {
  std::string path = message("9.emlx");
  delegate->startOpenMetaFolderWatcher();
  fake.fileEvents.streams.at(0)->fire({path});
  delegate.reset();
  fake.loop.advance(1.0);
  EXPECT_FALSE(test::hasSpotlightAttribute(path, "kMDItemKeywords"));
}

// delayedImport

TEST_F(OpenMetaFolderWatcher, VanishedMessageProducesNoImportAndNoMessage) {
  setLogOpenMeta(true);
  delegate->delayedImport({messages / "gone.emlx"});
  EXPECT_TRUE(fake.log.lines.empty());
}

TEST_F(OpenMetaFolderWatcher, ExtensionMustBeEmlxExactly) {
  setLogOpenMeta(true);
  std::string upper = writeMessage("3.EMLX", emlxBytes("body", wrenfoldTrailer({})));
  delegate->delayedImport({upper});
  EXPECT_TRUE(fake.log.lines.empty());
}

TEST_F(OpenMetaFolderWatcher, ChangedLineIsWrittenOnlyWhenLogOpenMetaIsOn) {
  std::string path = message("10.emlx");
  delegate->delayedImport({path});
  EXPECT_TRUE(fake.log.lines.empty());
  setLogOpenMeta(true);
  delegate->delayedImport({path});
  EXPECT_EQ(fake.log.count("emlx file changed: " + path), 1u);
}

TEST_F(OpenMetaFolderWatcher, NoSpotlightAttributesImportsWithoutExistingAttributes) {
  setLogOpenMeta(true);
  std::string path = message("11.emlx");
  delegate->delayedImport({path});
  ASSERT_EQ(importsStarted(), 1u);
  EXPECT_EQ(importMessages()[0], "OpenMeta Importing... TimeStamps OM: (null) WF: " +
                                     describe(Value(Date::distantPast())) + " order: 0 (1)");
  EXPECT_EQ(test::spotlightAttribute(path, "kMDItemKeywords"), Value(Array{Value("k")}));
}

TEST_F(OpenMetaFolderWatcher, DistantFutureStampIsNotImported) {
  setLogOpenMeta(true);
  std::string path = message("12.emlx");
  setSpotlightAttribute(path, "kMDItemWrenfoldTimeStamp", Value(Date::distantFuture()));
  delegate->delayedImport({path});
  EXPECT_EQ(fake.log.count("emlx file changed: " + path), 1u);
  EXPECT_EQ(importsStarted(), 0u);
  EXPECT_FALSE(test::hasSpotlightAttribute(path, "kMDItemKeywords"));
}

TEST_F(OpenMetaFolderWatcher, MessageWithoutStampIsNotImportedEvenWithOpenMetaTags) {
  setLogOpenMeta(true);
  setRecognizeOpenMetaTags(true);
  std::string path = message("13.emlx");
  setSpotlightAttribute(path, "kMDItemOMUserTags", Value(Array{Value("tag")}));
  setSpotlightAttribute(path, "kMDItemOMUserTagTime", Value(Date{900000000.0}));
  delegate->delayedImport({path});
  EXPECT_EQ(importsStarted(), 0u);
  EXPECT_FALSE(exists(stubFolder() + "/13"));
  EXPECT_FALSE(test::hasSpotlightAttribute(path, "kMDItemWrenfoldTimeStamp"));
}

TEST_F(OpenMetaFolderWatcher, StampThatIsNoDateIsNotImported) {
  setLogOpenMeta(true);
  std::string path = message("14.emlx");
  setSpotlightAttribute(path, "kMDItemWrenfoldTimeStamp", Value("2026-01-01"));
  delegate->delayedImport({path});
  EXPECT_EQ(importsStarted(), 0u);
}

TEST_F(OpenMetaFolderWatcher, MessageWithStampIsImportedWithItsAttributes) {
  setLogOpenMeta(true);
  std::string path = message("15.emlx");
  Date stamp{700000000.0};
  setSpotlightAttribute(path, "kMDItemWrenfoldTimeStamp", Value(stamp));
  setSpotlightAttribute(path, "kMDItemKeywords", Value(Array{Value("k")}));
  delegate->delayedImport({path});
  ASSERT_EQ(importsStarted(), 1u);
  EXPECT_EQ(importMessages()[0], "OpenMeta Importing... TimeStamps OM: (null) WF: " +
                                     describe(Value(stamp)) + " order: 0 (1)");
  // The keywords were already there: nothing written, the stamp untouched.
  EXPECT_EQ(test::spotlightAttribute(path, "kMDItemWrenfoldTimeStamp"), Value(stamp));
  EXPECT_FALSE(test::hasSpotlightAttribute(path, "kOMUserTags"));
}

TEST_F(OpenMetaFolderWatcher, EachPathOfTheBatchIsHandledInOrder) {
  setLogOpenMeta(true);
  std::string a = message("20.emlx"), b = message("21.emlx");
  delegate->delayedImport({a, messages / "gone.emlx", b});
  EXPECT_EQ(fake.log.startingWith("emlx file changed: "),
            (std::vector<std::string>{"emlx file changed: " + a, "emlx file changed: " + b}));
  EXPECT_EQ(importsStarted(), 2u);
}

}  // namespace
}  // namespace wf

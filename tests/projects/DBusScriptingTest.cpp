// Scripts and scripting objects over a private session bus, against the
// scripting-app double.
#include <gtest/gtest.h>

#include <chrono>

#include "ScriptingAppProcess.h"
#include "platform/linux/DBusScripting.h"
#include "projects/ThingsScripts.h"
#include "support/Fakes.h"
#include "support/Harness.h"

namespace wf::test {
namespace {

constexpr const char* kApp = "com.example.TaskManager";

class DBusScriptingTest : public ::testing::Test {
 protected:
  DBusScriptingTest() : scripting(session.bus(), workspace) {
    workspace.installed[kApp] = "/usr/share/applications/com.example.TaskManager.desktop";
  }
  std::unique_ptr<ScriptingAppProcess> start(std::vector<std::string> arguments,
                                             const char* name = kApp) {
    arguments.insert(arguments.begin(), {"--name", name});
    auto app = std::make_unique<ScriptingAppProcess>(session.busAddress(), arguments);
    EXPECT_TRUE(app->ready());
    return app;
  }
  std::unique_ptr<ScriptingAppProcess> serve(const Value& description) {
    writeDescription(dir / "app.plist", description);
    return start({"--description", dir / "app.plist"});
  }
  static std::vector<std::optional<std::string>> texts(const platform::AppleEventDescriptor& d) {
    std::vector<std::optional<std::string>> out;
    for (long i = 1; i <= d.numberOfItems(); ++i)
      out.push_back(d.descriptorAtIndex(i)->stringValue());
    return out;
  }
  // A Hit List-like object tree.
  static Value objects() {
    return Value(Dictionary{
        {"/", Value(Dictionary{{"Class", Value("application")},
                               {"foldersGroup", Value(Dictionary{{"o", Value("/group")}})}})},
        {"/group", Value(Dictionary{{"Class", Value("group")},
                                    {"lists", Value(Array{Value("/l/1"), Value("/f/1")})}})},
        {"/l/1", Value(Dictionary{{"Class", Value("TheHitListList")}, {"name", Value("Inbox")}})},
        {"/f/1", Value(Dictionary{
                     {"Class", Value("TheHitListFolder")},
                     {"name", Value(Dictionary{{"o", Value("/l/1")}})},
                     {"broken", Value(Dictionary{{"error", Value("The Hit List got an error")}})},
                     {"lists", Value(Array{Value("/l/1")})}})},
    });
  }

  e2e::Session session;
  TempDir dir;
  FakeWorkspace workspace;
  platform::DBusScripting scripting;
};

TEST_F(DBusScriptingTest, ExecuteReturnsTheListItemsWithTheirTexts) {
  auto app = serve(Value(Dictionary{
      {"execute",
       Value(Dictionary{{"result", Value(Array{Value("A"), Value(""), Value(7), Value("B"),
                                               Value(Array{Value("inner")})})}})}}));
  auto script = scripting.scriptWithSource(kApp, std::string("return projects"));
  std::string error;
  auto result = script->execute(&error);
  ASSERT_TRUE(result) << error;
  EXPECT_EQ(texts(*result),
            (std::vector<std::optional<std::string>>{"A", "", std::nullopt, "B", std::nullopt}));
  EXPECT_EQ(result->descriptorAtIndex(5)->numberOfItems(), 1);
  EXPECT_FALSE(result->descriptorAtIndex(0));
  EXPECT_FALSE(result->descriptorAtIndex(6));
}

TEST_F(DBusScriptingTest, AResultThatIsNoListHasNoItems) {
  auto app =
      serve(Value(Dictionary{{"execute", Value(Dictionary{{"result", Value("just text")}})}}));
  auto result = scripting.scriptWithSource(kApp, std::string("x"))->execute(nullptr);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->numberOfItems(), 0);
  EXPECT_EQ(result->stringValue(), "just text");
}

TEST_F(DBusScriptingTest, AnExecutionErrorCarriesItsDescription) {
  auto app = start({"--execute-error", "Things got an error: Can't get list id \"FocusMaybe\"."});
  std::string error;
  EXPECT_FALSE(scripting.scriptWithSource(kApp, std::string("x"))->execute(&error));
  EXPECT_EQ(error, "Things got an error: Can't get list id \"FocusMaybe\".");
}

TEST_F(DBusScriptingTest, CompileSucceedsOrFailsAsTheApplicationSays) {
  {
    auto app = start({});
    EXPECT_TRUE(scripting.scriptWithSource(kApp, std::string("x"))->compile(nullptr));
  }
  auto app = start({"--compile-error", "OmniFocus is not scriptable"});
  std::string error;
  EXPECT_FALSE(scripting.scriptWithSource(kApp, std::string("x"))->compile(&error));
  EXPECT_EQ(error, "OmniFocus is not scriptable");
}

TEST_F(DBusScriptingTest, TheSourceArrivesByteForByte) {
  auto app = start({"--result", "A"});
  auto script = scripting.scriptWithSource(kApp, std::string(kThingsProjectsScript));
  ASSERT_TRUE(script->compile(nullptr));
  ASSERT_TRUE(script->execute(nullptr));
  auto calls = scriptingAppCalls(session.bus(), kApp);
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0], std::make_pair(std::string("Compile"), std::string(kThingsProjectsScript)));
  EXPECT_EQ(calls[1], std::make_pair(std::string("Execute"), std::string(kThingsProjectsScript)));
}

TEST_F(DBusScriptingTest, AScriptWithoutSourceNeverReachesTheApplication) {
  auto app = start({"--result", "A"});
  auto script = scripting.scriptWithSource(kApp, std::nullopt);
  EXPECT_FALSE(script->compile(nullptr));
  EXPECT_FALSE(script->execute(nullptr));
  EXPECT_TRUE(scriptingAppCalls(session.bus(), kApp).empty());
}

TEST_F(DBusScriptingTest, AnApplicationThatDoesNotRunIsNeitherStartedNorAnswered) {
  std::string error;
  auto script = scripting.scriptWithSource(kApp, std::string("x"));
  EXPECT_FALSE(script->compile(&error));
  EXPECT_FALSE(error.empty());
  EXPECT_FALSE(script->execute(&error));
}

TEST_F(DBusScriptingTest, ANameTheBusCannotCarryFailsLikeAMissingApplication) {
  workspace.installed["1bad..name"] = "/x.desktop";
  std::string error;
  EXPECT_FALSE(scripting.scriptWithSource("1bad..name", std::string("x"))->execute(&error));
  EXPECT_FALSE(error.empty());
  auto app = scripting.applicationWithBundleIdentifier("1bad..name");
  ASSERT_TRUE(app);
  EXPECT_FALSE(app->isRunning());
  EXPECT_THROW(app->className(), NSException);
}

TEST_F(DBusScriptingTest, ALinkExistsExactlyForInstalledApplications) {
  EXPECT_FALSE(scripting.applicationWithBundleIdentifier("com.example.NotInstalled"));
  auto app = scripting.applicationWithBundleIdentifier(kApp);
  ASSERT_TRUE(app) << "installed, though not running";
  EXPECT_FALSE(app->isRunning());
  {
    auto process = start({});
    EXPECT_TRUE(app->isRunning());
  }
  EXPECT_FALSE(app->isRunning());
}

TEST_F(DBusScriptingTest, ObjectsAreReadThroughTheirProperties) {
  auto process = serve(Value(Dictionary{{"objects", objects()}}));
  auto app = scripting.applicationWithBundleIdentifier(kApp);
  ASSERT_TRUE(app);
  EXPECT_EQ(app->className(), "application");
  auto group = app->objectProperty("foldersGroup");
  ASSERT_TRUE(group);
  auto lists = group->elementsProperty("lists");
  ASSERT_EQ(lists.size(), 2u);
  EXPECT_EQ(lists[0]->className(), "TheHitListList");
  EXPECT_EQ(lists[0]->stringProperty("name"), "Inbox");
  EXPECT_EQ(lists[1]->className(), "TheHitListFolder");
  EXPECT_EQ(lists[1]->elementsProperty("lists").size(), 1u);
  auto calls = scriptingAppCalls(session.bus(), kApp);
  ASSERT_FALSE(calls.empty());
  EXPECT_EQ(calls[0], std::make_pair(std::string("Get"), std::string("/ Class")));
}

TEST_F(DBusScriptingTest, APropertyOfAnotherTypeReadsAsAbsent) {
  auto process = serve(Value(Dictionary{{"objects", objects()}}));
  auto app = scripting.applicationWithBundleIdentifier(kApp);
  auto folder = app->objectProperty("foldersGroup")->elementsProperty("lists")[1];
  EXPECT_FALSE(folder->stringProperty("name"));  // an object, not text
  EXPECT_FALSE(app->objectProperty("Class"));    // text, not an object
  EXPECT_TRUE(app->elementsProperty("foldersGroup").empty());
}

TEST_F(DBusScriptingTest, AFailedReadRaises) {
  auto process = serve(Value(Dictionary{{"objects", objects()}}));
  auto app = scripting.applicationWithBundleIdentifier(kApp);
  auto folder = app->objectProperty("foldersGroup")->elementsProperty("lists")[1];
  EXPECT_THROW(folder->stringProperty("broken"), NSException);
  EXPECT_THROW(folder->stringProperty("noSuchProperty"), NSException);
  process->stop();
  EXPECT_THROW(app->className(), NSException) << "the application is gone";
}

TEST_F(DBusScriptingTest, ACrashInsteadOfAReplyIsAnErrorNotAHang) {
  auto process = start({"--result", "A", "--misbehave", "crash"});
  std::string error;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(scripting.scriptWithSource(kApp, std::string("x"))->execute(&error));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
  EXPECT_FALSE(error.empty());
  EXPECT_EQ(process->waitForExit(10), 70);
}

TEST_F(DBusScriptingTest, ACrashWhileObjectsAreReadRaises) {
  writeDescription(dir / "app.plist", Value(Dictionary{{"objects", objects()}}));
  auto process =
      start({"--description", dir / "app.plist", "--misbehave", "crash", "--misbehave-after", "2"});
  auto app = scripting.applicationWithBundleIdentifier(kApp);
  auto group = app->objectProperty("foldersGroup");             // call 1
  auto lists = group->elementsProperty("lists");                // call 2
  EXPECT_THROW(lists[0]->stringProperty("name"), NSException);  // call 3: dies
  EXPECT_FALSE(app->isRunning());
}

TEST_F(DBusScriptingTest, AFloodOfSignalsDoesNotDisturbTheAnswer) {
  auto process = start({"--result", "A", "--result", "B", "--misbehave", "flood"});
  // Subscribed, so that the flood really reaches this connection while it
  // waits for the answer.
  int noise = 0;
  guint subscription = g_dbus_connection_signal_subscribe(
      session.bus(), nullptr, "org.ardel.TestDouble", "Noise", nullptr, nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE,
      [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant*,
         gpointer n) { ++*static_cast<int*>(n); },
      &noise, nullptr);
  for (int i = 0; i < 3; ++i) {
    auto result = scripting.scriptWithSource(kApp, std::string("x"))->execute(nullptr);
    ASSERT_TRUE(result);
    EXPECT_EQ(texts(*result), (std::vector<std::optional<std::string>>{"A", "B"}));
  }
  EXPECT_TRUE(session.waitUntil([&] { return noise == 3 * 5000; }, 30)) << noise;
  g_dbus_connection_signal_unsubscribe(session.bus(), subscription);
}

// Takes the bus's default reply time-out (25 seconds): the helper sets none.
TEST_F(DBusScriptingTest, AnApplicationThatNeverAnswersTimesOutWithTheBusDefault) {
  auto process = start({"--result", "A", "--misbehave", "hang"});
  std::string error;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(scripting.scriptWithSource(kApp, std::string("x"))->execute(&error));
  const auto took = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(took, std::chrono::seconds(20));
  EXPECT_LT(took, std::chrono::seconds(40));
  EXPECT_FALSE(error.empty());
}

}  // namespace
}  // namespace wf::test

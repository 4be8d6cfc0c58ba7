// Schema registration: a file that lives for two seconds on the caller's loop.
#include <glib.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>

#include <chrono>
#include <cstdlib>

#include "XAttrTestSupport.h"
#include "openmeta/OpenMeta.h"
#include "platform/foundation/Strings.h"
#include "platform/plist/PropertyList.h"
#include "support/Fakes.h"
#include "support/MainLoopPump.h"

namespace wf::test {
namespace {

using Clock = std::chrono::steady_clock;

// HOME points at a fresh folder for the length of a test.
class SchemaRegister : public ::testing::Test {
 protected:
  TempDir home;
  std::string savedHome;
  GMainContext* context = nullptr;
  void SetUp() override {
    const char* h = std::getenv("HOME");
    savedHome = h ? h : "";
    setenv("HOME", home.path().c_str(), 1);
    context = g_main_context_new();
    g_main_context_push_thread_default(context);
  }
  void TearDown() override {
    g_main_context_pop_thread_default(context);
    g_main_context_unref(context);
    setenv("HOME", savedHome.c_str(), 1);
  }
  std::string folder() const {
    return home.path() + "/Library/Application Support/OpenMeta/schemaregister";
  }
};

TEST_F(SchemaRegister, FileLivesForTwoSecondsOnTheCallersContext) {
  Dictionary d;
  d.emplace("kMDItemOMUserTags", Value(Array{Value("openMeta1")}));
  d.emplace("kMDItemOMManaged", Value(true));
  const auto start = Clock::now();
  OpenMeta::registerOMAttributes(Value(d), "Example.app");
  const std::string file = folder() + "/Example.app.openmetaschema";
  ASSERT_TRUE(exists(file)) << "the register folder is created with its parents";
  EXPECT_EQ(plist::dictionaryWithContentsOfFile(file), Value(d));
  EXPECT_EQ(readFile(file).rfind("<?xml", 0), 0u) << "an XML property list";

  // The global default context does not carry the removal.
  while (g_main_context_iteration(g_main_context_default(), FALSE)) {
  }
  EXPECT_TRUE(exists(file));

  ASSERT_TRUE(test::runUntil([&] { return !exists(file); }, 10.0, context)) << "never removed";
  const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
  EXPECT_GE(elapsed, 1.9);
  EXPECT_LT(elapsed, 8.0);
  EXPECT_TRUE(exists(folder())) << "the folder remains";
}

TEST_F(SchemaRegister, WithoutAThreadDefaultContextTheGlobalOneIsUsed) {
  g_main_context_pop_thread_default(context);
  OpenMeta::registerOMAttributes(Value(Dictionary{{"k", Value(1)}}), "Global");
  const std::string file = folder() + "/Global.openmetaschema";
  ASSERT_TRUE(exists(file));
  EXPECT_TRUE(test::runUntil([&] { return !exists(file); }, 10.0, g_main_context_default()));
  g_main_context_push_thread_default(context);
}

TEST_F(SchemaRegister, UsualAttributesUnderTheExecutablesName) {
  char exe[PATH_MAX];
  ASSERT_NE(realpath("/proc/self/exe", exe), nullptr);
  OpenMeta::registerUsualOMAttributes();
  const std::string file = folder() + "/" + ns::lastPathComponent(exe) + ".openmetaschema";
  const Value schema = plist::dictionaryWithContentsOfFile(file);
  ASSERT_TRUE(schema.isDictionary()) << file;
  EXPECT_EQ(schema.count(), 5u);
  EXPECT_EQ(schema.get("kMDItemOMUserTags"), Value(Array{Value("openMeta1"), Value("openMeta2")}));
  EXPECT_TRUE(schema.get("kMDItemOMUserTagTime").isDate());
  EXPECT_TRUE(schema.get("kMDItemOMDocumentDate").isDate());
  EXPECT_EQ(schema.get("kMDItemOMManaged"), Value(true));
  EXPECT_EQ(schema.get("kMDItemOMBookmarks"), Value(Array{Value("bookmark1"), Value("bookmark2")}));
  EXPECT_TRUE(test::runUntil([&] { return !exists(file); }, 10.0, context));
}

TEST_F(SchemaRegister, RemovalNeverLeavesTheRegisterFolder) {
  TempDir elsewhere;
  const std::string outside = elsewhere / "keep.openmetaschema";
  writeFile(outside, "x");
  OpenMeta::removeSchemaFile(outside);
  EXPECT_TRUE(exists(outside));
  OpenMeta::removeSchemaFile(home.path() + "/~/Library/Application Support/OpenMeta/x");
  EXPECT_TRUE(exists(outside));

  ASSERT_EQ(g_mkdir_with_parents(folder().c_str(), 0755), 0);
  const std::string inside = folder() + "/Other.openmetaschema";
  writeFile(inside, "x");
  OpenMeta::removeSchemaFile(inside);
  EXPECT_FALSE(exists(inside));
  OpenMeta::removeSchemaFile(inside);  // already gone: nothing to report
}

TEST_F(SchemaRegister, ExistingFolderAndSecondRegistration) {
  ASSERT_EQ(g_mkdir_with_parents(folder().c_str(), 0755), 0);
  OpenMeta::registerOMAttributes(Value(Dictionary{{"k", Value(1)}}), "Twice");
  OpenMeta::registerOMAttributes(Value(Dictionary{{"k", Value(2)}}), "Twice");
  const std::string file = folder() + "/Twice.openmetaschema";
  EXPECT_EQ(plist::dictionaryWithContentsOfFile(file).get("k"), Value(2));
  EXPECT_TRUE(test::runUntil([&] { return !exists(file); }, 10.0, context));
}

}  // namespace
}  // namespace wf::test

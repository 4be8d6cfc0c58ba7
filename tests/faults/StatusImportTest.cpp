// The status follows the import as it happens: an imported message, a stub
// left for the plug-in, and the watches the mail-store stream holds.
#include "StoreFixture.h"
#include "SystemFaults.h"

namespace wf::faults {
namespace {

class StatusImport : public StoreFixture {
 protected:
  Value status() {
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        s.bus(), "org.ardel.WrenfoldHelper", "/org/ardel/WrenfoldHelper",
        "org.ardel.WrenfoldHelper.Status", "GetStatus", nullptr, G_VARIANT_TYPE("(a{sv})"),
        G_DBUS_CALL_FLAGS_NO_AUTO_START, 10000, nullptr, &error);
    if (!reply) {
      ADD_FAILURE() << "GetStatus: " << (error ? error->message : "?");
      if (error) g_error_free(error);
      return Value();
    }
    // Only the counters are read here; their numbers come as int64.
    Dictionary mail;
    GVariant* dict = g_variant_get_child_value(reply, 0);
    GVariant* store = g_variant_lookup_value(dict, "mailStore", G_VARIANT_TYPE("a{sv}"));
    for (const char* key : {"imported", "stubsLeft", "watchesHeld", "overflowsRecovered"}) {
      GVariant* v = store ? g_variant_lookup_value(store, key, G_VARIANT_TYPE_INT64) : nullptr;
      if (v) {
        mail.emplace(key, Value(static_cast<long long>(g_variant_get_int64(v))));
        g_variant_unref(v);
      }
    }
    if (store) g_variant_unref(store);
    g_variant_unref(dict);
    g_variant_unref(reply);
    return Value(std::move(mail));
  }
  long long counter(const char* key) { return status().get(key).integerValue(); }
};

TEST_F(StatusImport, AnImportAndAStubAreCountedAfterTheyHappened) {
  launch();
  EXPECT_EQ(counter("imported"), 0);
  EXPECT_EQ(counter("stubsLeft"), 0);
  EXPECT_GE(counter("watchesHeld"), 3);  // V2, Inbox.mbox, Messages

  std::string note = mailbox() + "/note.emlx";
  writeMessage(
      note, wrenfoldMessage("Subject: note\n\nbody\n", {{"wrenfoldAnnotation", Value("short")}}));
  ASSERT_TRUE(s.waitForFiles(
      [&] { return spotlightAttribute(note, "kMDItemComment") == Value("short"); }, 30))
      << s.stderrText();
  EXPECT_EQ(counter("imported"), 1);

  std::string tagged = message(mailbox(), "7.emlx");
  tag(tagged);
  ASSERT_TRUE(s.waitForFiles([&] { return stubWritten(tagged); }, 30)) << s.stderrText();
  EXPECT_TRUE(s.waitForFiles([&] { return counter("stubsLeft") == 1; }, 10));
  EXPECT_EQ(counter("overflowsRecovered"), 0);
  EXPECT_TRUE(s.helperRunning());
}

}  // namespace
}  // namespace wf::faults

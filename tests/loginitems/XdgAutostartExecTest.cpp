// The Exec key: finding the program, and writing a path so that it is found
// again exactly.
#include <glib.h>
#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "platform/linux/XdgAutostartExec.h"

namespace wf::platform::xdg {
namespace {

TEST(ExecProgram, PlainPathWithArguments) {
  EXPECT_EQ(execProgram("/usr/bin/thing --start %U"), "/usr/bin/thing");
  EXPECT_EQ(execProgram("  thing"), "thing");
  EXPECT_EQ(execProgram("/usr/bin/thing\t-x"), "/usr/bin/thing");
}

TEST(ExecProgram, QuotedPathWithBlanks) {
  EXPECT_EQ(execProgram("\"/opt/My Apps/thing\" --flag"), "/opt/My Apps/thing");
}

TEST(ExecProgram, EscapesInsideQuotes) {
  EXPECT_EQ(execProgram(R"("/opt/a\"b\`c\$d\\e")"), "/opt/a\"b`c$d\\e");
  // A backslash before any other character is kept as it is.
  EXPECT_EQ(execProgram(R"("/opt/a\xb")"), "/opt/a\\xb");
}

TEST(ExecProgram, FieldCodesAreDropped) {
  EXPECT_EQ(execProgram("/opt/100%%/thing %f"), "/opt/100%/thing");
  EXPECT_EQ(execProgram("/opt/thing%i"), "/opt/thing");
  EXPECT_EQ(execProgram("%U"), std::nullopt);
}

TEST(ExecProgram, NoProgram) {
  EXPECT_EQ(execProgram(""), std::nullopt);
  EXPECT_EQ(execProgram("   "), std::nullopt);
  EXPECT_EQ(execProgram("\"\""), std::nullopt);
}

TEST(ExecProgram, BrokenQuoting) {
  EXPECT_EQ(execProgram("\"/opt/thing --flag"), std::nullopt);
  EXPECT_EQ(execProgram("\"/opt/thing\\\""), std::nullopt);
  EXPECT_EQ(execProgram("\"/opt/thing\"glued"), std::nullopt);
}

TEST(ExecLineValue, PlainPathIsWrittenAsItIs) {
  EXPECT_EQ(execLineValue("/usr/local/bin/wrenfold-helper"), "/usr/local/bin/wrenfold-helper");
}

TEST(ExecLineValue, ReservedCharactersAreQuoted) {
  EXPECT_EQ(execLineValue("/opt/My Apps/helper"), "\"/opt/My Apps/helper\"");
  EXPECT_EQ(execLineValue("/opt/it's"), "\"/opt/it's\"");
  // "\$" of the quoting becomes "\\$" under the string escapes.
  EXPECT_EQ(execLineValue("/opt/a$b"), "\"/opt/a\\\\$b\"");
  EXPECT_EQ(execLineValue("/opt/a\\b"), "\"/opt/a\\\\\\\\b\"");
  EXPECT_EQ(execLineValue("/opt/line\nbreak"), "\"/opt/line\\nbreak\"");
}

TEST(ExecLineValue, PercentIsDoubled) {
  EXPECT_EQ(execLineValue("/opt/100%/helper"), "/opt/100%%/helper");
}

// What a desktop session reads back: the key-file reader undoes the string
// escapes, then the Exec rules give the program.
std::optional<std::string> readBack(const std::string& line) {
  std::string file = "[Desktop Entry]\nExec=" + line + "\n";
  std::unique_ptr<GKeyFile, decltype(&g_key_file_free)> kf(g_key_file_new(), g_key_file_free);
  if (!g_key_file_load_from_data(kf.get(), file.data(), file.size(), G_KEY_FILE_NONE, nullptr))
    return std::nullopt;
  gchar* exec = g_key_file_get_string(kf.get(), "Desktop Entry", "Exec", nullptr);
  if (!exec) return std::nullopt;
  std::string value(exec);
  g_free(exec);
  return execProgram(value);
}

TEST(ExecLineValue, EveryAwkwardPathRoundTrips) {
  for (std::string path : {"/opt/My Apps/helper",
                           "/opt/\"quoted\"",
                           "/opt/`tick`",
                           "/opt/$HOME",
                           "/opt/back\\slash",
                           "/opt/four\\\\\\\\",
                           "/opt/100%",
                           "/opt/%f",
                           "/opt/tab\there",
                           "/opt/new\nline",
                           "/opt/semi;colon&amp|pipe",
                           "/opt/~tilde",
                           "/opt/(paren)",
                           "/opt/#hash",
                           "/opt/*?",
                           "/opt/<angle>",
                           "/opt/caf\u00e9",
                           "/opt/x=y",
                           "/opt/ lead",
                           "/opt/cr\rx"})
    EXPECT_EQ(readBack(execLineValue(path)), path) << path;
}

TEST(ExecLineValue, RandomPathsRoundTrip) {
  std::mt19937 rng(7);
  const std::string alphabet = "ab /\\\"'`$%~;&|<>()*?#=\t\n\r.-_\x01";
  std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1), length(1, 24);
  for (int i = 0; i < 5000; ++i) {
    std::string path = "/";
    for (std::size_t n = length(rng); n > 0; --n) path += alphabet[pick(rng)];
    ASSERT_EQ(readBack(execLineValue(path)), path) << i;
  }
}

}  // namespace
}  // namespace wf::platform::xdg

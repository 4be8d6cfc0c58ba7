// Setting one default in mimeapps.list keeps every other byte.
#include <gtest/gtest.h>

#include <random>

#include "platform/linux/MimeAppsList.h"

namespace wf::platform::xdg {
namespace {

std::string set(std::string_view contents, std::string_view scheme = "wrenfoldlog") {
  return settingDefaultApplication(contents, "x-scheme-handler/" + std::string(scheme),
                                   "com.apple.mail.desktop");
}

TEST(MimeAppsList, EmptyFileGetsTheSection) {
  EXPECT_EQ(set(""),
            "[Default Applications]\nx-scheme-handler/wrenfoldlog=com.apple.mail.desktop\n");
}

TEST(MimeAppsList, ExistingKeyIsRewritten) {
  EXPECT_EQ(set("[Default Applications]\n"
                "text/html=firefox.desktop\n"
                "x-scheme-handler/wrenfoldlog=thunderbird.desktop;evolution.desktop;\n"
                "image/png=eog.desktop\n"),
            "[Default Applications]\n"
            "text/html=firefox.desktop\n"
            "x-scheme-handler/wrenfoldlog=com.apple.mail.desktop\n"
            "image/png=eog.desktop\n");
}

TEST(MimeAppsList, KeyWithBlanksAroundIsTheSameKey) {
  EXPECT_EQ(set("[Default Applications]\n  x-scheme-handler/wrenfoldlog \t= other.desktop\n"),
            "[Default Applications]\nx-scheme-handler/wrenfoldlog=com.apple.mail.desktop\n");
}

TEST(MimeAppsList, OtherSectionsCommentsAndUnknownLinesAreKept) {
  const std::string before =
      "# my associations, do not lose\n"
      "[Added Associations]\n"
      "x-scheme-handler/wrenfoldlog=thunderbird.desktop;\n"
      "\n"
      "[Default Applications]\n"
      "# comment in the section\n"
      "text/html=firefox.desktop\n"
      "this line is not a key\n"
      "x-scheme-handler/wrenfoldlogs=other.desktop\n"
      "\n"
      "[Removed Associations]\n"
      "text/plain=gedit.desktop;\n";
  EXPECT_EQ(set(before),
            "# my associations, do not lose\n"
            "[Added Associations]\n"
            "x-scheme-handler/wrenfoldlog=thunderbird.desktop;\n"
            "\n"
            "[Default Applications]\n"
            "# comment in the section\n"
            "text/html=firefox.desktop\n"
            "this line is not a key\n"
            "x-scheme-handler/wrenfoldlogs=other.desktop\n"
            "x-scheme-handler/wrenfoldlog=com.apple.mail.desktop\n"
            "\n"
            "[Removed Associations]\n"
            "text/plain=gedit.desktop;\n");
}

TEST(MimeAppsList, NoSectionAppendsOneAtTheEnd) {
  EXPECT_EQ(set("[Added Associations]\ntext/html=firefox.desktop;"),
            "[Added Associations]\ntext/html=firefox.desktop;\n\n"
            "[Default Applications]\nx-scheme-handler/wrenfoldlog=com.apple.mail.desktop\n");
}

TEST(MimeAppsList, LastLineWithoutBreak) {
  EXPECT_EQ(set("[Default Applications]\ntext/html=firefox.desktop"),
            "[Default Applications]\ntext/html=firefox.desktop\n"
            "x-scheme-handler/wrenfoldlog=com.apple.mail.desktop\n");
  EXPECT_EQ(set("[Default Applications]\nx-scheme-handler/wrenfoldlog=x.desktop"),
            "[Default Applications]\nx-scheme-handler/wrenfoldlog=com.apple.mail.desktop");
}

TEST(MimeAppsList, CrLfLinesStayCrLf) {
  EXPECT_EQ(set("[Default Applications]\r\nx-scheme-handler/wrenfoldlog=x.desktop\r\n"),
            "[Default Applications]\r\nx-scheme-handler/wrenfoldlog=com.apple.mail.desktop\r\n");
}

TEST(MimeAppsList, EveryDuplicateIsRewritten) {
  EXPECT_EQ(set("[Default Applications]\nx-scheme-handler/wrenfoldlog=a.desktop\n"
                "[Other]\nk=v\n"
                "[Default Applications]\nx-scheme-handler/wrenfoldlog=b.desktop\n"),
            "[Default Applications]\nx-scheme-handler/wrenfoldlog=com.apple.mail.desktop\n"
            "[Other]\nk=v\n"
            "[Default Applications]\nx-scheme-handler/wrenfoldlog=com.apple.mail.desktop\n");
}

TEST(MimeAppsList, MissingKeyGoesIntoTheLastSuchSection) {
  EXPECT_EQ(set("[Default Applications]\na/b=x.desktop\n\n[Other]\nk=v\n"),
            "[Default Applications]\na/b=x.desktop\n"
            "x-scheme-handler/wrenfoldlog=com.apple.mail.desktop\n\n[Other]\nk=v\n");
}

TEST(MimeAppsList, SettingTwiceChangesNothingMore) {
  std::string once = set("[Default Applications]\ntext/html=firefox.desktop\n");
  EXPECT_EQ(set(once), once);
}

TEST(MimeAppsList, FourSchemesInARow) {
  std::string s;
  for (const char* scheme : {"wrenfoldlog", "wrenfoldkeyword", "wfkw", "wrenfoldproject"})
    s = set(s, scheme);
  EXPECT_EQ(s,
            "[Default Applications]\n"
            "x-scheme-handler/wrenfoldlog=com.apple.mail.desktop\n"
            "x-scheme-handler/wrenfoldkeyword=com.apple.mail.desktop\n"
            "x-scheme-handler/wfkw=com.apple.mail.desktop\n"
            "x-scheme-handler/wrenfoldproject=com.apple.mail.desktop\n");
}

// Whatever the file holds, only lines of the key change and one line may be
// added: every original line is still there, in order.
TEST(MimeAppsList, MalformedInputLosesNoOtherLine) {
  std::mt19937 rng(11);
  const std::vector<std::string> pieces = {"[Default Applications]",
                                           "[Added Associations]",
                                           "[",
                                           "]",
                                           "=",
                                           "#",
                                           "x-scheme-handler/wrenfoldlog",
                                           "text/html",
                                           "\n",
                                           "\n",
                                           "\r",
                                           " ",
                                           "\xff",
                                           std::string(1, '\0')};
  std::uniform_int_distribution<std::size_t> pick(0, pieces.size() - 1), length(0, 30);
  for (int i = 0; i < 3000; ++i) {
    std::string in;
    for (std::size_t n = length(rng); n > 0; --n) in += pieces[pick(rng)];
    std::string out = set(in);
    ASSERT_NE(out.find("x-scheme-handler/wrenfoldlog=com.apple.mail.desktop"), std::string::npos);
    // Lines of the input that are not the key must appear in order.
    std::size_t at = 0;
    std::size_t start = 0;
    while (start < in.size()) {
      std::size_t end = in.find('\n', start);
      if (end == std::string::npos) end = in.size();
      std::string line = in.substr(start, end - start);
      start = end + 1;
      if (line.find("x-scheme-handler/wrenfoldlog") != std::string::npos) continue;
      std::size_t found = out.find(line, at);
      ASSERT_NE(found, std::string::npos) << i;
      at = found + line.size();
    }
    EXPECT_EQ(set(out), out) << i;
  }
}

}  // namespace
}  // namespace wf::platform::xdg

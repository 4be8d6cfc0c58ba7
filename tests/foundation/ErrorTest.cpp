#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "platform/foundation/Error.h"

using wf::Error;

TEST(Error, PosixCarriesStrerror) {
  Error e = Error::posix(ENOENT);
  EXPECT_EQ(e.domain, "NSPOSIXErrorDomain");
  EXPECT_EQ(e.code, ENOENT);
  EXPECT_EQ(e.localizedDescription(), std::strerror(ENOENT));
  EXPECT_EQ(e.describe(), "Error Domain=NSPOSIXErrorDomain Code=2 \"" +
                              std::string(std::strerror(ENOENT)) + "\"");
}

TEST(Error, PosixWithoutDescriptionStillUsesStrerror) {
  Error e;
  e.domain = Error::POSIXDomain;
  e.code = EACCES;
  EXPECT_EQ(e.localizedDescription(), std::strerror(EACCES));
}

TEST(Error, GenericTextForOtherDomains) {
  Error e;
  e.domain = "WFSyncErrorDomain";
  e.code = 7;
  EXPECT_EQ(e.localizedDescription(),
            "The operation couldn\u2019t be completed. (WFSyncErrorDomain error 7.)");
  EXPECT_EQ(e.describe(),
            "Error Domain=WFSyncErrorDomain Code=7 \"The operation couldn\u2019t be completed. "
            "(WFSyncErrorDomain error 7.)\"");
}

TEST(Error, DescriptionWins) {
  Error e;
  e.domain = Error::CocoaDomain;
  e.code = 260;
  e.description = "The file \u201cx\u201d couldn\u2019t be opened.";
  EXPECT_EQ(e.localizedDescription(), e.description);
  EXPECT_EQ(e.describe(), "Error Domain=NSCocoaErrorDomain Code=260 \"" + e.description + "\"");
}

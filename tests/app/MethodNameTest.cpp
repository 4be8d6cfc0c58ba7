#include <gtest/gtest.h>

#include "app/WFHelperAppDelegate.h"

namespace wf {
namespace {

TEST(MethodName, MethodsWithoutArgumentsKeepTheirName) {
  EXPECT_EQ(delegateMethodName("startOpenMetaFolderWatcher"),
            "-[WFHelperAppDelegate startOpenMetaFolderWatcher]");
  EXPECT_EQ(delegateMethodName("_fetchOmniFocusProjects"),
            "-[WFHelperAppDelegate _fetchOmniFocusProjects]");
}

TEST(MethodName, MethodsWithArgumentsShowTheirSelector) {
  EXPECT_EQ(delegateMethodName("preferencesDidChange"),
            "-[WFHelperAppDelegate preferencesDidChange:]");
  EXPECT_EQ(delegateMethodName("importWrenfoldMetadataAtPath"),
            "-[WFHelperAppDelegate importWrenfoldMetadataAtPath:andExistingAttributes:]");
  EXPECT_EQ(delegateMethodName("activeSyncFolderPathCreateIfNecessary"),
            "-[WFHelperAppDelegate activeSyncFolderPathCreateIfNecessary:]");
  EXPECT_EQ(delegateMethodName("syncFilesDidChange"), "-[WFHelperAppDelegate syncFilesDidChange:]");
  EXPECT_EQ(delegateMethodName("delayedImport"), "-[WFHelperAppDelegate delayedImport:]");
  EXPECT_EQ(delegateMethodName("applicationDidFinishLaunching"),
            "-[WFHelperAppDelegate applicationDidFinishLaunching:]");
}

}  // namespace
}  // namespace wf

// Process-lifetime state has one owner: what the delegate hands to the path
// functions goes when the delegate goes.
#include <gtest/gtest.h>

#include <memory>

#include "app/WFHelperAppDelegate.h"
#include "paths/Paths.h"
#include "support/Fakes.h"

namespace wf {
namespace {

TEST(ProcessState, PathsForgetTheEnvironmentOfADelegateThatIsGone) {
  auto platform = std::make_unique<test::FakePlatform>();
  std::string library = platform->library();
  {
    WFHelperAppDelegate delegate(platform->services());
    auto store = WFmailV2Path();
    ASSERT_TRUE(store);
    EXPECT_EQ(store->rfind(library, 0), 0u) << *store;
  }
  platform.reset();
  // A dangling environment would be read here (and the dead home returned).
  resetPathCaches();
  EXPECT_FALSE(WFmailV2Path());
}

}  // namespace
}  // namespace wf

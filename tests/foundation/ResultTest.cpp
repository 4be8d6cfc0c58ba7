// One-line propagation of a Result, and the named reading of the store's
// error object.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>

#include "platform/base/Owners.h"
#include "platform/base/Result.h"
#include "platform/foundation/Error.h"

namespace {

using wf::sys::Result;
using wf::sys::SysError;

Result<std::unique_ptr<std::string>> word(bool ok) {
  if (!ok) return SysError::fromErrno(ENOENT);
  return std::make_unique<std::string>("a word long enough to live on the heap");
}

Result<void> check(bool ok) {
  if (!ok) return SysError::fromErrno(EACCES);
  return wf::sys::success();
}

int stepsTaken = 0;

Result<std::string> shout(bool haveWord, bool allowed) {
  stepsTaken = 0;
  std::unique_ptr<std::string> w = WF_TRY(word(haveWord));
  ++stepsTaken;
  WF_TRY(check(allowed));
  ++stepsTaken;
  return *w + "!";
}

Result<void> twice(bool allowed) {
  WF_TRY(check(true));
  if (allowed)
    WF_TRY(check(true));
  else
    WF_TRY(check(false));
  return wf::sys::success();
}

}  // namespace

TEST(Result, TryYieldsTheValueAndGoesOn) {
  Result<std::string> r = shout(true, true);
  ASSERT_TRUE(r.ok());
  EXPECT_EQ(*r, "a word long enough to live on the heap!");
  EXPECT_EQ(stepsTaken, 2);
}

TEST(Result, TryReturnsTheFirstErrorAndStopsThere) {
  Result<std::string> r = shout(false, true);
  ASSERT_FALSE(r.ok());
  EXPECT_TRUE(r.error().isErrno(ENOENT));
  EXPECT_EQ(stepsTaken, 0);
}

TEST(Result, TryOnAVoidResultReturnsItsError) {
  Result<std::string> r = shout(true, false);
  ASSERT_FALSE(r.ok());
  EXPECT_TRUE(r.error().isErrno(EACCES));
  EXPECT_EQ(stepsTaken, 1);
}

TEST(Result, TryStandsAsTheBodyOfAnUnbracedIf) {
  EXPECT_TRUE(twice(true).ok());
  Result<void> r = twice(false);
  ASSERT_FALSE(r.ok());
  EXPECT_TRUE(r.error().isErrno(EACCES));
}

TEST(Result, TryMovesAnOwnerOut) {
  auto open = []() -> Result<wf::sys::UniqueFd> {
    wf::sys::UniqueFd fd(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd) return SysError::fromErrno(errno);
    return fd;
  };
  int held = -1;
  auto use = [&]() -> Result<void> {
    wf::sys::UniqueFd fd = WF_TRY(open());
    held = fd.get();
    EXPECT_GE(::fcntl(fd.get(), F_GETFD), 0);  // still open after the move
    return wf::sys::success();
  };
  ASSERT_TRUE(use().ok());
  EXPECT_GE(held, 0);
  EXPECT_EQ(::fcntl(held, F_GETFD), -1);  // closed once its owner went
}

TEST(Error, FailedAndSucceededReadTheErrorObject) {
  wf::OptError none;
  wf::OptError some = wf::Error::posix(ENOENT);
  EXPECT_FALSE(wf::failed(none));
  EXPECT_TRUE(wf::succeeded(none));
  EXPECT_TRUE(wf::failed(some));
  EXPECT_FALSE(wf::succeeded(some));
}

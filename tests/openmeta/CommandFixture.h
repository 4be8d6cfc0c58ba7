// The `openmeta` command run as a user runs it: on a file of its own, with
// a home folder of its own.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "XAttrTestSupport.h"
#include "support/Fakes.h"

namespace wf::test {

class OpenMetaCommand : public ::testing::Test {
 protected:
  TempDir dir{true};  // on tmpfs, which keeps attribute values of every size
  TempDir home;
  std::string file = dir / "file";
  void SetUp() override { writeFile(file, "content"); }
  ToolRun run(const std::vector<std::string>& args) {
    return runTool(OPENMETA_TOOL, args, {"HOME=" + home.path()});
  }
};

}  // namespace wf::test

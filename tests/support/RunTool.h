// Running a built program from a test: its standard output, standard error
// and exit status, always bounded in time.
#pragma once

#include <string>
#include <vector>

namespace wf::test {

struct ToolRun {
  int status = -1;  // exit status; 124 when the time limit ended it; -1 when not run
  std::string out, err;
};

// Runs `binary` with `args` for at most `limitSeconds` (then it is ended and
// the status is 124). `environment` entries ("NAME=value") are added to this
// process's environment; `input` is fed to standard input, which is then closed.
ToolRun runTool(const std::string& binary, const std::vector<std::string>& args,
                const std::vector<std::string>& environment = {}, const std::string& input = "",
                int limitSeconds = 30);

// The same in two steps, for a test that acts while the tool runs.
struct StartedTool {
  int pid = -1;
  int out = -1, err = -1;
  std::string failure;  // why it could not be started
};
StartedTool startTool(const std::string& binary, const std::vector<std::string>& args,
                      const std::vector<std::string>& environment = {},
                      const std::string& input = "", int limitSeconds = 30);
ToolRun finishTool(StartedTool& started);

}  // namespace wf::test

// NSUserDefaults for the helper: the argument domain made from the command
// line as Foundation makes it, then the helper's own defaults domain, the
// property list $HOME/Library/Preferences/org.ardel.WrenfoldHelper.plist,
// read afresh whenever the file changed.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <string>
#include <vector>

#include "platform/Platform.h"

namespace wf::platform {

// Every "-key value" pair of the arguments (argv[0] excluded): key without
// its dash, value as typed. An argument where a key is expected that does
// not begin with "-" (or is "-" alone) is skipped; a last key without a
// value is dropped. The value is taken as it stands even when it begins
// with a dash, so pairs never shift.
Dictionary parseArgumentDomain(const std::vector<std::string>& arguments);

class ProcessDefaults : public UserDefaults {
 public:
  // `domainFile`: the helper's defaults file (empty: none).
  ProcessDefaults(Dictionary arguments, std::string domainFile);
  const Dictionary& argumentDomain() const override { return arguments_; }
  Value objectForKey(const std::string& key) override;

 private:
  const Dictionary& ownDomain();

  Dictionary arguments_;
  std::string file_;
  Dictionary own_;
  // What the file looked like when last read; a difference means read again.
  bool seen_ = false;
  dev_t dev_ = 0;
  ino_t ino_ = 0;
  off_t size_ = 0;
  timespec mtime_{};
  timespec ctime_{};
};

}  // namespace wf::platform

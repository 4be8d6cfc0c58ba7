// The file system of a folder from statfs and /proc/self/mountinfo, and
// the folder poll's one worker thread (see docs/architecture.md).
#pragma once

#include "platform/RemoteFolders.h"

namespace wf::platform {

class LinuxRemoteFolders : public RemoteFolders {
 public:
  FolderFileSystem fileSystemOf(const std::string& path) override;
  std::unique_ptr<FolderPoll> startPoll(FolderPollParams params) override;
};

}  // namespace wf::platform

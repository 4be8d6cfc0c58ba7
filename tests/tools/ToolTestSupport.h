// Running the built tools on real files, and looking at what they did to
// them: contents, mode, owner, extended attributes, links, leftovers.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "support/RunTool.h"

namespace wf::test {

// What a file is, without following a link at the name.
struct FileState {
  bool exists = false;
  bool isLink = false;
  std::string linkTarget;
  std::string bytes;  // of the file itself (not read through a link)
  mode_t mode = 0;    // permission bits
  uid_t uid = 0;
  gid_t gid = 0;
  std::map<std::string, std::string> xattrs;
  bool operator==(const FileState&) const = default;
};
FileState stateOf(const std::string& path);

// The names in `folder` other than `keep` (temporaries left behind).
std::vector<std::string> strayEntries(const std::string& folder,
                                      const std::vector<std::string>& keep);

// A small tmpfs of its own at a temporary folder, in a private mount
// namespace of this test process (entered once; needs root or unprivileged
// user namespaces). `reason` says why there is none.
class SmallTmpfs {
 public:
  // `options` are added to the mount's ("nr_inodes=4" also bounds the room
  // for extended attributes: tmpfs counts 1 KiB of it per inode).
  explicit SmallTmpfs(std::size_t bytes, const std::string& options = "");
  ~SmallTmpfs();
  bool ok() const { return ok_; }
  const std::string& reason() const { return reason_; }
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  // Fills the file system up to the last byte with a file named `name`.
  void fill(const std::string& name);
  // Makes the file system read-only: nothing in it can be written.
  bool makeReadOnly();

 private:
  bool ok_ = false;
  std::string reason_;
  std::string path_;
};

// Options a help text names: every "-word" or "--word" that starts a token;
// and the same for a manual page's source, read as the text it shows.
std::vector<std::string> optionsInManPage(const std::string& manPageSource);
std::vector<std::string> optionsInText(const std::string& text);

}  // namespace wf::test

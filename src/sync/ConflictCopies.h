// The names sync engines give the losing version of a file that two
// computers changed while apart. Such a copy sits beside the list in the
// sync folder; the helper reports it and never touches it.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace wf {

struct ConflictCopyName {
  std::string_view list;    // the list file it is a copy of: "WrenfoldKeywords.plist"
  std::string_view engine;  // "Syncthing", "Nextcloud/ownCloud", "Dropbox", …
};

// The list and engine of a conflict copy of one of `lists`, by the copy's
// file name (no folder); nothing when the name is no conflict copy.
std::optional<ConflictCopyName> conflictCopyOf(std::string_view fileName,
                                               std::span<const std::string> lists);

}  // namespace wf

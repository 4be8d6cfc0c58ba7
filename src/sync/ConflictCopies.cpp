#include "sync/ConflictCopies.h"

#include <array>

namespace wf {
namespace {

// How an engine names the copy of "Name.ext": "Name" + opening + middle +
// closing + ".ext", where the middle (a date, a device, a user) holds
// `inside` and no slash. Rows are tried in order, so the narrower pattern of
// two alike comes first.
struct Pattern {
  std::string_view engine;
  std::string_view opening;
  std::string_view inside;
  std::string_view closing;
};

constexpr std::array<Pattern, 9> kPatterns{{
    // Name.sync-conflict-20261124-101010-ABCDEFG.ext
    {"Syncthing", ".sync-conflict-", "", ""},
    // Name (conflicted copy 2026-11-24 101010).ext, also with the user's name
    {"Nextcloud/ownCloud", " (conflicted copy", "", ")"},
    // Name_conflict-20261124-101010.ext (ownCloud clients before 2.5)
    {"Nextcloud/ownCloud", "_conflict-", "", ""},
    // Name (Laptop's conflicted copy 2026-11-24).ext, also "… (1)"
    {"Dropbox", " (", "conflicted copy", ")"},
    {"Dropbox", " (Case Conflict", "", ")"},
    {"Dropbox", " (Selective Sync Conflict", "", ")"},
    // Name.Conflict.ext, Name.Conflict1.ext
    {"Resilio", ".Conflict", "", ""},
    // Name (SFConflict user@example.org 2026-11-24-10-10-10).ext
    {"Seafile", " (SFConflict ", "", ")"},
    // Name-LAPTOP.ext: the computer's name appended
    {"OneDrive", "-", "", ""},
}};

bool matches(std::string_view name, std::string_view stem, std::string_view extension,
             const Pattern& p) {
  if (!name.starts_with(stem)) return false;
  name.remove_prefix(stem.size());
  if (!name.starts_with(p.opening)) return false;
  name.remove_prefix(p.opening.size());
  if (!name.ends_with(extension)) return false;
  name.remove_suffix(extension.size());
  if (!name.ends_with(p.closing)) return false;
  name.remove_suffix(p.closing.size());
  // What is left is the middle: the date, device or user the engine adds.
  return p.inside.empty() || name.find(p.inside) != std::string_view::npos;
}

}  // namespace

std::optional<ConflictCopyName> conflictCopyOf(std::string_view fileName,
                                               std::span<const std::string> lists) {
  for (const std::string& list : lists) {
    if (fileName == list) return std::nullopt;
    auto dot = list.rfind('.');
    std::string_view stem = std::string_view(list).substr(0, dot);
    std::string_view extension = std::string_view(list).substr(dot);
    for (const Pattern& p : kPatterns)
      if (matches(fileName, stem, extension, p)) return ConflictCopyName{list, p.engine};
  }
  return std::nullopt;
}

}  // namespace wf

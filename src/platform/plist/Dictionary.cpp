#include "platform/plist/Dictionary.h"

namespace wf {

Dictionary Dictionary::fromEntries(Entries entries) {
  auto before = [](const value_type& a, const value_type& b) {
    return std::string_view(a.first) < std::string_view(b.first);
  };
  Dictionary d;
  bool sortedAndUnique =
      std::adjacent_find(entries.begin(), entries.end(), [&](const auto& a, const auto& b) {
        return !before(a, b);
      }) == entries.end();
  if (!sortedAndUnique) {
    // Stable, so that of equal keys the one read last is last; keep it.
    std::stable_sort(entries.begin(), entries.end(), before);
    auto out = entries.begin();
    for (auto it = entries.begin(); it != entries.end(); ++it) {
      auto next = it + 1;
      if (next != entries.end() && it->first == next->first) continue;
      if (out != it) *out = std::move(*it);
      ++out;
    }
    entries.erase(out, entries.end());
  }
  d.entries_ = std::move(entries);
  return d;
}

}  // namespace wf

// Orders version strings the way people read them: 1.0b3 < 1.0 < 1.0.1 <
// 1.10. Stateless; one shared instance serves every caller.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace wf {

class WFVersionComparator {
 public:
  // Character classes of a piece of version text. Their values and order
  // take part in the comparison.
  enum CharacterType : int { kNumberType = 0, kStringType = 1, kPeriodType = 2 };

  // The shared instance: made on the first call (on the main thread) and
  // kept for the life of the process.
  static WFVersionComparator* defaultComparator();

  // kPeriodType when the whole text is "."; otherwise the class of its first
  // character: kNumberType for a Unicode decimal digit, else kStringType.
  // Text that is empty or does not begin with valid UTF-8 is a string.
  int typeOfCharacter(std::string_view text) const;

  // Runs of digits, runs of other characters and single periods, in order.
  std::vector<std::string> splitVersionString(std::string_view version) const;

  // -1 when `version` is older than `toVersion`, 0 when they are the same,
  // 1 when it is newer.
  int compareVersion(std::string_view version, std::string_view toVersion) const;
};

}  // namespace wf

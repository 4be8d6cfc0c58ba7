// Array equality with strings compared under NSString compare options
// (the category WFStringCompare on NSArray).
#pragma once

#include "platform/plist/Value.h"

namespace wf {

// NSStringCompareOptions bits that change string equality.
enum StringCompareOptions : int {
  NSCaseInsensitiveSearch = 1,
  NSLiteralSearch = 2,
};

// -[NSArray isEqualToArray:stringCompareOptions:]: true when both are
// arrays of the same count whose elements are pairwise equal; two strings
// are equal when the string comparison under `stringCompareOptions` finds
// them the same, any other pair when Foundation's equality says so. A
// receiver that is no array (nil included) is unequal to everything.
bool isEqualToArray(const Value& receiver, const Value& other, int stringCompareOptions);

}  // namespace wf

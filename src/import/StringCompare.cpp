#include "import/StringCompare.h"

#include <string>

#include "platform/foundation/Strings.h"

namespace wf {

namespace {

bool stringsEqual(const std::string& a, const std::string& b, int options) {
  bool caseless = options & NSCaseInsensitiveSearch;
  if (options & NSLiteralSearch) {
    return caseless ? ns::lowercaseString(a) == ns::lowercaseString(b) : a == b;
  }
  if (caseless) return ns::compare(ns::lowercaseString(a), ns::lowercaseString(b)) == 0;
  return ns::compare(a, b) == 0;
}

}  // namespace

bool isEqualToArray(const Value& receiver, const Value& other, int stringCompareOptions) {
  if (!receiver.isArray() || !other.isArray()) return false;
  const Array& mine = receiver.asArray();
  const Array& theirs = other.asArray();
  if (mine.size() != theirs.size()) return false;
  for (std::size_t i = 0; i < mine.size(); ++i) {
    const Value& a = mine[i];
    const Value& b = theirs[i];
    bool equal = a.isString() && b.isString()
                     ? stringsEqual(a.asString(), b.asString(), stringCompareOptions)
                     : a == b;
    if (!equal) return false;
  }
  return true;
}

}  // namespace wf

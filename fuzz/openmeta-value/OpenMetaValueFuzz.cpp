// Attribute bytes from anywhere: they are decoded as the store reads them,
// and what decodes is used as the tag operations use a stored list. Nothing
// may crash; a value that decodes must serialise again, and its binary form
// must decode to an equal value.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "openmeta/AttributeValue.h"
#include "openmeta/OpenMeta.h"
#include "platform/plist/PropertyList.h"

namespace {

bool holdsNaN(const wf::Value& v) {
  if (v.isReal()) return std::isnan(v.asReal());
  if (v.isDate()) return std::isnan(v.asDate().seconds);
  if (v.isArray())
    for (const wf::Value& item : v.asArray())
      if (holdsNaN(item)) return true;
  if (v.isDictionary())
    for (const auto& [key, item] : v.asDictionary())
      if (holdsNaN(item)) return true;
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The store never reads more than this from an attribute.
  if (size > wf::OpenMeta::kMaxValueSize) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);

  wf::OptError error;
  const wf::Value v = wf::openmeta::decodeAttributeValue(bytes, &error);
  if (v.isNil()) {
    // A refusal is always the store's -2 error with the parser's message.
    if (!error || error->domain != "openmeta" || error->code != -2 || error->userInfo.size() != 1)
      std::abort();
    return 0;
  }

  // What the tag operations do with a stored list.
  (void)wf::OpenMeta::validateAsArrayOfStrings(v);
  const wf::Value tags = wf::OpenMeta::removeDuplicateTags(v);
  if (!tags.isArray() || tags.count() > v.count()) std::abort();
  if (wf::OpenMeta::removeDuplicateTags(tags) != tags) std::abort();
  wf::OpenMeta::TagTable table;
  table.emplace("k", "v");
  (void)wf::OpenMeta::orderedArrayWithDict(table, v);

  // A decoded value is a property list again.
  std::string binary;
  if (!wf::plist::toBinary(v, binary)) std::abort();
  if (!holdsNaN(v) && wf::plist::parse(binary) != v) std::abort();
  std::string xml;
  (void)wf::openmeta::encodeAttributeValue(v, xml, &error);
  return 0;
}

// The Finder's tags on Linux: the freedesktop attribute "user.xdg.tags",
// which file managers and desktop search read and write, names joined by ",".
#include <cerrno>

#include "openmeta/AttributeValue.h"
#include "openmeta/OpenMeta.h"
#include "platform/ExtendedAttributes.h"

namespace wf {

using openmeta::posixError;
using openmeta::storeError;

namespace {

// A "," inside a name would split it in two in the joined list; the look-alike
// U+201A SINGLE LOW-9 QUOTATION MARK stands for it there.
constexpr std::string_view kComma = ",";
constexpr std::string_view kCommaStandIn = "\xE2\x80\x9A";

std::string replaceAll(std::string s, std::string_view from, std::string_view to) {
  for (std::size_t at = s.find(from); at != std::string::npos; at = s.find(from, at + to.size()))
    s.replace(at, from.size(), to);
  return s;
}

// The largest value Linux keeps in one attribute.
constexpr std::size_t kMaxAttributeBytes = 64 * 1024;

// Reads the whole attribute; false with errno set on failure.
bool readAttribute(const std::string& path, std::string& out) {
  auto value = openmeta::attributes().get(path, OpenMeta::kFinderTagsAttribute, kMaxAttributeBytes);
  if (!value) {
    errno = value.error().errnoValue();
    return false;
  }
  out = std::move(*value);
  return true;
}

Array splitTags(std::string_view joined) {
  // Some writers end the value with a NUL.
  while (!joined.empty() && joined.back() == '\0') joined.remove_suffix(1);
  Array tags;
  std::size_t start = 0;
  while (start <= joined.size()) {
    std::size_t end = joined.find(',', start);
    if (end == std::string_view::npos) end = joined.size();
    if (end > start)
      tags.emplace_back(
          replaceAll(std::string(joined.substr(start, end - start)), kCommaStandIn, kComma));
    start = end + 1;
  }
  return tags;
}

}  // namespace

std::string openmeta::joinedFinderTags(const Array& tags) {
  std::string joined;
  for (const Value& tag : tags) {
    if (tag.asString().empty()) continue;
    if (!joined.empty()) joined += ',';
    joined += replaceAll(tag.asString(), kComma, kCommaStandIn);
  }
  return joined;
}

Value OpenMeta::getAppleTags(const std::string& path, OptError* error) {
  if (!MavericksOrLater()) return getNSArrayMetaData(kUserTagsKey, path, error);
  if (!openmeta::hasFileSystemRepresentation(path)) {
    if (error) *error = storeError(kParameterError, kParameterErrorText);
    return Value();
  }
  std::string joined;
  if (!readAttribute(path, joined)) {
    const int err = errno;
    if (err != ENODATA && error) *error = posixError(err);
    return Value();
  }
  Array tags = splitTags(joined);
  if (tags.empty()) return Value();  // a file without tags has no tag list
  return Value(std::move(tags));
}

OptError OpenMeta::setAppleTags(const Value& tags, const std::string& path) {
  if (!MavericksOrLater()) return setNSArrayMetaData(tags, kUserTagsKey, path);
  if (!openmeta::hasFileSystemRepresentation(path))
    return storeError(kParameterError, kParameterErrorText);
  if (!tags.isNil() && !validateAsArrayOfStrings(tags))
    return storeError(kParameterError, kParameterErrorText);
  const std::string joined =
      tags.isNil() ? std::string() : openmeta::joinedFinderTags(tags.asArray());
  if (joined.empty()) {
    auto removed = openmeta::attributes().remove(path, kFinderTagsAttribute);
    if (!removed && !removed.error().isErrno(ENODATA))
      return posixError(removed.error().errnoValue());
    return std::nullopt;
  }
  auto written = openmeta::attributes().set(path, kFinderTagsAttribute, joined);
  if (!written) return posixError(written.error().errnoValue());
  return std::nullopt;
}

}  // namespace wf

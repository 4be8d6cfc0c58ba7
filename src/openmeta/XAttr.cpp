// The lowest layer of the store: attribute names, the size limit, the
// system calls and their errors.
#include <cerrno>
#include <cstring>

#include "openmeta/AttributeValue.h"
#include "openmeta/OpenMeta.h"
#include "platform/ExtendedAttributes.h"

namespace wf {

using openmeta::attributes;
using openmeta::posixError;
using openmeta::storeError;

namespace {

std::string systemName(const std::string& name) { return OpenMeta::kAttributeNamespace + name; }

// "user.com.apple.metadata:" + key, made in one allocation: every value of
// an import is read and written under such a name.
std::string metaDataName(std::string_view key) {
  constexpr std::string_view kSpotlight = "com.apple.metadata:";
  const std::string_view space = OpenMeta::kAttributeNamespace;
  std::string name;
  name.reserve(space.size() + kSpotlight.size() + key.size());
  name.append(space).append(kSpotlight).append(key);
  return name;
}

platform::ExtendedAttributes* gTestAttributes = nullptr;

}  // namespace

platform::ExtendedAttributes& openmeta::attributes() {
  return gTestAttributes ? *gTestAttributes : platform::systemExtendedAttributes();
}

void OpenMeta::setExtendedAttributesForTesting(platform::ExtendedAttributes* replacement) {
  gTestAttributes = replacement;
}

std::string OpenMeta::spotlightKey(std::string_view key) {
  return std::string("com.apple.metadata:").append(key);
}

std::string OpenMeta::openmetaKey(std::string_view key) {
  return std::string("org.openmetainfo:").append(key);
}

std::string OpenMeta::errnoString(int value) {
  char buffer[1024];
  buffer[0] = '\0';
  // The GNU strerror_r may return a static text instead of filling the buffer.
  const char* text = strerror_r(value, buffer, sizeof buffer);
  if (!text) text = "";
  std::string s = "errno error: ";
  s += std::to_string(value);
  s += ", ";
  s += text;
  return s;
}

namespace {

OptError setAttribute(const Value& plist, const std::string& attribute, const std::string& path) {
  using E = OpenMeta;
  if (!openmeta::hasFileSystemRepresentation(path))
    return storeError(E::kParameterError, E::kParameterErrorText);

  std::string bytes;
  bool haveBytes = false;
  if (!plist.isNil()) {
    OptError error;
    if (!openmeta::encodeAttributeValue(plist, bytes, &error)) return error;
    haveBytes = true;
  }

  sys::Result<void> result = sys::success();
  if (haveBytes) {
    if (bytes.size() > E::kMaxValueSize) return storeError(E::kTooBigError, E::kMetaDataTooBig);
    result = attributes().set(path, attribute, bytes);
  } else {
    result = attributes().remove(path, attribute);
  }
  if (!result) return posixError(result.error().errnoValue());
  return std::nullopt;
}

Value getAttribute(const std::string& attribute, const std::string& path, OptError* error) {
  using E = OpenMeta;
  if (!openmeta::hasFileSystemRepresentation(path)) {
    if (error) *error = storeError(E::kParameterError, E::kParameterErrorText);
    return Value();
  }
  const sys::Result<std::string> value = attributes().get(path, attribute, E::kMaxValueSize);
  if (!value || value->empty()) {
    // A zero-length attribute is an error with no errno (0).
    const int err = value ? 0 : value.error().errnoValue();
    if (err == ENODATA || err == EINVAL) return Value();
    if (error) *error = posixError(err);
    return Value();
  }
  OptError parseError;
  Value v = openmeta::decodeAttributeValue(*value, &parseError);
  if (v.isNil()) {
    if (error) *error = std::move(parseError);
    return Value();
  }
  if (error) error->reset();
  return v;
}

}  // namespace

OptError OpenMeta::setXAttr(const Value& plist, const std::string& name, const std::string& path) {
  return setAttribute(plist, systemName(name), path);
}

Value OpenMeta::getXAttr(const std::string& name, const std::string& path, OptError* error) {
  return getAttribute(systemName(name), path, error);
}

OptError OpenMeta::setXAttrMetaData(const Value& plist, const std::string& metaDataKey,
                                    const std::string& path) {
  return setAttribute(plist, metaDataName(metaDataKey), path);
}

Value OpenMeta::getXAttrMetaData(const std::string& metaDataKey, const std::string& path,
                                 OptError* error) {
  return getAttribute(metaDataName(metaDataKey), path, error);
}

}  // namespace wf

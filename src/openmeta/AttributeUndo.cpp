// Putting attributes back after a failed write of a setter that writes more
// than one.
#include "openmeta/AttributeUndo.h"

#include <cerrno>

#include "openmeta/AttributeValue.h"
#include "openmeta/OpenMeta.h"
#include "platform/ExtendedAttributes.h"

namespace wf::openmeta {

namespace {

constexpr std::size_t kMaxAttributeBytes = platform::ExtendedAttributes::kLargestValue;

}  // namespace

bool AttributeUndo::isKept(const std::string& path, const std::string& systemName) const {
  for (const Kept& k : kept_)
    if (k.path == path && k.name == systemName) return true;
  return false;
}

OptError AttributeUndo::remember(const std::string& path, const std::string& systemName) {
  if (!hasFileSystemRepresentation(path))
    return storeError(OpenMeta::kParameterError, OpenMeta::kParameterErrorText);
  if (isKept(path, systemName)) return std::nullopt;
  auto value = attributes().get(path, systemName, kMaxAttributeBytes);
  if (value) {
    kept_.push_back({path, systemName, std::move(*value)});
  } else if (value.error().isErrno(ENODATA)) {
    kept_.push_back({path, systemName, std::nullopt});
  } else {
    return posixError(value.error().errnoValue());
  }
  return std::nullopt;
}

OptError AttributeUndo::write(const std::string& path, const std::string& systemName,
                              std::string_view bytes, bool probablyMissing, bool* created) {
  if (created) *created = false;
  if (!hasFileSystemRepresentation(path))
    return storeError(OpenMeta::kParameterError, OpenMeta::kParameterErrorText);
  if (probablyMissing && !isKept(path, systemName)) {
    auto made = attributes().create(path, systemName, bytes);
    if (made) {
      kept_.push_back({path, systemName, std::nullopt});
      if (created) *created = true;
      return std::nullopt;
    }
    // There after all (or created by another writer meanwhile): kept and
    // replaced as any other.
    if (!made.error().isErrno(EEXIST)) return posixError(made.error().errnoValue());
  }
  if (OptError e = remember(path, systemName)) return e;
  auto written = attributes().set(path, systemName, bytes);
  if (!written) return posixError(written.error().errnoValue());
  return std::nullopt;
}

OptError AttributeUndo::remove(const std::string& path, const std::string& systemName) {
  if (OptError e = remember(path, systemName)) return e;
  auto removed = attributes().remove(path, systemName);
  if (!removed && !removed.error().isErrno(ENODATA))
    return posixError(removed.error().errnoValue());
  return std::nullopt;
}

void AttributeUndo::restore() const {
  // Each write of the setter is undone in the reverse order; a restore that
  // fails itself leaves nothing better to do than go on with the others.
  for (auto it = kept_.rbegin(); it != kept_.rend(); ++it) {
    if (it->bytes)
      (void)attributes().set(it->path, it->name, *it->bytes);
    else
      (void)attributes().remove(it->path, it->name);
  }
}

std::string metaDataAttribute(const std::string& key) {
  return OpenMeta::kAttributeNamespace + OpenMeta::spotlightKey(key);
}

OptError checkAttributeValue(const Value& value) {
  std::string bytes;
  OptError error;
  if (!encodeAttributeValue(value, bytes, &error)) return error;
  if (bytes.size() > OpenMeta::kMaxValueSize)
    return storeError(OpenMeta::kTooBigError, OpenMeta::kMetaDataTooBig);
  return std::nullopt;
}

}  // namespace wf::openmeta

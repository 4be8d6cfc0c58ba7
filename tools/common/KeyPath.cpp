#include "KeyPath.h"

#include <cstdlib>

namespace wf::tools {

namespace {

// An array index: digits only, no sign, no blanks.
bool indexOf(const std::string& component, std::size_t& out) {
  if (component.empty() || component.size() > 18) return false;
  for (char c : component)
    if (c < '0' || c > '9') return false;
  out = static_cast<std::size_t>(std::strtoull(component.c_str(), nullptr, 10));
  return true;
}

Value edited(const Value& node, const std::vector<std::string>& path, std::size_t at, Edit edit,
             const Value& value, const std::string& keyPath, std::string& error) {
  const std::string& key = path[at];
  const bool last = at + 1 == path.size();
  if (node.isDictionary()) {
    Dictionary d = node.asDictionary();
    auto it = d.find(key);
    if (!last) {
      if (it == d.end()) {
        error = "No value at that key path or invalid key path: " + keyPath;
        return Value();
      }
      Value child = edited(it->second, path, at + 1, edit, value, keyPath, error);
      if (child.isNil()) return Value();
      it->second = child;
      return Value(std::move(d));
    }
    switch (edit) {
      case Edit::Insert:
        if (it != d.end()) {
          error = "Value already exists at key path " + keyPath;
          return Value();
        }
        d.insert_or_assign(key, value);
        break;
      case Edit::Replace:
        d.insert_or_assign(key, value);
        break;
      case Edit::Remove:
        if (it == d.end()) {
          error = "No value to remove at key path " + keyPath;
          return Value();
        }
        d.erase(key);
        break;
      case Edit::Append: {
        if (it == d.end() || !it->second.isArray()) {
          error = "Appending to a non-array at key path " + keyPath;
          return Value();
        }
        Array a = it->second.asArray();
        a.push_back(value);
        it->second = Value(std::move(a));
        break;
      }
    }
    return Value(std::move(d));
  }
  if (node.isArray()) {
    Array a = node.asArray();
    std::size_t i;
    if (!indexOf(key, i)) {
      error = "No value at that key path or invalid key path: " + keyPath;
      return Value();
    }
    if (!last) {
      if (i >= a.size()) {
        error = "No value at that key path or invalid key path: " + keyPath;
        return Value();
      }
      Value child = edited(a[i], path, at + 1, edit, value, keyPath, error);
      if (child.isNil()) return Value();
      a[i] = child;
      return Value(std::move(a));
    }
    switch (edit) {
      case Edit::Insert:
        if (i > a.size()) {
          error = "Index " + key + " out of bounds at key path " + keyPath;
          return Value();
        }
        a.insert(a.begin() + static_cast<std::ptrdiff_t>(i), value);
        break;
      case Edit::Replace:
        if (i > a.size()) {
          error = "Index " + key + " out of bounds at key path " + keyPath;
          return Value();
        }
        if (i == a.size())
          a.push_back(value);
        else
          a[i] = value;
        break;
      case Edit::Remove:
        if (i >= a.size()) {
          error = "No value to remove at key path " + keyPath;
          return Value();
        }
        a.erase(a.begin() + static_cast<std::ptrdiff_t>(i));
        break;
      case Edit::Append:
        if (i >= a.size() || !a[i].isArray()) {
          error = "Appending to a non-array at key path " + keyPath;
          return Value();
        }
        {
          Array inner = a[i].asArray();
          inner.push_back(value);
          a[i] = Value(std::move(inner));
        }
        break;
    }
    return Value(std::move(a));
  }
  error = "No value at that key path or invalid key path: " + keyPath;
  return Value();
}

}  // namespace

std::vector<std::string> splitKeyPath(std::string_view keyPath) {
  std::vector<std::string> parts(1);
  for (std::size_t i = 0; i < keyPath.size(); ++i) {
    char c = keyPath[i];
    if (c == '\\' && i + 1 < keyPath.size() && (keyPath[i + 1] == '.' || keyPath[i + 1] == '\\')) {
      parts.back().push_back(keyPath[++i]);
    } else if (c == '.') {
      parts.emplace_back();
    } else {
      parts.back().push_back(c);
    }
  }
  return parts;
}

const Value* valueAtKeyPath(const Value& root, const std::vector<std::string>& path) {
  const Value* node = &root;
  for (const std::string& key : path) {
    if (node->isDictionary()) {
      node = node->find(key);
      if (!node) return nullptr;
    } else if (node->isArray()) {
      std::size_t i;
      if (!indexOf(key, i) || i >= node->asArray().size()) return nullptr;
      node = &node->asArray()[i];
    } else {
      return nullptr;
    }
  }
  return node;
}

Value editAtKeyPath(const Value& root, const std::vector<std::string>& path, Edit edit,
                    const Value& value, const std::string& keyPath, std::string& error) {
  if (path.empty()) {
    error = "No value at that key path or invalid key path: " + keyPath;
    return Value();
  }
  return edited(root, path, 0, edit, value, keyPath, error);
}

std::string typeName(const Value& v) {
  switch (v.type()) {
    case Value::Type::Dictionary:
      return "dictionary";
    case Value::Type::Array:
      return "array";
    case Value::Type::String:
      return "string";
    case Value::Type::Integer:
    case Value::Type::Unsigned:
      return "integer";
    case Value::Type::Real:
      return "float";
    case Value::Type::Boolean:
      return "bool";
    case Value::Type::Date:
      return "date";
    case Value::Type::Data:
      return "data";
    case Value::Type::Uid:
      return "uid";
    default:
      return "null";
  }
}

}  // namespace wf::tools

#include "platform/foundation/Strings.h"

#include <glib.h>

#include <clocale>
#include <cstring>
#include <limits>
#include <string>
#include <unordered_map>

#include "platform/glib/Owners.h"

namespace wf::ns {

namespace {

// Foundation's path methods first collapse runs of slashes and drop a
// trailing slash (except for the root itself).
std::string fixSlashes(std::string_view path) {
  std::string out;
  out.reserve(path.size());
  for (char c : path) {
    if (c == '/' && !out.empty() && out.back() == '/') continue;
    out.push_back(c);
  }
  if (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

// Index where the last component of a fixed path starts.
std::size_t startOfLastComponent(const std::string& fixed) {
  auto slash = fixed.rfind('/');
  return slash == std::string::npos ? 0 : slash + 1;
}

// Index of the dot that starts the extension, npos when there is none: a
// leading dot (".profile") or a trailing dot ("name.") is no extension.
std::size_t extensionDot(const std::string& fixed) {
  if (fixed.size() <= 1) return std::string::npos;
  std::size_t start = startOfLastComponent(fixed);
  auto dot = fixed.rfind('.');
  if (dot == std::string::npos || dot < start) return std::string::npos;
  if (dot == start || dot + 1 == fixed.size()) return std::string::npos;
  return dot;
}

// Text of ASCII characters other than NUL: most tags and keys. Canonical
// decomposition leaves it as it is and its lower case is ASCII's, so it
// needs no trip through GLib's tables (and no allocation of GLib's).
bool isPlainASCII(std::string_view s) {
  for (unsigned char c : s)
    if (c == 0 || c >= 0x80) return false;
  return true;
}

// Whether GLib lowers 'I' (and 'J') as ASCII does: not in the Turkic and
// Lithuanian locales, where it has rules of its own.
bool lowersLikeASCII(std::string_view s) {
  if (s.find_first_of("IJ") == std::string_view::npos) return true;
  const char* ctype = std::setlocale(LC_CTYPE, nullptr);
  if (!ctype) return true;
  const std::string_view language(ctype, std::strlen(ctype) >= 2 ? 2 : std::strlen(ctype));
  return language != "tr" && language != "az" && language != "lt";
}

// The last decompositions by their input: the same few tags pass through
// again and again (a tag list set on many files, each read back), and GLib's
// mapping costs thousands of instructions where a look-up costs a hash.
// Form D does not depend on the locale (lowering does, so it is not kept).
// Per thread, as each thread has its own.
class DecompositionCache {
 public:
  static bool keeps(std::string_view s) { return s.size() <= kLongest; }

  template <typename Map>
  std::string get(std::string_view s, Map map) {
    auto it = cache_.find(std::string(s));
    if (it != cache_.end()) return it->second;
    std::string mapped = map(s);
    if (cache_.size() >= kEntries) cache_.clear();  // another set of names: start again
    cache_.emplace(std::string(s), mapped);
    return mapped;
  }

 private:
  static constexpr std::size_t kEntries = 256;
  static constexpr std::size_t kLongest = 256;  // longer text is mapped, not kept
  std::unordered_map<std::string, std::string> cache_;
};

thread_local DecompositionCache gDecomposed;

}  // namespace

std::string lowercaseString(std::string_view s) {
  if (isPlainASCII(s) && lowersLikeASCII(s)) {
    std::string out(s);
    for (char& c : out) c = g_ascii_tolower(c);
    return out;
  }
  if (!isValidUTF8(s)) {
    // Not text we can map; lower the ASCII letters and keep the rest.
    std::string out(s);
    for (char& c : out) c = g_ascii_tolower(c);
    return out;
  }
  sys::GPtr<char> lower(g_utf8_strdown(s.data(), static_cast<gssize>(s.size())));
  return std::string(lower.get());
}

std::string decomposedStringWithCanonicalMapping(std::string_view s) {
  if (isPlainASCII(s)) return std::string(s);
  auto decomposeWithGLib = [](std::string_view text) {
    sys::GPtr<char> nfd(
        g_utf8_normalize(text.data(), static_cast<gssize>(text.size()), G_NORMALIZE_NFD));
    if (!nfd) return std::string(text);  // invalid UTF-8: nothing to decompose
    return std::string(nfd.get());
  };
  return DecompositionCache::keeps(s) ? gDecomposed.get(s, decomposeWithGLib)
                                      : decomposeWithGLib(s);
}

int compare(std::string_view a, std::string_view b) {
  if (a == b) return 0;
  // UTF-8 byte order is code-point order, so the decomposed forms can be
  // compared bytewise.
  std::string da = decomposedStringWithCanonicalMapping(a);
  std::string db = decomposedStringWithCanonicalMapping(b);
  int c = da.compare(db);
  return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

bool hasPrefix(std::string_view s, std::string_view prefix) {
  return !prefix.empty() && s.substr(0, prefix.size()) == prefix;
}

bool hasSuffix(std::string_view s, std::string_view suffix) {
  return !suffix.empty() && s.size() >= suffix.size() &&
         s.substr(s.size() - suffix.size()) == suffix;
}

std::string lastPathComponent(std::string_view path) {
  std::string fixed = fixSlashes(path);
  if (fixed.size() <= 1) return fixed;
  return fixed.substr(startOfLastComponent(fixed));
}

std::string stringByDeletingLastPathComponent(std::string_view path) {
  std::string fixed = fixSlashes(path);
  if (fixed.empty() || fixed == "/") return fixed;
  std::size_t start = startOfLastComponent(fixed);
  if (start == 0) return "";
  if (start == 1) return "/";
  return fixed.substr(0, start - 1);
}

std::string pathExtension(std::string_view path) {
  std::string fixed = fixSlashes(path);
  std::size_t dot = extensionDot(fixed);
  return dot == std::string::npos ? std::string() : fixed.substr(dot + 1);
}

std::string stringByDeletingPathExtension(std::string_view path) {
  std::string fixed = fixSlashes(path);
  std::size_t dot = extensionDot(fixed);
  return dot == std::string::npos ? fixed : fixed.substr(0, dot);
}

std::string stringByAppendingPathComponent(std::string_view path, std::string_view component) {
  if (path.empty()) return fixSlashes(component);
  if (component.empty()) return fixSlashes(path);
  std::string joined(path);
  joined.push_back('/');
  joined.append(component);
  return fixSlashes(joined);
}

std::size_t characterLength(std::string_view s) {
  if (s.empty()) return 0;
  gunichar c = g_utf8_get_char_validated(s.data(), static_cast<gssize>(s.size()));
  if (c == static_cast<gunichar>(-1) || c == static_cast<gunichar>(-2)) return 1;
  return static_cast<std::size_t>(g_utf8_next_char(s.data()) - s.data());
}

int decimalDigitValue(std::string_view s) {
  if (s.empty()) return -1;
  gunichar c = g_utf8_get_char_validated(s.data(), static_cast<gssize>(s.size()));
  if (c == static_cast<gunichar>(-1) || c == static_cast<gunichar>(-2)) return -1;
  return g_unichar_digit_value(c);
}

}  // namespace wf::ns

// printf-style formatting with Foundation's %@, for log lines.
//
// Supported: %@ (a Value, string, Error, FileURL or nil), %d %i %ld %lld %u
// %lu %llu (integers), %f %g (reals), %s (C string), %c, %%. A %@ prints the
// value's Foundation description (see describe()). Missing arguments print
// as nil does.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/foundation/Error.h"
#include "platform/plist/Value.h"

namespace wf {

// NSURL for a file: prints as "file://" and the percent-encoded path.
struct FileURL {
  std::string path;
  std::string absoluteString() const;
};

// Foundation's description of a value: a string as it is; numbers in
// decimal (booleans as 1 or 0); nil "(null)"; NSNull "<null>"; dates as
// "2026-11-22 10:30:05 +0000"; arrays and dictionaries in the old-style
// layout with four-blank indentation and quoted strings inside containers.
std::string describe(const Value& v);

class FormatArg {
 public:
  FormatArg(const Value& v) : a_(v) {}
  FormatArg(const std::string& s) : a_(Value(s)) {}
  FormatArg(std::string_view s) : a_(Value(s)) {}
  FormatArg(const char* s) : a_(s) {}
  FormatArg(const Error& e) : a_(e) {}
  FormatArg(const OptError& e) : a_(e ? Arg(*e) : Arg(Value())) {}
  FormatArg(const FileURL& u) : a_(u) {}
  FormatArg(int i) : a_(static_cast<std::int64_t>(i)) {}
  FormatArg(long i) : a_(static_cast<std::int64_t>(i)) {}
  FormatArg(long long i) : a_(static_cast<std::int64_t>(i)) {}
  FormatArg(unsigned i) : a_(static_cast<std::uint64_t>(i)) {}
  FormatArg(unsigned long i) : a_(static_cast<std::uint64_t>(i)) {}
  FormatArg(unsigned long long i) : a_(static_cast<std::uint64_t>(i)) {}
  FormatArg(double d) : a_(d) {}
  FormatArg(bool b) : a_(static_cast<std::int64_t>(b ? 1 : 0)) {}

  void appendObject(std::string& out) const;                    // %@
  void appendInteger(std::string& out, bool isUnsigned) const;  // %d, %u
  void appendReal(std::string& out, const std::string& conversion) const;
  void appendCString(std::string& out) const;  // %s

 private:
  using Arg = std::variant<Value, Error, FileURL, std::int64_t, std::uint64_t, double, const char*>;
  Arg a_;
};

std::string formatv(std::string_view fmt, const std::vector<FormatArg>& args);

template <typename... Args>
std::string format(std::string_view fmt, const Args&... args) {
  return formatv(fmt, std::vector<FormatArg>{FormatArg(args)...});
}

}  // namespace wf

#include "PrettyPrint.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>

#include "platform/foundation/Format.h"

namespace wf::plutil {

namespace {

void indent(std::string& out, int level) { out.append(static_cast<std::size_t>(level) * 2, ' '); }

void quoted(std::string& out, const std::string& s) {
  out.push_back('"');
  for (char c : s) {
    switch (c) {
      case '"':
        out.append("\\\"");
        break;
      case '\\':
        out.append("\\\\");
        break;
      case '\n':
        out.append("\\n");
        break;
      case '\t':
        out.append("\\t");
        break;
      case '\r':
        out.append("\\r");
        break;
      default:
        out.push_back(c);
    }
  }
  out.push_back('"');
}

void print(std::string& out, const Value& v, int level) {
  using T = Value::Type;
  switch (v.type()) {
    case T::Boolean:
      out.append(v.asBool() ? "true" : "false");
      return;
    case T::String:
      quoted(out, v.asString());
      return;
    case T::Array: {
      const Array& a = v.asArray();
      out.append("[\n");
      for (std::size_t i = 0; i < a.size(); ++i) {
        indent(out, level + 1);
        out.append(std::to_string(i)).append(" => ");
        print(out, a[i], level + 1);
        out.push_back('\n');
      }
      indent(out, level);
      out.push_back(']');
      return;
    }
    case T::Dictionary:
      out.append("{\n");
      for (const auto& [key, value] : v.asDictionary()) {
        indent(out, level + 1);
        quoted(out, key);
        out.append(" => ");
        print(out, value, level + 1);
        out.push_back('\n');
      }
      indent(out, level);
      out.push_back('}');
      return;
    default:
      // Numbers, dates and data read best in Foundation's own description.
      out.append(describe(v));
      return;
  }
}

}  // namespace

std::string prettyPrint(const Value& v) {
  std::string out;
  print(out, v, 0);
  out.push_back('\n');
  return out;
}

}  // namespace wf::plutil

// The codec's readers and writers, one per format; PropertyList.cpp picks.
#pragma once

#include <string>
#include <string_view>

#include "platform/plist/Value.h"

namespace wf::plist::detail {

// Containers nested deeper than this are refused, so hostile input cannot
// exhaust the stack.
constexpr int kMaxDepth = 512;

// Dates further than this from 2001 (about 3 billion years) are refused in
// XML, where beyond it no calendar arithmetic is meaningful (or exact).
constexpr double kMaxDateSeconds = 1e17;

Value parseXML(std::string_view bytes, std::string* error);
Value parseBinary(std::string_view bytes, std::string* error);
bool writeXML(const Value& v, std::string& out, std::string* error);
bool writeBinary(const Value& v, std::string& out, std::string* error);

}  // namespace wf::plist::detail

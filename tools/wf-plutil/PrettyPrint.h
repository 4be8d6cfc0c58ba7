// The readable layout of `wf-plutil -p`: for people, not for parsing.
#pragma once

#include <string>

#include "platform/plist/Value.h"

namespace wf::plutil {

std::string prettyPrint(const Value& v);

}  // namespace wf::plutil

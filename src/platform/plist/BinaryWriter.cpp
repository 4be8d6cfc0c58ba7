#include "platform/plist/Codec.h"

namespace wf::plist::detail {

bool writeBinary(const Value&, std::string&, std::string* error) {
  if (error) *error = "binary property lists are not supported yet";
  return false;
}

}  // namespace wf::plist::detail

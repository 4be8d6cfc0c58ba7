#include "platform/plist/Codec.h"

namespace wf::plist::detail {

Value parseBinary(std::string_view, std::string* error) {
  if (error) *error = "binary property lists are not supported yet";
  return Value();
}

}  // namespace wf::plist::detail

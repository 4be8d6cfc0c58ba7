// Message files as the mail client writes them: "N\n", N bytes of message,
// then a property list (the trailer).
#pragma once

#include <string>

#include "platform/plist/Value.h"

namespace wf::test {

// A message file: the count line, the body, the trailer's bytes.
std::string emlxBytes(const std::string& body, const std::string& trailer);
// The trailer as Mail writes it: an XML property list.
std::string xmlTrailer(const Value& trailer);
// A trailer holding the plug-in's dictionary beside Mail's own keys.
std::string wrenfoldTrailer(const Dictionary& wrenfold);
// A whole message file with that trailer.
std::string wrenfoldMessage(const std::string& body, const Dictionary& wrenfold);

}  // namespace wf::test

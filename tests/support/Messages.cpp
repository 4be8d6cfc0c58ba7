#include "support/Messages.h"

#include <stdexcept>

#include "platform/plist/PropertyList.h"

namespace wf::test {

std::string emlxBytes(const std::string& body, const std::string& trailer) {
  return std::to_string(body.size()) + "\n" + body + trailer;
}

std::string xmlTrailer(const Value& trailer) {
  std::string out;
  if (!plist::toXML(trailer, out)) throw std::runtime_error("trailer cannot be serialised");
  return out;
}

std::string wrenfoldTrailer(const Dictionary& wrenfold) {
  return xmlTrailer(Value(Dictionary{{"flags", Value(8590195717LL)},
                                     {"date-received", Value(1700000000)},
                                     {"wrenfold", Value(wrenfold)}}));
}

std::string wrenfoldMessage(const std::string& body, const Dictionary& wrenfold) {
  return emlxBytes(body, wrenfoldTrailer(wrenfold));
}

}  // namespace wf::test

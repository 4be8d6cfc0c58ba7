// Two version strings from the input (split at the first NUL byte): the
// comparison answers -1, 0 or 1, a string equals itself, swapping the two
// turns the answer round, and splitting keeps every character of valid text.
#include <glib.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "version/WFVersionComparator.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  std::size_t nul = input.find('\0');
  std::string_view a = input.substr(0, nul);
  std::string_view b = nul == std::string_view::npos ? std::string_view() : input.substr(nul + 1);
  wf::WFVersionComparator* c = wf::WFVersionComparator::defaultComparator();

  int ab = c->compareVersion(a, b);
  int ba = c->compareVersion(b, a);
  if (ab < -1 || ab > 1) std::abort();
  if (ab != -ba) std::abort();
  if (c->compareVersion(a, a) != 0) std::abort();

  if (g_utf8_validate(a.data(), static_cast<gssize>(a.size()), nullptr)) {
    std::string joined;
    for (const std::string& part : c->splitVersionString(a)) {
      if (part.empty()) std::abort();
      joined += part;
    }
    if (joined != a) std::abort();
  }
  return 0;
}

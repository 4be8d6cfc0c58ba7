// Any text as the user's mimeapps.list: setting a scheme's default never
// fails, the result names the handler, and setting it again changes nothing.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/linux/MimeAppsList.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view contents(reinterpret_cast<const char*>(data), size);
  const std::string_view mimeType = "x-scheme-handler/wrenfoldkeyword";
  const std::string_view desktopId = "com.apple.mail.desktop";
  std::string once = wf::platform::xdg::settingDefaultApplication(contents, mimeType, desktopId);
  if (once.find("x-scheme-handler/wrenfoldkeyword=com.apple.mail.desktop") == std::string::npos)
    std::abort();
  if (once.find("[Default Applications]") == std::string::npos) std::abort();
  std::string twice = wf::platform::xdg::settingDefaultApplication(once, mimeType, desktopId);
  if (twice != once) std::abort();
  return 0;
}

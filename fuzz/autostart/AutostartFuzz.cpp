// Any bytes as an autostart entry, and any Exec value: reading them never
// fails, and an entry that resolves names an absolute program.
// Any path (printable, absolute): the Exec value written for it, read back
// as a key-file reader would, starts exactly that path.
#include <glib.h>

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/XdgAutostartExec.h"
#include "platform/linux/XdgAutostartLoginItems.h"

namespace {

// What GKeyFile's string reader makes of a written value.
std::optional<std::string> readBack(const std::string& written) {
  GKeyFile* file = g_key_file_new();
  std::string text = "[Desktop Entry]\nExec=" + written + "\n";
  std::optional<std::string> value;
  if (g_key_file_load_from_data(file, text.data(), text.size(), G_KEY_FILE_NONE, nullptr)) {
    if (gchar* v = g_key_file_get_string(file, "Desktop Entry", "Exec", nullptr)) {
      value = v;
      g_free(v);
    }
  }
  g_key_file_free(file);
  return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  (void)wf::platform::xdg::execProgram(input);
  // No search path: bare names stay unresolved, absolute ones are looked at.
  wf::platform::LoginItem item = wf::platform::xdg::autostartItem("fuzz.desktop", input, "");
  if (item.token != "fuzz.desktop") std::abort();
  if (item.resolvedPath && (item.resolvedPath->empty() || (*item.resolvedPath)[0] != '/'))
    std::abort();

  std::string path = "/";
  for (char c : input)
    if (c >= 0x20 && c < 0x7f) path += c;
  std::optional<std::string> value = readBack(wf::platform::xdg::execLineValue(path));
  if (!value) std::abort();
  std::optional<std::string> program = wf::platform::xdg::execProgram(*value);
  if (!program || *program != path) std::abort();
  return 0;
}

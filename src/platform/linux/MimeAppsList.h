// Editing mimeapps.list the way a person would: only the lines that set the
// default changes, every other line (comments, other sections, lines the
// editor does not understand) stays byte for byte.
#pragma once

#include <string>
#include <string_view>

namespace wf::platform::xdg {

// `contents` with the default application of `mimeType` set to `desktopId`
// in the section [Default Applications]: every line of that key in such a
// section is rewritten; without one, a line is added at the end of the last
// such section, or a new section at the end of the file.
std::string settingDefaultApplication(std::string_view contents, std::string_view mimeType,
                                      std::string_view desktopId);

}  // namespace wf::platform::xdg

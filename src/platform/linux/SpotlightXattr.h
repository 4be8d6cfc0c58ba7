// The Linux stand-in for Spotlight's metadata store: the extended
// attributes a file carries in the "user." namespace under the Spotlight
// prefix, one property list each.
#pragma once

#include <cstddef>
#include <string_view>

namespace wf::platform {

inline constexpr std::string_view kSpotlightAttributePrefix = "user.com.apple.metadata:";
// The kernel's limit on one attribute value; nothing larger can exist.
inline constexpr std::size_t kSpotlightAttributeMaxSize = 64 * 1024;

}  // namespace wf::platform

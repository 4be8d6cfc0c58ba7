// The watcher over Mail's message store: changed message files are handed
// to the tag import half a second after the stream reports them.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/plist/Value.h"

namespace wf {

class WFHelperAppDelegate;

// The stream's callback, handed the delegate that owns the stream: keeps
// the event paths that end in ".emlx" (case matters) and, when any remain,
// has that delegate run delayedImport with them 0.5 s later (not when the
// delegate is gone by then). Every such callback schedules its
// own delayed import; none is merged or cancelled. (The stream itself
// keeps a message once per latency window.) A large batch is imported in
// slices, one per turn of the main loop.
void fseventsOpenMeta_callback(WFHelperAppDelegate* delegate,
                               const std::vector<std::string>& eventPaths);

// A path for a log line: bytes that are not UTF-8 and control characters
// as \xNN, a backslash doubled, everything else as it is.
std::string escapedPath(std::string_view path);

// How long after a callback its import runs, and the stream's latency.
inline constexpr double kOpenMetaImportDelay = 0.5;
inline constexpr double kOpenMetaStreamLatency = 5.0;
// The helper's own default that replaces the latency (seconds, within the
// bounds below); the end-to-end tests set it short so that an import does
// not cost them five seconds. Anything else keeps kOpenMetaStreamLatency.
inline constexpr const char* kOpenMetaStreamLatencyKey = "openMetaStreamLatency";
inline constexpr double kOpenMetaStreamLatencyMin = 0.1;
inline constexpr double kOpenMetaStreamLatencyMax = 60.0;
// The latency a value of that default asks for.
double openMetaStreamLatency(const Value& configured);
// How many messages one turn of the main loop imports at most, and for how
// long: on a slow or busy machine a slice ends early, so that a call on the
// bus (the status) never waits for more than one short slice.
inline constexpr std::size_t kOpenMetaImportSlice = 64;
inline constexpr std::chrono::milliseconds kOpenMetaImportSliceTime{10};

// The plug-in's stamp of the time its metadata was last written to a
// message; a distant-future stamp marks an import in progress.
inline constexpr const char kTimeStampKey[] = "kMDItemWrenfoldTimeStamp";

}  // namespace wf

// The plug-in's preferences the helper acts on, and the helper's own two
// switches (its defaults domain): each key spelt once.
#pragma once

namespace wf {

// The plug-in's preferences.
inline constexpr const char kSettingsSyncMethod[] = "settingsSyncMethod";
inline constexpr const char kSyncFolderPath[] = "syncFolderPath";
inline constexpr const char kLaunchAtLogin[] = "launchWrenfoldHelperAtLogin";
inline constexpr const char kRecognizeOpenMetaTags[] = "recognizeOpenMetaTags";
inline constexpr const char kDisableDropBoxScanning[] = "disableDropBoxScanning";
inline constexpr const char kShowOmniFocusProjects[] = "showOmniFocusProjects";
inline constexpr const char kShowHitListProjects[] = "showHitListProjects";
inline constexpr const char kShowThingsProjects[] = "showThingsProjects";

// The helper's own defaults domain.
inline constexpr const char kDisableOpenMetaScanning[] = "disableOpenMetaScanning";
inline constexpr const char kDisableExternalProjectScanning[] = "disableExternalProjectScanning";

}  // namespace wf

#include "PreferencesInput.h"

#include <cmath>
#include <limits>

#include "platform/plist/PropertyList.h"

namespace wf::fuzz {
namespace {

// Every key the helper reads from the plug-in's file.
const char* const kKnownKeys[] = {"launchWrenfoldHelperAtLogin",
                                  "recognizeOpenMetaTags",
                                  "disableDropBoxScanning",
                                  "settingsSyncMethod",
                                  "syncFolderPath",
                                  "showOmniFocusProjects",
                                  "showHitListProjects",
                                  "showThingsProjects",
                                  "logSettingsSync",
                                  "logExternalProjects",
                                  "logOmniFocusProjects",
                                  "logPreferencesNotification",
                                  "logOpenMeta",
                                  "logFinderTags",
                                  "loginItems"};

const char* const kListFiles[] = {"WrenfoldKeywords.plist",
                                  "WrenfoldProjects.plist",
                                  "WrenfoldInboxRules.plist",
                                  "WrenfoldSmartMailboxes.plist",
                                  "Other.plist",
                                  ".WrenfoldKeywords.plist.tmp-1",
                                  ""};

// A path inside the home: folders that exist, that do not, a plain file, a
// dangling link, doubled and trailing slashes. Never "..", so nothing the
// helper creates can land outside the home.
std::string pathInHome(FuzzedDataProvider& in, const std::string& home) {
  static const char* const kParts[] = {"sync",       "Sync Folder",   "a",       ".",    "",
                                       "plain-file", "dangling-link", "Library", "Mail", "Ardel",
                                       "n\xc3\xa4me"};
  std::string path = in.ConsumeBool() ? home : home + "/";
  int parts = in.ConsumeIntegralInRange(0, 4);
  for (int i = 0; i < parts; ++i) {
    if (!path.empty() && path.back() != '/') path += '/';
    path += in.PickValueInArray(kParts);
  }
  if (in.ConsumeBool()) path += '/';
  return path;
}

Value makeValue(FuzzedDataProvider& in, const std::string& home, int depth);

Value makeNumber(FuzzedDataProvider& in) {
  switch (in.ConsumeIntegralInRange(0, 5)) {
    case 0:
      return Value(2);  // the sync-folder method
    case 1:
      return Value(in.ConsumeIntegralInRange<int>(-3, 5));
    case 2:
      return Value(in.ConsumeIntegral<long long>());
    case 3:
      return Value(in.ConsumeIntegral<unsigned long long>());
    case 4:
      return Value(in.ConsumeFloatingPoint<double>());
    default: {
      static const double kOdd[] = {std::numeric_limits<double>::quiet_NaN(),
                                    std::numeric_limits<double>::infinity(),
                                    -0.0,
                                    2.0000001,
                                    1.9999999,
                                    1e300};
      return Value(in.PickValueInArray(kOdd));
    }
  }
}

Value makeString(FuzzedDataProvider& in, const std::string& home) {
  switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0:
      return Value(pathInHome(in, home));
    case 1: {
      static const char* const kWords[] = {"YES",  "NO", "2", " 2", "+002", "y",
                                           "true", "0",  "",  "-1", "2abc", "\t 9"};
      return Value(in.PickValueInArray(kWords));
    }
    default: {
      // Any bytes: the codec must have refused what is not UTF-8 already,
      // so keep only what it would keep.
      std::string s = in.ConsumeRandomLengthString(64);
      for (char& c : s)
        if (static_cast<unsigned char>(c) >= 0x80 || c == '\0') c = '?';
      return Value(std::move(s));
    }
  }
}

Value makeValue(FuzzedDataProvider& in, const std::string& home, int depth) {
  int kind = in.ConsumeIntegralInRange(0, depth > 3 ? 4 : 6);
  switch (kind) {
    case 0:
      return Value(in.ConsumeBool());
    case 1:
      return makeNumber(in);
    case 2:
      return makeString(in, home);
    case 3:
      return Value(Date{in.ConsumeFloatingPoint<double>()});
    case 4: {
      std::string bytes = in.ConsumeRandomLengthString(32);
      return Value(Data(bytes.begin(), bytes.end()));
    }
    case 5: {
      Array a;
      int n = in.ConsumeIntegralInRange(0, 4);
      for (int i = 0; i < n; ++i) a.push_back(makeValue(in, home, depth + 1));
      return Value(std::move(a));
    }
    default: {
      Dictionary d;
      int n = in.ConsumeIntegralInRange(0, 4);
      for (int i = 0; i < n; ++i)
        d.insert_or_assign(in.ConsumeRandomLengthString(16), makeValue(in, home, depth + 1));
      return Value(std::move(d));
    }
  }
}

std::string makeKey(FuzzedDataProvider& in) {
  if (in.ConsumeIntegralInRange(0, 7) == 0) return in.ConsumeRandomLengthString(24);
  return in.PickValueInArray(kKnownKeys);
}

}  // namespace

PreferencesInput makePreferencesInput(FuzzedDataProvider& in, const std::string& home) {
  PreferencesInput p;
  p.inContainer = in.ConsumeBool();

  int ownCount = in.ConsumeIntegralInRange(0, 2);
  for (int i = 0; i < ownCount; ++i)
    p.own.insert_or_assign(
        in.ConsumeBool() ? "disableOpenMetaScanning" : "disableExternalProjectScanning",
        makeValue(in, home, 3));
  int argumentCount = in.ConsumeIntegralInRange(0, 2);
  for (int i = 0; i < argumentCount; ++i)
    p.arguments.insert_or_assign("WF" + makeKey(in), makeString(in, home));

  int actionCount = in.ConsumeIntegralInRange(0, 8);
  for (int i = 0; i < actionCount; ++i) {
    auto action = static_cast<PreferencesInput::Action>(in.ConsumeIntegralInRange(0, 6));
    p.actions.push_back(action);
    if (action == PreferencesInput::Action::SyncEvent) {
      std::string folder = pathInHome(in, home);
      p.eventPaths.push_back(folder + (folder.ends_with("/") ? "" : "/") +
                             in.PickValueInArray(kListFiles));
    }
  }

  switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0:  // whatever bytes the plug-in (or a broken disk) left there
      p.fileBytes = in.ConsumeRemainingBytesAsString();
      break;
    default: {
      Dictionary prefs;
      int n = in.ConsumeIntegralInRange(0, 16);
      for (int i = 0; i < n; ++i) prefs.insert_or_assign(makeKey(in), makeValue(in, home, 0));
      Value root =
          in.ConsumeIntegralInRange(0, 9) == 0 ? makeValue(in, home, 2) : Value(std::move(prefs));
      plist::Format format = in.ConsumeBool() ? plist::Format::Binary : plist::Format::XML;
      if (!plist::serialize(root, format, p.fileBytes)) p.fileBytes.clear();
      break;
    }
  }
  return p;
}

}  // namespace wf::fuzz

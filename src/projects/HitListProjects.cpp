// The Hit List's list names, read through its scripting objects: the lists
// at the top of its folders group and those directly inside its folders.
#include "app/WFHelperAppDelegate.h"
#include "platform/LogKeys.h"
#include "projects/ListFile.h"
#include "projects/ProjectImportState.h"

namespace wf {
namespace {

constexpr const char* kHitListIdentifier = "com.potionfactory.thehitlist";
constexpr const char* kListClass = "TheHitListList";
constexpr const char* kFolderClass = "TheHitListFolder";

void appendName(platform::SBObject& item, Array& names) {
  auto name = item.stringProperty("name");
  if (name && !name->empty()) names.emplace_back(*name);
}

}  // namespace

void WFHelperAppDelegate::_fetchHitListProjects() {
  auto& state = projectImportState(*this);
  Array lists;

  // Made once The Hit List is installed and running, then kept for good.
  if (!state._static_hitListApplicationInstance) {
    std::shared_ptr<platform::SBApplication> application;
    if (services().scripting &&
        services().workspace->desktopEntryPathForIdentifier(kHitListIdentifier))
      application = services().scripting->applicationWithBundleIdentifier(kHitListIdentifier);
    if (application && !application->isRunning()) application.reset();
    state._static_hitListApplicationInstance = application;
  }
  auto& application = state._static_hitListApplicationInstance;
  if (!application || !application->isRunning()) {
    WFLogKeyed(kLogExternalProjects, "com.potionfactory.thehitlist is not running");
    return;
  }

  state.sHitListState = true;
  try {
    auto group = application->objectProperty("foldersGroup");
    auto items = group ? group->elementsProperty("lists")
                       : std::vector<std::shared_ptr<platform::SBObject>>{};
    for (const auto& item : items) {
      const std::string itemClass = item->className();
      if (itemClass == kListClass) {
        appendName(*item, lists);
      } else if (itemClass == kFolderClass) {
        // One level down only; what is inside these is not read.
        for (const auto& inner : item->elementsProperty("lists")) appendName(*inner, lists);
      }
    }
  } catch (const NSException&) {
    // A failed read keeps what was gathered so far.
  }

  const Value list(std::move(lists));
  const auto path = externalProjectFilePath(kHitListProjectsFile);
  if (listFileDiffers(readListFile(path), list)) writeListFile(path, list);
}

}  // namespace wf

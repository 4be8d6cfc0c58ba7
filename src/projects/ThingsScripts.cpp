#include "projects/ThingsScripts.h"

namespace wf {

// Trailing blanks and the missing final line break are part of the text.
// Projects in Someday, the Logbook or the Trash are left out.
const char* const kThingsProjectsScript =
    "tell application \"Things\" \n"
    "  set somedayProjects to every to do of list id \"FocusMaybe\" \n"
    "  set logbookProjects to every to do of list id \"FocusLogbook\" \n"
    "  set trashProjects to every to do of list id \"FocusTrash\" \n"
    "  set allProjects to every project\n"
    "  set activeProjects to {}\n"
    "  set projectCount to count of allProjects\n"
    "  set projectIdx to 1\n"
    "  repeat with projectIdx from 1 to projectCount\n"
    "      set aProject to item projectIdx of allProjects\n"
    "      if somedayProjects does not contain {aProject} and logbookProjects does not contain "
    "{aProject} and trashProjects does not contain {aProject} then\n"
    "          set end of activeProjects to name of item 1 of aProject\n"
    "      end if\n"
    "  end repeat\n"
    "  return activeProjects\n"
    "end tell ";

const char* const kThings3ProjectsScript =
    "tell application \"Things3\" \n"
    "  set activeProjects to {}\n"
    "  set somedayProjects to every to do of list id \"TMSomedayListSource\" \n"
    "  set logbookProjects to every to do of list id \"TMLogbookListSource\" \n"
    "  set trashProjects to every to do of list id \"TMTrashListSource\" \n"
    "  set ignoredProjects to somedayProjects & logbookProjects & trashProjects\n"
    "  set allProjects to every project\n"
    "  set projectCount to count of allProjects\n"
    "  set projectIdx to 1\n"
    "  repeat with projectIdx from 1 to projectCount\n"
    "      set aProject to item projectIdx of allProjects\n"
    "      if ignoredProjects does not contain {aProject} then\n"
    "          set end of activeProjects to name of item 1 of aProject\n"
    "      end if\n"
    "  end repeat\n"
    "  return activeProjects\n"
    "end tell ";

}  // namespace wf

#include "platform/Workspace.h"

namespace Platform {

// Linux desktops have no registry of running application bundles.
QList<RunningApplication> runningApplications()
{
    return {};
}

} // namespace Platform

#pragma once

#include <QList>
#include <QString>

namespace Platform {

struct RunningApplication
{
    QString bundleIdentifier; // empty when it has none
    QString bundlePath;       // empty when it has no bundle
};

// The user's running applications; none where the system has no such notion (Linux).
QList<RunningApplication> runningApplications();

} // namespace Platform

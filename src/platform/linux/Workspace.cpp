#include "platform/Workspace.h"

#include <QFileInfo>
#include <QProcess>

using namespace Qt::StringLiterals;

namespace Platform {

// Linux desktops have no registry of running application bundles.
QList<RunningApplication> runningApplications()
{
    return {};
}

// Linux has no per-app file access list to show.
void openFullDiskAccessSettings() {}

// There is no App Store to open on Linux.
void openAppStoreUpdates() {}

// A bundle is just a folder here, so the user gets it in the file manager.
void openApplication(const QString &bundlePath)
{
    if (bundlePath.isEmpty() || !QFileInfo::exists(bundlePath))
        return;
    // Absolute, so a relative name starting with '-' cannot pass for an option.
    QProcess::startDetached(u"xdg-open"_s, {QFileInfo(bundlePath).absoluteFilePath()});
}

// Selecting the item itself needs the file manager's D-Bus interface, which not every
// desktop offers; its folder opens everywhere.
void revealInFileManager(const QString &path)
{
    if (path.isEmpty())
        return;
    QProcess::startDetached(u"xdg-open"_s, {QFileInfo(QFileInfo(path).absoluteFilePath()).path()});
}

std::optional<QString> shortVersion()
{
    const QString version = QStringLiteral(QUORVEL_VERSION);
    if (version.isEmpty())
        return std::nullopt;
    return version;
}

} // namespace Platform

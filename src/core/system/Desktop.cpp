#include "core/system/Desktop.h"

#include "platform/LaunchAtLogin.h"
#include "platform/Workspace.h"

namespace Desktop {

bool loginItemEnabled(const Locations &where)
{
    return Platform::LaunchAtLogin::enabled(where.userFolders());
}

std::optional<QString> setLoginItem(const Locations &where, bool on)
{
    return Platform::LaunchAtLogin::set(where.userFolders(), on);
}

void openFullDiskAccessSettings()
{
    Platform::openFullDiskAccessSettings();
}

void openApplication(const QString &bundlePath)
{
    Platform::openApplication(bundlePath);
}

void reveal(const QString &path)
{
    Platform::revealInFileManager(path);
}

std::optional<QString> version()
{
    return Platform::shortVersion();
}

} // namespace Desktop

#include "core/system/RealSystem.h"

#include "core/process/Shell.h"
#include "platform/ComputerName.h"
#include "platform/LaunchAtLogin.h"
#include "platform/Spotlight.h"

void RealSystem::moveToTrash(const QList<Platform::TrashRequest> &requests,
                             Platform::TrashBatch &batch,
                             const Platform::TrashBatch::Moved &moved) const
{
    batch.moveAll(requests, moved);
}

Platform::TrashEmptying
RealSystem::emptyTrash(const std::optional<Platform::TrashContents> &confirmed) const
{
    return Platform::emptyTrash(confirmed, where().userFolders());
}

QString RealSystem::trashItemsFolder() const
{
    return Platform::homeTrashItemsPath(where().userFolders());
}

Platform::RestoreFailure RealSystem::checkRestore(const QString &trashedPath,
                                                  const QString &original, const QString &anchor,
                                                  bool createFolders) const
{
    return Platform::checkRestore(trashedPath, original, anchor, createFolders,
                                  where().userFolders());
}

void RealSystem::restoreFromTrash(const QList<Platform::RestoreRequest> &requests,
                                  const Platform::Restored &restored) const
{
    Platform::restoreAll(requests, where().userFolders(), restored);
}

DiskUsage RealSystem::volumeUsage(const QString &path) const
{
    return DiskUsage::of(path);
}

QList<Platform::RunningApplication> RealSystem::runningApplications() const
{
    return Platform::runningApplications();
}

std::optional<QString> RealSystem::runTool(const QString &tool, const QStringList &arguments,
                                           double timeoutSeconds) const
{
    if (!Shell::isExecutableFile(tool))
        return std::nullopt;
    return Shell::run(tool, arguments, {}, timeoutSeconds);
}

std::optional<QDateTime> RealSystem::lastUsedDate(const QString &bundlePath) const
{
    return Platform::spotlightLastUsed(bundlePath);
}

QDateTime RealSystem::now() const
{
    return QDateTime::currentDateTimeUtc();
}

bool RealSystem::loginItemEnabled() const
{
    return Platform::LaunchAtLogin::enabled(where().userFolders());
}

std::optional<QString> RealSystem::setLoginItem(bool on) const
{
    return Platform::LaunchAtLogin::set(where().userFolders(), on);
}

void RealSystem::openFullDiskAccessSettings() const
{
    Platform::openFullDiskAccessSettings();
}

void RealSystem::openApplication(const QString &bundlePath) const
{
    Platform::openApplication(bundlePath);
}

void RealSystem::reveal(const QString &path) const
{
    Platform::revealInFileManager(path);
}

std::optional<QString> RealSystem::version() const
{
    return Platform::shortVersion();
}

QString RealSystem::computerName() const
{
    return Platform::computerName();
}

#pragma once

#include "core/system/Locations.h"
#include "core/types/DiskUsage.h"
#include "platform/Trash.h"
#include "platform/TrashRestore.h"
#include "platform/Workspace.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

// Everything the engine asks of the machine, in one place: where the user's folders are,
// the Trash, the volume, the workspace, the login item, Spotlight and the clock.
// Each front end wires the real one once (RealSystem); tests hand in the shared fake.
// Calls may come from any thread.
class System
{
public:
    explicit System(Locations where) : m_where(std::move(where)) {}
    virtual ~System() = default;
    System(const System &) = delete;
    System &operator=(const System &) = delete;

    const Locations &where() const { return m_where; }

    // The Trash (see platform/Trash.h): the moves of one clean-up, in order, as
    // TrashBatch::moveAll makes them; `moved` hears of each right after it.
    virtual void moveToTrash(const QList<Platform::TrashRequest> &requests,
                             Platform::TrashBatch &batch,
                             const Platform::TrashBatch::Moved &moved) const = 0;
    virtual Platform::TrashEmptying
    emptyTrash(const std::optional<Platform::TrashContents> &confirmed) const = 0;
    virtual QString trashItemsFolder() const = 0;
    // Putting a Trash entry back (see platform/TrashRestore.h).
    virtual Platform::RestoreFailure checkRestore(const QString &trashedPath,
                                                  const QString &original, const QString &anchor,
                                                  bool createFolders) const = 0;
    // Many entries put back in order, as Platform::restoreAll does.
    virtual void restoreFromTrash(const QList<Platform::RestoreRequest> &requests,
                                  const Platform::Restored &restored) const = 0;

    virtual DiskUsage volumeUsage(const QString &path) const = 0;
    virtual QList<Platform::RunningApplication> runningApplications() const = 0;
    // The output of a system tool (Spotlight's mdfind), run only when it is an executable
    // file; nullopt otherwise or when it fails.
    virtual std::optional<QString> runTool(const QString &tool, const QStringList &arguments,
                                           double timeoutSeconds) const = 0;
    // Spotlight's last-used date of an application bundle; nullopt when unknown.
    virtual std::optional<QDateTime> lastUsedDate(const QString &bundlePath) const = 0;
    virtual QDateTime now() const = 0;

    // The window's errands.
    virtual bool loginItemEnabled() const = 0;
    virtual std::optional<QString> setLoginItem(bool on) const = 0;
    virtual void openFullDiskAccessSettings() const = 0;
    virtual void openApplication(const QString &bundlePath) const = 0;
    virtual void reveal(const QString &path) const = 0;
    virtual std::optional<QString> version() const = 0;
    // The name the system shows people for this machine; empty when it has none.
    virtual QString computerName() const = 0;

private:
    Locations m_where;
};

#pragma once

#include "core/system/System.h"
#include "platform/Trash.h"

#include <QMutex>
#include <QStringList>
#include <functional>

// The one stand-in for the machine that every model and scan test uses. Files are real,
// under the test's temporary home, and so is the Trash there unless a test scripts the
// move; everything else (running applications, Spotlight's tools, the clock, the volume,
// the login item and the window's errands) answers from the fields below and records what
// it was asked. Callable from worker threads.
class FakeSystem final : public System
{
public:
    explicit FakeSystem(Locations where) : System(std::move(where)) {}

    // Scripted answers; the defaults act on the temporary home's own Trash.
    std::function<Platform::TrashMove(const QString &path, const QString &anchor)> move;
    QList<Platform::RunningApplication> running;
    std::function<std::optional<QString>(const QString &tool, const QStringList &args)> tool;
    QDateTime clock = QDateTime::currentDateTimeUtc();
    DiskUsage volume{500'000'000'000, 200'000'000'000};
    std::optional<QString> loginRefusal; // set: the login item cannot be changed

    // What was asked.
    QStringList asked() const
    {
        QMutexLocker lock(&m_mutex);
        return m_asked;
    }

    Platform::TrashMove moveToTrash(const QString &path, const QString &anchor) const override
    {
        note(QStringLiteral("move ") + path);
        return move ? move(path, anchor)
                    : Platform::moveToTrash(path, anchor, where().userFolders());
    }
    Platform::TrashEmptying
    emptyTrash(const std::optional<Platform::TrashContents> &confirmed) const override
    {
        note(QStringLiteral("empty"));
        return Platform::emptyTrash(confirmed, where().userFolders());
    }
    QString trashItemsFolder() const override
    {
        return Platform::homeTrashItemsPath(where().userFolders());
    }
    Platform::RestoreFailure checkRestore(const QString &trashedPath, const QString &original,
                                          const QString &anchor, bool createFolders) const override
    {
        return Platform::checkRestore(trashedPath, original, anchor, createFolders,
                                      where().userFolders());
    }
    Platform::TrashRestore restoreFromTrash(const QString &trashedPath, const QString &original,
                                            const QString &anchor,
                                            bool createFolders) const override
    {
        note(QStringLiteral("restore ") + original);
        return Platform::restoreFromTrash(trashedPath, original, anchor, createFolders,
                                          where().userFolders());
    }
    DiskUsage volumeUsage(const QString &) const override { return volume; }
    QList<Platform::RunningApplication> runningApplications() const override { return running; }
    std::optional<QString> runTool(const QString &name, const QStringList &arguments,
                                   double) const override
    {
        note(name + u' ' + arguments.join(u' '));
        return tool ? tool(name, arguments) : std::nullopt;
    }
    QDateTime now() const override { return clock; }
    bool loginItemEnabled() const override { return m_loginOn; }
    std::optional<QString> setLoginItem(bool on) const override
    {
        note(on ? QStringLiteral("login on") : QStringLiteral("login off"));
        if (!loginRefusal)
            m_loginOn = on;
        return loginRefusal;
    }
    void openFullDiskAccessSettings() const override { note(QStringLiteral("full disk access")); }
    void openApplication(const QString &bundlePath) const override
    {
        note(QStringLiteral("open ") + bundlePath);
    }
    void reveal(const QString &path) const override { note(QStringLiteral("reveal ") + path); }
    std::optional<QString> version() const override { return QStringLiteral("1.2"); }

private:
    void note(const QString &what) const
    {
        QMutexLocker lock(&m_mutex);
        m_asked.append(what);
    }

    mutable QMutex m_mutex;
    mutable QStringList m_asked;
    mutable bool m_loginOn = false;
};

#pragma once

#include "core/system/System.h"
#include "platform/Trash.h"

#include <QDir>
#include <QFileInfo>
#include <QMutex>
#include <QStringList>
#include <cerrno>
#include <cstdio>
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
    std::function<std::optional<QDateTime>(const QString &bundle)> lastUsed; // Spotlight's
    QDateTime clock = QDateTime::currentDateTimeUtc();
    DiskUsage volume{500'000'000'000, 200'000'000'000};
    std::optional<QString> loginRefusal; // set: the login item cannot be changed

    // What was asked.
    QStringList asked() const
    {
        QMutexLocker lock(&m_mutex);
        return m_asked;
    }

    void moveToTrash(const QList<Platform::TrashRequest> &requests,
                     [[maybe_unused]] Platform::TrashBatch &batch,
                     const Platform::TrashBatch::Moved &moved) const override
    {
        for (const Platform::TrashRequest &request : requests)
            note(QStringLiteral("move ") + request.path);
        if (!move) {
#ifdef Q_OS_LINUX
            return batch.moveAll(requests, moved);
#else
            for (qsizetype i = 0; i < requests.size(); ++i)
                moved(i, intoHomeTrash(requests[i].path));
            return;
#endif
        }
        for (qsizetype i = 0; i < requests.size(); ++i)
            moved(i, move(requests[i].path, requests[i].anchor));
    }
    Platform::TrashEmptying
    emptyTrash(const std::optional<Platform::TrashContents> &confirmed) const override
    {
        note(QStringLiteral("empty"));
#ifdef Q_OS_LINUX
        return Platform::emptyTrash(confirmed, where().userFolders());
#else
        Q_UNUSED(confirmed);
        return {}; // never the Finder: it would empty the developer's own Trash
#endif
    }
    QString trashItemsFolder() const override
    {
#ifdef Q_OS_LINUX
        return Platform::homeTrashItemsPath(where().userFolders());
#else
        return where().home() + QStringLiteral("/.Trash");
#endif
    }
    DiskUsage volumeUsage(const QString &) const override
    {
        return volume;
    }
    QList<Platform::RunningApplication> runningApplications() const override
    {
        return running;
    }
    Platform::RestoreFailure checkRestore(const QString &trashedPath, const QString &original,
                                          const QString &anchor, bool createFolders) const override
    {
        return Platform::checkRestore(trashedPath, original, anchor, createFolders,
                                      where().userFolders());
    }
    void restoreFromTrash(const QList<Platform::RestoreRequest> &requests,
                          const Platform::Restored &restored) const override
    {
        for (const Platform::RestoreRequest &request : requests)
            note(QStringLiteral("restore ") + request.original);
        Platform::restoreAll(requests, where().userFolders(), restored);
    }
    std::optional<QString> runTool(const QString &name, const QStringList &arguments,
                                   double) const override
    {
        note(name + u' ' + arguments.join(u' '));
        return tool ? tool(name, arguments) : std::nullopt;
    }
    std::optional<QDateTime> lastUsedDate(const QString &bundle) const override
    {
        note(QStringLiteral("last used ") + bundle);
        return lastUsed ? lastUsed(bundle) : std::nullopt;
    }
    QDateTime now() const override
    {
        return clock;
    }
    bool loginItemEnabled() const override
    {
        return m_loginOn;
    }
    std::optional<QString> setLoginItem(bool on) const override
    {
        note(on ? QStringLiteral("login on") : QStringLiteral("login off"));
        if (!loginRefusal)
            m_loginOn = on;
        return loginRefusal;
    }
    void openFullDiskAccessSettings() const override
    {
        note(QStringLiteral("full disk access"));
    }
    void openApplication(const QString &bundlePath) const override
    {
        note(QStringLiteral("open ") + bundlePath);
    }
    void reveal(const QString &path) const override
    {
        note(QStringLiteral("reveal ") + path);
    }
    std::optional<QString> version() const override
    {
        return QStringLiteral("1.2");
    }
    QString computerName() const override
    {
        return {};
    }

private:
#ifndef Q_OS_LINUX
    // The system's own Trash ignores HOME there: a plain move into the temporary home's
    // .Trash, under a name of its own, stands in for it.
    Platform::TrashMove intoHomeTrash(const QString &path) const
    {
        Platform::TrashMove result;
        const QString folder = trashItemsFolder(), name = QFileInfo(path).fileName();
        QString target = folder + u'/' + name;
        for (int n = 2; QFileInfo(target).exists() || QFileInfo(target).isSymLink(); ++n)
            target = folder + u'/' + name + u'.' + QString::number(n);
        if (!QDir().mkpath(folder) || ::rename(QFile::encodeName(path).constData(),
                                               QFile::encodeName(target).constData()) != 0) {
            result.failure =
                errno == ENOENT ? Platform::TrashFailure::missing : Platform::TrashFailure::other;
            result.errorCode = errno;
            return result;
        }
        result.moved = true;
        result.trashedPath = target;
        return result;
    }
#endif
    void note(const QString &what) const
    {
        QMutexLocker lock(&m_mutex);
        m_asked.append(what);
    }

    mutable QMutex m_mutex;
    mutable QStringList m_asked;
    mutable bool m_loginOn = false;
};

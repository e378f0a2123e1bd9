#pragma once

#include "core/disk/DiskScanner.h"

#include <QList>
#include <QObject>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

// The state behind the overview page: the disk slices, the Trash's figures and the
// outcome of emptying it. One per process, made by the front end; fields are written on
// the main thread only.
class OverviewModel final : public QObject
{
    Q_OBJECT

public:
    // The measurements and the emptying, replaceable for tests; each runs on a worker.
    struct Services
    {
        std::function<QList<DiskCategory>(const DiskScanner::NameProgress &)> categories;
        std::function<std::optional<TrashSize>()> trashSize;
        std::function<TrashEmptyResult(const std::optional<Platform::TrashContents> &)> emptyTrash;

        // The real measurements over `system`, which the services keep alive.
        static Services real(std::shared_ptr<const System> system);
    };

    explicit OverviewModel(Services services, QObject *parent = nullptr);

    const QList<DiskCategory> &cats() const { return m_cats; }
    bool scanning() const { return m_scanning; }
    const QString &progress() const { return m_progress; }
    const std::optional<TrashSize> &trash() const { return m_trash; }
    bool trashUnreadable() const { return m_trashUnreadable; }
    const std::optional<QString> &trashMsg() const { return m_trashMsg; }
    // What the last finished emptying did; nullopt before one finished.
    const std::optional<TrashEmptyResult> &trashResult() const { return m_trashResult; }

    // All return at once; results arrive later on the main thread.
    void scan();
    void refreshTrash();
    // Empties what `confirmed` counted; without it, what the Trash holds when the work
    // starts, which is the moment the user confirmed in the window.
    void emptyTrash(std::optional<Platform::TrashContents> confirmed = std::nullopt);

Q_SIGNALS:
    void changed();

private:
    Services m_services;
    QList<DiskCategory> m_cats;
    bool m_scanning = false;
    QString m_progress;
    std::optional<TrashSize> m_trash;
    bool m_trashUnreadable = false;
    std::optional<QString> m_trashMsg;
    std::optional<TrashEmptyResult> m_trashResult;
};

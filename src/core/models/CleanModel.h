#pragma once

#include "core/cleanup/Cleaner.h"
#include "core/cleanup/Restorer.h"
#include "core/types/CleanItem.h"

#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

// The state behind one clean-up page: runs its categories' scanners off the main thread,
// publishes the items with the default selection, and hands the selection to the removal.
// Every published field is written on the main thread; `changed()` follows each write.
class CleanModel final : public QObject
{
    Q_OBJECT

public:
    // The scanners and the removal, replaceable for tests. Each runs on a worker thread.
    struct Services
    {
        std::function<QList<CleanItem>(const QSet<QString> &excluding)> userCaches;
        std::function<QList<CleanItem>()> logs;
        std::function<QList<CleanItem>()> aiClutter;
        std::function<QList<CleanItem>()> developerJunk;
        std::function<QList<CleanItem>()> leftovers;
        std::function<QList<CleanItem>(int days)> unusedApps;
        std::function<QList<CleanItem>(qint64 minBytes, std::function<void(qint64)> progress)>
            largeFiles;
        std::function<Cleaner::Result(const QList<CleanItem> &)> remove;
        std::function<Restorer::Result(const QList<Restorer::Move> &)> restore;

        // The real scans over `system`, which the services keep alive.
        static Services real(std::shared_ptr<const System> system);
    };

    static constexpr qint64 kLargeFileBytes = 500LL * 1024 * 1024;
    static constexpr int kUnusedDays = 180;

    CleanModel(QList<CleanCategory> categories, Services services, QObject *parent = nullptr);

    const QList<CleanCategory> &categories() const { return m_categories; }
    const QList<CleanItem> &items() const { return m_items; }
    const QSet<QString> &selected() const { return m_selected; }
    bool scanning() const { return m_scanning; }
    const QString &progress() const { return m_progress; }
    const std::optional<QString> &message() const { return m_message; }
    bool scanned() const { return m_scanned; }

    // Items whose path is selected, in list order.
    QList<CleanItem> selectedItems() const;
    QList<CleanItem> items(CleanCategory category) const;

    // The page edits the selection directly.
    void setSelected(const QSet<QString> &paths);
    void setSelected(const QString &path, bool on);

    // Starts a scan unless one (or a removal) is running. Returns at once.
    void scan();
    // Moves the selected items to the Trash; nothing when nothing is selected.
    void clean();

    // Puts back exactly what the last removal moved, then scans again; the outcome stays as
    // the message. Possible until the next scan or removal starts.
    void undo();
    bool canUndo() const { return !m_undoable.isEmpty(); }

    // What the last removal did to each item it took; nullopt before the first.
    const std::optional<Cleaner::Result> &lastRemoval() const { return m_lastRemoval; }

Q_SIGNALS:
    void changed();

private:
    void finishScan(QList<CleanItem> found);
    void finishClean(const Cleaner::Result &result);
    void startScan(std::optional<QString> message);
    void setProgress(const QString &text);

    QList<CleanCategory> m_categories;
    Services m_services;
    QList<CleanItem> m_items;
    QSet<QString> m_selected;
    bool m_scanning = false;
    QString m_progress;
    std::optional<QString> m_message;
    bool m_scanned = false;
    std::optional<Cleaner::Result> m_lastRemoval;
    QList<Restorer::Move> m_undoable;
};

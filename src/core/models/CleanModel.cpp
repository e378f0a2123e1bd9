#include "core/models/CleanModel.h"
#include "core/words/CategoryWords.h"

#include "core/cleanup/CleanScanners.h"
#include "core/text/Fmt.h"
#include "core/util/Background.h"
#include "core/util/MainThread.h"
#include "core/words/CleanupWords.h"
#include "core/words/RestoreWords.h"

#include <QPointer>

using namespace Qt::StringLiterals;

namespace {

bool preselected(CleanCategory category)
{
    return category != CleanCategory::largeFiles && category != CleanCategory::leftovers &&
           category != CleanCategory::unusedApps;
}

// The model's categories in scan order: the AI-tool and developer scans, which claim
// folders inside the caches folder, move ahead of the user-cache scan; the rest keep
// their order ([userCache, logs, ai, developer] is scanned ai, developer, userCache, logs).
QList<CleanCategory> scanOrder(const QList<CleanCategory> &categories)
{
    const qsizetype cache = categories.indexOf(CleanCategory::userCache);
    if (cache < 0)
        return categories;
    QList<CleanCategory> order = categories.mid(0, cache);
    QList<CleanCategory> rest;
    for (CleanCategory c : categories.mid(cache + 1)) {
        if (c == CleanCategory::ai || c == CleanCategory::developer)
            order.append(c);
        else
            rest.append(c);
    }
    order.append(CleanCategory::userCache);
    return order + rest;
}

} // namespace

CleanModel::Services CleanModel::Services::real(std::shared_ptr<const System> system)
{
    using Apps = Locations::Apps;
    Services s;
    s.userCaches = [system](const QSet<QString> &excluding) {
        return Cleaner::userCaches(system->where(), excluding);
    };
    s.logs = [system] { return Cleaner::logs(system->where()); };
    s.aiClutter = [system] { return Cleaner::aiClutter(system->where()); };
    s.developerJunk = [system] { return Cleaner::developerJunk(system->where()); };
    s.leftovers = [system] {
        return Cleaner::leftovers(system->where().applicationFolders(Apps::installed), *system);
    };
    s.unusedApps = [system](int days) {
        return Cleaner::unusedApps(days, system->where().applicationFolders(Apps::userFacing),
                                   *system);
    };
    s.largeFiles = [system](qint64 minBytes, std::function<void(qint64)> progress) {
        return Cleaner::largeFiles(minBytes, progress, system->where());
    };
    s.remove = [system](const QList<CleanItem> &items) { return Cleaner::remove(items, *system); };
    s.restore = [system](const QList<Restorer::Move> &moves) {
        return Restorer::restore(moves, *system);
    };
    return s;
}

CleanModel::CleanModel(QList<CleanCategory> categories, Services services, QObject *parent)
    : QObject(parent), m_categories(std::move(categories)), m_services(std::move(services))
{}

QList<CleanItem> CleanModel::selectedItems() const
{
    QList<CleanItem> result;
    for (const CleanItem &item : m_items) {
        if (m_selected.contains(item.path))
            result.append(item);
    }
    return result;
}

QList<CleanItem> CleanModel::items(CleanCategory category) const
{
    QList<CleanItem> result;
    for (const CleanItem &item : m_items) {
        if (item.category == category)
            result.append(item);
    }
    return result;
}

void CleanModel::setSelected(const QSet<QString> &paths)
{
    if (paths == m_selected)
        return;
    m_selected = paths;
    Q_EMIT changed();
}

void CleanModel::setSelected(const QString &path, bool on)
{
    if (on == m_selected.contains(path))
        return;
    if (on)
        m_selected.insert(path);
    else
        m_selected.remove(path);
    Q_EMIT changed();
}

void CleanModel::setProgress(const QString &text)
{
    m_progress = text;
    Q_EMIT changed();
}

void CleanModel::scan()
{
    startScan(std::nullopt);
}

void CleanModel::startScan(std::optional<QString> message)
{
    if (m_scanning)
        return;
    m_scanning = true;
    m_message = std::move(message);
    m_undoable.clear();
    m_progress.clear();
    Q_EMIT changed();

    QPointer<CleanModel> self(this);
    Background::run([self, order = scanOrder(m_categories), services = m_services] {
        QList<CleanItem> found;
        QSet<QString> claimed;
        for (CleanCategory category : order) {
            MainThread::post([self, text = title(category)] {
                if (self)
                    self->setProgress(text);
            });
            QList<CleanItem> items;
            switch (category) {
            case CleanCategory::userCache:
                items = services.userCaches(claimed);
                break;
            case CleanCategory::logs:
                items = services.logs();
                break;
            case CleanCategory::ai:
                items = services.aiClutter();
                break;
            case CleanCategory::developer:
                items = services.developerJunk();
                break;
            case CleanCategory::leftovers:
                items = services.leftovers();
                break;
            case CleanCategory::unusedApps:
                items = services.unusedApps(kUnusedDays);
                break;
            case CleanCategory::largeFiles:
                // Reports may come from any thread; each becomes its own main-thread step.
                items = services.largeFiles(kLargeFileBytes, [self](qint64 visited) {
                    MainThread::post([self, visited] {
                        if (self)
                            self->setProgress(QString::number(visited));
                    });
                });
                break;
            }
            if (category == CleanCategory::ai || category == CleanCategory::developer) {
                for (const CleanItem &item : std::as_const(items))
                    claimed.insert(item.path);
            }
            found += items;
        }
        MainThread::post([self, found = std::move(found)]() mutable {
            if (self)
                self->finishScan(std::move(found));
        });
    });
}

void CleanModel::finishScan(QList<CleanItem> found)
{
    m_items = std::move(found);
    m_selected.clear();
    for (const CleanItem &item : std::as_const(m_items)) {
        if (preselected(item.category))
            m_selected.insert(item.path);
    }
    m_scanning = false;
    m_scanned = true;
    Q_EMIT changed();
}

void CleanModel::clean()
{
    const QList<CleanItem> taken = selectedItems();
    if (taken.isEmpty())
        return;
    m_scanning = true;
    m_undoable.clear();
    m_progress = Words::removing();
    Q_EMIT changed();

    QPointer<CleanModel> self(this);
    Background::run([self, taken, remove = m_services.remove] {
        const Cleaner::Result result = remove(taken);
        MainThread::post([self, result] {
            if (self)
                self->finishClean(result);
        });
    });
}

void CleanModel::finishClean(const Cleaner::Result &result)
{
    // By path: titles repeat (one app's remains in several folders), paths do not.
    m_undoable = Restorer::movesOf(result, m_items, QDateTime::currentDateTimeUtc());
    QSet<QString> moved;
    for (const Cleaner::Outcome &outcome : result.items) {
        if (outcome.kind == Cleaner::Outcome::Kind::moved)
            moved.insert(outcome.path);
    }
    m_items.removeIf([&](const CleanItem &item) { return moved.contains(item.path); });
    m_selected -= moved;
    m_message = Words::removalSummary(result);
    m_lastRemoval = result;
    m_scanning = false;
    Q_EMIT changed();
}

void CleanModel::undo()
{
    if (m_scanning || m_undoable.isEmpty() || !m_services.restore)
        return;
    const QList<Restorer::Move> moves = std::exchange(m_undoable, {});
    m_scanning = true;
    m_progress = Words::restoring();
    Q_EMIT changed();

    QPointer<CleanModel> self(this);
    Background::run([self, moves, restore = m_services.restore] {
        const Restorer::Result result = restore(moves);
        MainThread::post([self, result] {
            if (!self)
                return;
            self->m_scanning = false;
            self->startScan(Words::restoreSummary(result));
        });
    });
}

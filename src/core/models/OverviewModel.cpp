#include "core/models/OverviewModel.h"

#include "core/util/Background.h"
#include "core/util/MainThread.h"
#include "core/words/CleanupWords.h"
#include "core/words/DiskWords.h"

#include <QPointer>

using namespace Qt::StringLiterals;

OverviewModel::Services OverviewModel::Services::real(std::shared_ptr<const System> system)
{
    Services s;
    s.categories = [system](const DiskScanner::NameProgress &progress) {
        const auto named = [progress](const QString &id) { progress(Words::diskCategory(id)); };
        QList<DiskCategory> cats = DiskScanner::categories(
            progress ? named : DiskScanner::NameProgress(), *system,
            system->where().applicationFolders(Locations::Apps::userFacing));
        for (DiskCategory &cat : cats)
            cat.name = Words::diskCategory(cat.id);
        return cats;
    };
    s.trashSize = [system] { return DiskScanner::trashSize(*system); };
    s.emptyTrash = [system](const std::optional<Platform::TrashContents> &confirmed) {
        return DiskScanner::emptyTrash(confirmed, *system);
    };
    return s;
}

OverviewModel::OverviewModel(Services services, QObject *parent)
    : QObject(parent), m_services(std::move(services))
{}

void OverviewModel::scan()
{
    if (m_scanning)
        return;
    m_scanning = true;
    m_progress.clear();
    Q_EMIT changed();

    QPointer<OverviewModel> self(this);
    Background::run([self, categories = m_services.categories] {
        // Each name becomes its own main-thread step, whichever thread reports it.
        const auto progress = [self](const QString &name) {
            MainThread::post([self, name] {
                if (!self)
                    return;
                self->m_progress = name;
                Q_EMIT self->changed();
            });
        };
        QList<DiskCategory> result = categories(progress);
        MainThread::post([self, result = std::move(result)]() mutable {
            if (!self)
                return;
            self->m_cats = std::move(result);
            self->m_scanning = false;
            Q_EMIT self->changed();
        });
    });
}

void OverviewModel::refreshTrash()
{
    QPointer<OverviewModel> self(this);
    Background::run([self, trashSize = m_services.trashSize] {
        const std::optional<TrashSize> size = trashSize();
        MainThread::post([self, size] {
            if (!self)
                return;
            self->m_trash = size;
            self->m_trashUnreadable = !size.has_value();
            Q_EMIT self->changed();
        });
    });
}

void OverviewModel::emptyTrash(std::optional<Platform::TrashContents> confirmed)
{
    m_trashMsg = Words::emptying();
    Q_EMIT changed();

    QPointer<OverviewModel> self(this);
    Background::run([self, confirmed = std::move(confirmed), empty = m_services.emptyTrash,
                     trashSize = m_services.trashSize]() mutable {
        if (!confirmed) {
            if (const std::optional<TrashSize> size = trashSize())
                confirmed = size->contents;
        }
        const TrashEmptyResult result = empty(confirmed);
        MainThread::post([self, result] {
            if (!self)
                return;
            self->m_trashResult = result;
            self->m_trashMsg = Words::trashMessage(result);
            Q_EMIT self->changed();
            self->refreshTrash();
        });
    });
}

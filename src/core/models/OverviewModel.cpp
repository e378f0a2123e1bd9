#include "core/models/OverviewModel.h"

#include "core/text/L10n.h"
#include "core/util/Background.h"
#include "core/util/MainThread.h"

#include <QPointer>

using namespace Qt::StringLiterals;

OverviewModel::Services OverviewModel::Services::real()
{
    Services s;
    s.categories = [](const DiskScanner::NameProgress &progress) {
        return DiskScanner::categories(progress);
    };
    s.trashSize = [] { return DiskScanner::trashSize(); };
    s.emptyTrash = [](const std::optional<Platform::TrashContents> &confirmed) {
        return DiskScanner::emptyTrash(confirmed);
    };
    return s;
}

OverviewModel &OverviewModel::shared()
{
    static OverviewModel *instance = new OverviewModel; // lives as long as the process
    return *instance;
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
    m_trashMsg = L10n::pick(u"Emptying…"_s, u"正在清空…"_s);
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
            self->m_trashMsg = trashMessage(result);
            Q_EMIT self->changed();
            self->refreshTrash();
        });
    });
}

QString OverviewModel::trashMessage(const TrashEmptyResult &result)
{
    QString text;
    switch (result.code) {
    case TrashEmptyResult::Code::emptied:
        text = L10n::pick(u"Trash emptied."_s, u"已清空。"_s);
        break;
    case TrashEmptyResult::Code::partial: {
        const QString n = QString::number(result.left);
        text =
            L10n::pick(u"The Trash could not be emptied completely: "_s + n + u" item(s) remain."_s,
                       u"废纸篓未能完全清空：还剩 "_s + n + u" 项。"_s);
        break;
    }
    case TrashEmptyResult::Code::failed:
        text = result.systemText.isEmpty() ? u"AppleScript error"_s : result.systemText;
        break;
    }
    if (result.kept > 0) {
        const QString k = QString::number(result.kept);
        text += L10n::pick(u" "_s + k + u" item(s) added after you confirmed were kept."_s,
                           u"确认之后放入的 "_s + k + u" 项已保留。"_s);
    }
    return text;
}

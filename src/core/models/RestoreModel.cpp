#include "core/models/RestoreModel.h"

#include "core/util/Background.h"
#include "core/util/MainThread.h"
#include "core/words/RestoreWords.h"

#include <QPointer>

RestoreModel::Services RestoreModel::Services::real(std::shared_ptr<const System> system)
{
    Services s;
    s.restorable = [system] { return Restorer::restorable(*system); };
    s.restore = [system](const QList<Restorer::Move> &moves) {
        return Restorer::restore(moves, *system);
    };
    return s;
}

RestoreModel::RestoreModel(Services services, QObject *parent)
    : QObject(parent), m_services(std::move(services))
{}

void RestoreModel::refresh()
{
    if (m_busy || !m_services.restorable)
        return;
    m_busy = true;
    Q_EMIT changed();
    QPointer<RestoreModel> self(this);
    Background::run([self, restorable = m_services.restorable] {
        QList<Restorer::Move> moves = restorable();
        MainThread::post([self, moves = std::move(moves)]() mutable {
            if (self)
                self->finishRefresh(std::move(moves));
        });
    });
}

void RestoreModel::restore(const QList<Restorer::Move> &moves)
{
    if (m_busy || moves.isEmpty() || !m_services.restore)
        return;
    m_busy = true;
    m_message = Words::restoring();
    Q_EMIT changed();
    QPointer<RestoreModel> self(this);
    Background::run([self, moves, services = m_services] {
        const Restorer::Result result = services.restore(moves);
        QList<Restorer::Move> left = services.restorable ? services.restorable() : moves;
        MainThread::post([self, result, left = std::move(left)]() mutable {
            if (!self)
                return;
            self->m_message = Words::restoreSummary(result);
            self->m_afterRestore = true;
            self->finishRefresh(std::move(left));
        });
    });
}

void RestoreModel::finishRefresh(QList<Restorer::Move> moves)
{
    m_moves = std::move(moves);
    m_busy = false;
    Q_EMIT changed();
    if (std::exchange(m_afterRestore, false))
        Q_EMIT restored();
}

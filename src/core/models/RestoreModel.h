#pragma once

#include "core/cleanup/Restorer.h"

#include <QList>
#include <QObject>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

// What of the Trash Quorvel moved there and can put back, for the Overview's Trash box.
// Fields are written on the main thread only; `changed()` follows each write.
class RestoreModel final : public QObject
{
    Q_OBJECT

public:
    // Each runs on a worker thread; replaceable for tests.
    struct Services
    {
        std::function<QList<Restorer::Move>()> restorable;
        std::function<Restorer::Result(const QList<Restorer::Move> &)> restore;

        // The real ones over `system`, which the services keep alive.
        static Services real(std::shared_ptr<const System> system);
    };

    explicit RestoreModel(Services services, QObject *parent = nullptr);

    // Newest first; empty until the first refresh finishes.
    const QList<Restorer::Move> &moves() const { return m_moves; }
    bool busy() const { return m_busy; }
    const std::optional<QString> &message() const { return m_message; }

    // Both return at once; nothing while one is running.
    void refresh();
    // Puts `moves` back, then refreshes; the outcome becomes the message.
    void restore(const QList<Restorer::Move> &moves);

Q_SIGNALS:
    void changed();
    void restored(); // after a restore finished, once the list is current again

private:
    void finishRefresh(QList<Restorer::Move> moves);

    Services m_services;
    QList<Restorer::Move> m_moves;
    bool m_busy = false;
    bool m_afterRestore = false;
    std::optional<QString> m_message;
};

#pragma once

#include "core/system/System.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

class AppUpdater;
class OverviewModel;
class CleanModel;
class QImage;

// Snapshot mode (`--snapshot DIR`): the app photographs its panel and every tools page,
// writes the updates and leftovers reports, and quits. It runs as timed steps on the
// event loop, so the app stays fully alive meanwhile; nothing is ever printed, and any
// step that fails just leaves its file out.
class Snapshot final : public QObject
{
    Q_OBJECT

public:
    // The output folder when the arguments (program first) ask for snapshot mode: the one
    // after the first "--snapshot". None when it is missing.
    static std::optional<QString> requestedFolder(const QStringList &arguments);

    // `route` is the app's own request router: the tools window must open in this
    // process, never through another instance's socket.
    Snapshot(QString folder, std::function<void(const QString &)> route,
             std::shared_ptr<const System> system, OverviewModel &overview,
             QObject *parent = nullptr);
    ~Snapshot() override;

    // Returns at once; the last step quits the app.
    void start();

    // QUORVEL_SNAPSHOT_SCALE multiplies every wait (tests shorten the run with it);
    // 1 when unset or not a positive number.
    static double waitScale();

private:
    struct Step
    {
        std::function<void()> action;
        double waitAfter = 0; // seconds
    };

    QList<Step> steps();
    void run(qsizetype index);

    void renderPanel();
    void renderScreenPage();
    void startWork();
    void capturePage(int number, const QString &raw);
    void writeUpdates();
    void writeLeftovers();
    void save(const QImage &image, const QString &name) const;
    void write(const QString &name, const QByteArray &data) const;

    QString m_folder;
    std::shared_ptr<const System> m_system;
    OverviewModel &m_overview;
    std::function<void(const QString &)> m_route;
    QList<Step> m_steps;
    CleanModel *m_leftovers = nullptr;
    AppUpdater *m_updater = nullptr;
};

#pragma once

#include "core/system/System.h"

#include "core/updates/AppInfo.h"
#include "core/updates/OutdatedApp.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>
#include <functional>
#include <memory>
#include <optional>

// The update checker: asks Homebrew, the App Store and appcast feeds which installed
// packages and applications have newer versions. The object lives on the main thread and
// every published field changes there.
class AppUpdater final : public QObject
{
    Q_OBJECT

public:
    // The sources a scan and an upgrade use, replaceable for tests. brewOutdated,
    // applications and upgrade block (they run on worker threads, so they must not touch
    // the model); the checks are main-thread calls that report once through `done`.
    struct Services
    {
        std::function<QList<OutdatedApp>()> brewOutdated;
        std::function<QList<AppInfo>()> applications;
        std::function<void(const AppInfo &, Finding)> checkAppStore;
        std::function<void(const AppInfo &, const QUrl &, Finding)> checkSparkle;
        std::function<std::optional<QString>()> brewPath;
        std::function<std::optional<QString>(const OutdatedApp &)> upgrade;

        static Services real(std::shared_ptr<const System> system);
    };

    // At most this many App Store and appcast checks run at once.
    static constexpr int kMaxChecks = 6;

    explicit AppUpdater(Services services, QObject *parent = nullptr);

    // --- published fields
    const QList<OutdatedApp> &items() const { return m_items; }
    bool scanning() const { return m_scanning; }
    int checkedCount() const { return m_checkedCount; }
    const QString &status() const { return m_status; }
    const QString &log() const { return m_log; }

    // One complete check; returns at once, ignored while a scan runs.
    void scan();
    // Upgrades one Homebrew finding and removes its row when done.
    void brewUpgrade(const OutdatedApp &app);

Q_SIGNALS:
    void changed();

private:
    struct ScanState;
    void readInventory(const std::shared_ptr<ScanState> &state);
    void startCheck(const std::shared_ptr<ScanState> &state);
    void finishScan(const std::shared_ptr<ScanState> &state);

    Services m_services;
    QList<OutdatedApp> m_items;
    bool m_scanning = false;
    int m_checkedCount = 0;
    QString m_status;
    QString m_log;
};

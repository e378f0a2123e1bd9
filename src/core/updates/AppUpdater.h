#pragma once

#include "core/updates/OutdatedApp.h"

#include <QList>
#include <QLocale>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <functional>
#include <memory>
#include <optional>

// The update checker: asks Homebrew, the App Store and appcast feeds which installed
// packages and applications have newer versions. The object lives on the main thread and
// every published field changes there; the static sources are usable on their own.
class AppUpdater final : public QObject
{
    Q_OBJECT

public:
    // One installed application as its Info.plist describes it.
    struct AppInfo
    {
        QString path; // the bundle: folder + "/" + entry name
        QString name;
        QString bundleID;
        QString shortVersion;        // "" when missing or not text
        QString build;               // "" when missing or not text
        std::optional<QString> feed; // SUFeedURL verbatim
        bool mas = false;            // holds an App Store receipt

        friend bool operator==(const AppInfo &, const AppInfo &) = default;
    };

    using Finding = std::function<void(std::optional<OutdatedApp>)>;

    // The sources a scan and an upgrade use, replaceable for tests. brewOutdated and
    // upgrade block (they run on the process pool); the checks are main-thread calls that
    // report once through `done`.
    struct Services
    {
        std::function<QList<OutdatedApp>()> brewOutdated;
        std::function<QList<AppInfo>()> applications;
        std::function<void(const AppInfo &, Finding)> checkAppStore;
        std::function<void(const AppInfo &, const QUrl &, Finding)> checkSparkle;
        std::function<std::optional<QString>()> brewPath;
        std::function<std::optional<QString>(const OutdatedApp &)> upgrade;

        static Services real();
    };

    // At most this many App Store and appcast checks run at once.
    static constexpr int kMaxChecks = 6;

    explicit AppUpdater(QObject *parent = nullptr);
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
    // Opens the App Store's updates page.
    static void openAppStoreUpdates();

    // --- sources
    // The folders the inventory lists, in order: /Applications, /Applications/Utilities,
    // ~/Applications.
    static QStringList defaultApplicationFolders();
    static QList<AppInfo> applications(const QStringList &folders = defaultApplicationFolders());

    // True when `a` comes strictly before `b` in the version order. Any thread.
    static bool versionLess(const QString &a, const QString &b);
    // The numeric pieces the order compares (a piece that is not plain ASCII digits, or
    // overflows, counts as 0).
    static QList<qint64> versionParts(const QString &version);

    // Homebrew: the executable, or nullopt; the outdated formulae then casks. Blocking:
    // worker threads only.
    static QStringList defaultBrewCandidates();
    static std::optional<QString> brewPath(const QStringList &candidates = defaultBrewCandidates());
    static QList<OutdatedApp> brewOutdated(const QStringList &candidates = defaultBrewCandidates());
    // Reads `brew outdated --json=v2` output.
    static QList<OutdatedApp> parseBrewOutdated(const QByteArray &json);
    static std::optional<QString>
    runBrewUpgrade(const OutdatedApp &app, const QStringList &candidates = defaultBrewCandidates());

    // Network sources: main thread; `done` is called exactly once on the main thread.
    static void checkAppStore(const AppInfo &app, Finding done);
    static void checkSparkle(const AppInfo &app, const QUrl &feed, Finding done);
    // The App Store finding for one lookup answer, or nullopt.
    static std::optional<OutdatedApp> parseAppStoreAnswer(const AppInfo &app,
                                                          const QByteArray &json);
    // The storefront region: the locale's territory, "NZ" when it has none.
    static QString appStoreRegion(const QLocale &locale = QLocale::system());

Q_SIGNALS:
    void changed();

private:
    struct ScanState;
    void startCheck(const std::shared_ptr<ScanState> &state);
    void finishScan(const std::shared_ptr<ScanState> &state);

    Services m_services;
    QList<OutdatedApp> m_items;
    bool m_scanning = false;
    int m_checkedCount = 0;
    QString m_status;
    QString m_log;
};

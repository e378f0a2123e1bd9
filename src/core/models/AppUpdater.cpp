#include "core/models/AppUpdater.h"

#include "core/text/L10n.h"
#include "core/updates/AppStore.h"
#include "core/updates/Appcast.h"
#include "core/updates/Homebrew.h"
#include "core/updates/Inventory.h"
#include "core/util/Background.h"
#include "core/util/MainThread.h"
#include "core/words/UpdatesWords.h"

#include <QCollator>
#include <QPointer>
#include <algorithm>

using namespace Qt::StringLiterals;

// What one scan carries between its main-thread steps.
struct AppUpdater::ScanState
{
    bool zh = false;
    QList<OutdatedApp> found; // completion order
    QList<AppInfo> inventory;
    qsizetype next = 0;
    int inFlight = 0;
};

AppUpdater::Services AppUpdater::Services::real(std::shared_ptr<const System> system)
{
    Services s;
    s.brewOutdated = [] { return Homebrew::brewOutdated(); };
    s.applications = [system] {
        const Locations &where = system->where();
        return Inventory::applications(where.applicationFolders(Locations::Apps::updatable), where);
    };
    s.checkAppStore = [](const AppInfo &app, Finding done) {
        AppStore::checkAppStore(app, std::move(done));
    };
    s.checkSparkle = [](const AppInfo &app, const QUrl &feed, Finding done) {
        Appcast::checkSparkle(app, feed, std::move(done));
    };
    s.brewPath = [] { return Homebrew::brewPath(); };
    s.upgrade = [](const OutdatedApp &app) { return Homebrew::runBrewUpgrade(app); };
    return s;
}

AppUpdater::AppUpdater(Services services, QObject *parent)
    : QObject(parent), m_services(std::move(services))
{}

void AppUpdater::scan()
{
    if (m_scanning)
        return;
    m_scanning = true;
    m_items.clear();
    m_checkedCount = 0;
    auto state = std::make_shared<ScanState>();
    state->zh = L10n::isZh(); // one language for every message of this scan
    m_status = Words::checkingHomebrew(state->zh);
    Q_EMIT changed();

    QPointer<AppUpdater> self(this);
    Background::runProcess([self, state, brewOutdated = m_services.brewOutdated] {
        QList<OutdatedApp> records = brewOutdated();
        MainThread::post([self, state, records = std::move(records)]() mutable {
            if (!self)
                return;
            state->found = std::move(records);
            self->m_status = Words::checkingApps(state->zh);
            Q_EMIT self->changed();
            self->readInventory(state);
        });
    });
}

void AppUpdater::readInventory(const std::shared_ptr<ScanState> &state)
{
    // Every Info.plist is read on the pool; only the finished list comes back.
    QPointer<AppUpdater> self(this);
    Background::run([self, state, applications = m_services.applications] {
        QList<AppInfo> inventory = applications();
        MainThread::post([self, state, inventory = std::move(inventory)]() mutable {
            if (!self)
                return;
            state->inventory = std::move(inventory);
            if (state->inventory.isEmpty()) {
                self->finishScan(state);
                return;
            }
            while (state->inFlight < kMaxChecks && state->next < state->inventory.size())
                self->startCheck(state);
        });
    });
}

void AppUpdater::startCheck(const std::shared_ptr<ScanState> &state)
{
    const AppInfo app = state->inventory.at(state->next++);
    ++state->inFlight;
    QPointer<AppUpdater> self(this);
    Finding done = [self, state](std::optional<OutdatedApp> finding) {
        if (!self)
            return;
        --state->inFlight;
        ++self->m_checkedCount;
        if (finding)
            state->found.append(std::move(*finding));
        Q_EMIT self->changed();
        if (state->next < state->inventory.size())
            self->startCheck(state);
        else if (state->inFlight == 0)
            self->finishScan(state);
    };
    if (app.mas) {
        m_services.checkAppStore(app, std::move(done));
        return;
    }
    const QUrl feed = app.feed ? QUrl(*app.feed, QUrl::StrictMode) : QUrl();
    if (app.feed && !app.feed->isEmpty() && feed.isValid()) {
        m_services.checkSparkle(app, feed, std::move(done));
        return;
    }
    // Nothing to check; it still holds its slot until the loop comes round.
    QMetaObject::invokeMethod(
        this, [done = std::move(done)] { done(std::nullopt); }, Qt::QueuedConnection);
}

void AppUpdater::finishScan(const std::shared_ptr<ScanState> &state)
{
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    QList<OutdatedApp> sorted = state->found;
    std::stable_sort(sorted.begin(), sorted.end(), [&](const OutdatedApp &a, const OutdatedApp &b) {
        return collator.compare(a.name, b.name) < 0;
    });
    m_items = std::move(sorted);
    if (m_items.isEmpty())
        m_status = Words::upToDate(state->zh);
    else
        m_status = Words::updatesAvailable(m_items.size(), state->zh);
    m_scanning = false;
    Q_EMIT changed();
}

void AppUpdater::brewUpgrade(const OutdatedApp &app)
{
    if (!m_services.brewPath())
        return;
    const bool zh = L10n::isZh();
    m_status = Words::upgrading(app.name, zh);
    Q_EMIT changed();

    QPointer<AppUpdater> self(this);
    Background::runProcess([self, app, zh, upgrade = m_services.upgrade] {
        const QString output = upgrade(app).value_or(QString());
        MainThread::post([self, app, zh, output] {
            if (!self)
                return;
            self->m_log = output;
            self->m_items.removeIf([&](const OutdatedApp &row) { return row.id == app.id; });
            self->m_status = Words::upgraded(app.name, zh);
            Q_EMIT self->changed();
        });
    });
}

// One whole update check against a loopback server, so bench/updates.sh can set its wall
// time beside curl fetching the same URLs. Plain "key value" lines; nothing is for people.
#include "core/models/AppUpdater.h"
#include "core/system/RealSystem.h"
#include "core/updates/HttpClient.h"
#include "core/updates/Inventory.h"

#include "LoopbackServer.h"
#include "UpdatesFixture.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QTemporaryDir>
#include <QTimer>
#include <QUrl>
#include <QUrlQuery>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <optional>
#include <queue>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace UpdatesBench;

namespace {

// --- the applications -----------------------------------------------------------------

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) &&
           file.write(bytes) == bytes.size();
}

bool writeBundle(const QString &folder, const QString &name, const QString &id,
                 const QString &version, const std::optional<QString> &feed, bool receipt)
{
    const auto entry = [](const char *key, const QString &value) {
        return "  <key>" + QByteArray(key) + "</key>\n  <string>" + value.toHtmlEscaped().toUtf8() +
               "</string>\n";
    };
    QByteArray plist = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                       "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                       "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                       "<plist version=\"1.0\">\n<dict>\n";
    plist += entry("CFBundleIdentifier", id) + entry("CFBundleName", name) +
             entry("CFBundleShortVersionString", version) +
             entry("CFBundleVersion", kInstalledBuild);
    if (feed)
        plist += entry("SUFeedURL", *feed);
    plist += "</dict>\n</plist>\n";
    const QString contents = folder + u'/' + name + u".app/Contents"_s;
    return writeFile(contents + u"/Info.plist"_s, plist) &&
           (!receipt || writeFile(contents + u"/_MASReceipt/receipt"_s, "receipt"));
}

bool writeApplications(const QString &folder, const QString &base)
{
    for (int i = 0; i < kStoreApps; ++i) {
        const std::optional<QString> decoy =
            i % kDecoyEvery == 0 ? std::optional(base + decoyPath(i)) : std::nullopt;
        if (!writeBundle(folder, storeName(i), storeId(i), release(i).installed, decoy, true))
            return false;
    }
    for (int i = 0; i < kFeedApps; ++i) {
        if (!writeBundle(folder, feedName(i), feedId(i), release(i).installed, base + feedPath(i),
                         false))
            return false;
    }
    for (int i = 0; i < kSilentFeeds; ++i) {
        if (!writeBundle(folder, silentName(i), silentId(i), u"1.0"_s, base + silentPath(i), false))
            return false;
    }
    return true;
}

// The findings the fixture was built to produce, in the checker's name order.
QList<OutdatedApp> truth(const QString &folder)
{
    QList<OutdatedApp> expected;
    for (int i = 0; i < kFeedApps; ++i) {
        if (outcome(i) == Outcome::outdated)
            expected.append({feedId(i), feedName(i), release(i).installed, release(i).latest,
                             OutdatedApp::Source::sparkle,
                             folder + u'/' + feedName(i) + u".app"_s});
    }
    for (int i = 0; i < kStoreApps; ++i) {
        if (outcome(i) == Outcome::outdated)
            expected.append({storeId(i), storeName(i), release(i).installed, release(i).latest,
                             OutdatedApp::Source::appStore,
                             folder + u'/' + storeName(i) + u".app"_s});
    }
    return expected;
}

// What each app must have asked, identified by path (and identifier for lookups).
QStringList expectedRequests()
{
    QStringList keys;
    for (int i = 0; i < kStoreApps; ++i)
        keys.append(u"/lookup "_s + storeId(i));
    for (int i = 0; i < kFeedApps; ++i)
        keys.append(feedPath(i));
    for (int i = 0; i < kSilentFeeds; ++i)
        keys.append(silentPath(i));
    keys.sort();
    return keys;
}

QString requestKey(const QByteArray &target)
{
    const QUrl url(QString::fromLatin1(target));
    if (url.path() == u"/lookup")
        return u"/lookup "_s + QUrlQuery(url).queryItemValue(u"bundleId"_s);
    return url.path();
}

// The wall time with no overhead at all: the delays in this order, through six slots,
// the silent ones costing the inactivity limit. The floor for both tools.
qint64 idealMs(const QList<QByteArray> &order, qint64 inactivityMs)
{
    std::priority_queue<qint64, std::vector<qint64>, std::greater<>> slots;
    for (int k = 0; k < AppUpdater::kMaxChecks; ++k)
        slots.push(0);
    qint64 last = 0;
    for (const QByteArray &target : order) {
        const Answer answer = answerFor(target);
        const qint64 start = slots.top();
        slots.pop();
        const qint64 stop = start + (answer.silent ? inactivityMs : answer.latencyMs);
        slots.push(stop);
        last = std::max(last, stop);
    }
    return last;
}

QString describe(const OutdatedApp &app)
{
    return app.name + u" ["_s + app.id + u"] "_s + app.installed + u" -> "_s + app.latest +
           u" source "_s + rawValue(app.source) + u" at "_s + app.appPath.value_or(u"-"_s);
}

void print(const char *key, const QByteArray &value)
{
    std::printf("%s %s\n", key, value.constData());
}

// --- the modes ------------------------------------------------------------------------

int check(std::chrono::milliseconds inactivity, const QString &requestsFile)
{
    QTemporaryDir home(QDir::tempPath() + u"/quorvel-updatesbench.XXXXXX"_s);
    if (!home.isValid()) {
        std::fputs("quorvel-updatesbench: no temporary folder\n", stderr);
        return 2;
    }
    // Nothing below may reach the real user's files.
    qputenv("HOME", QFile::encodeName(home.path()));
    const QString folder = home.path() + u"/Applications"_s;

    ServerThread server;
    const quint16 port = server.begin();
    if (port == 0) {
        server.end();
        std::fputs("quorvel-updatesbench: cannot listen on 127.0.0.1\n", stderr);
        return 2;
    }
    const QString base = u"http://127.0.0.1:"_s + QString::number(port);
    qputenv("QUORVEL_APP_STORE_URL", base.toUtf8());
    if (!writeApplications(folder, base)) {
        server.end();
        std::fputs("quorvel-updatesbench: cannot write the applications\n", stderr);
        return 2;
    }
    HttpClient::setTimeoutsForTesting(inactivity, HttpClient::defaultTotal);

    const auto system = std::make_shared<RealSystem>(Locations::fromEnvironment());
    AppUpdater::Services services = AppUpdater::Services::real(system);
    services.brewOutdated = [] { return QList<OutdatedApp>(); };
    services.applications = [folder, system] {
        return Inventory::applications({folder}, system->where());
    };
    AppUpdater updater(std::move(services));

    QEventLoop loop;
    QElapsedTimer clock;
    qint64 elapsed = -1;
    QObject::connect(&updater, &AppUpdater::changed, &loop, [&] {
        if (!updater.scanning() && elapsed < 0) {
            elapsed = clock.elapsed();
            loop.quit();
        }
    });
    // Far beyond any honest run: a scan that never ends is a failure, not a hang.
    QTimer::singleShot(300s, &loop, &QEventLoop::quit);
    clock.start();
    updater.scan();
    loop.exec();
    const QList<QByteArray> requests = server.end();

    if (elapsed < 0) {
        std::fputs("quorvel-updatesbench: the scan did not finish within 300 s\n", stderr);
        return 1;
    }
    if (!requestsFile.isEmpty()) {
        QByteArray lines;
        for (const QByteArray &target : requests)
            lines += target + '\n';
        if (!writeFile(requestsFile, lines)) {
            std::fputs("quorvel-updatesbench: cannot write the request list\n", stderr);
            return 2;
        }
    }

    const QList<OutdatedApp> expected = truth(folder);
    const QList<OutdatedApp> &found = updater.items();
    QStringList asked;
    for (const QByteArray &target : requests)
        asked.append(requestKey(target));
    asked.sort();
    const QStringList wanted = expectedRequests();
    const int apps = kStoreApps + kFeedApps + kSilentFeeds;

    print("elapsed_ms", QByteArray::number(elapsed));
    print("ideal_ms", QByteArray::number(idealMs(requests, inactivity.count())));
    print("checked", QByteArray::number(updater.checkedCount()));
    print("requests", QByteArray::number(requests.size()));
    print("found", QByteArray::number(found.size()));
    print("expected", QByteArray::number(expected.size()));

    bool ok = true;
    if (found != expected) {
        ok = false;
        for (const OutdatedApp &app : expected) {
            if (!found.contains(app))
                std::fprintf(stderr, "missing: %s\n", qPrintable(describe(app)));
        }
        for (const OutdatedApp &app : found) {
            if (!expected.contains(app))
                std::fprintf(stderr, "unexpected: %s\n", qPrintable(describe(app)));
        }
        if (found.size() == expected.size())
            std::fputs("findings right but out of name order\n", stderr);
    }
    if (updater.checkedCount() != apps) {
        ok = false;
        std::fprintf(stderr, "checked %d of %d applications\n", updater.checkedCount(), apps);
    }
    // A silent feed that answered would make the run short for the wrong reason.
    const auto silent =
        std::count_if(requests.cbegin(), requests.cend(),
                      [](const QByteArray &target) { return answerFor(target).silent; });
    if (silent != kSilentFeeds) {
        ok = false;
        std::fprintf(stderr, "%d silent feeds asked, not %d\n", int(silent), kSilentFeeds);
    }
    if (asked != wanted) {
        ok = false;
        const QSet<QString> seen(asked.cbegin(), asked.cend());
        for (const QString &key : wanted) {
            if (!seen.contains(key))
                std::fprintf(stderr, "never asked: %s\n", qPrintable(key));
        }
        for (const QString &key : asked) {
            if (asked.count(key) > 1 || !wanted.contains(key))
                std::fprintf(stderr, "asked wrongly: %s\n", qPrintable(key));
        }
    }
    print("verdict", ok ? "match" : "mismatch");
    return ok ? 0 : 1;
}

int serve(quint16 port)
{
    FixtureServer server;
    if (!server.listen(port)) {
        std::fprintf(stderr, "quorvel-updatesbench: cannot listen on 127.0.0.1:%u\n", port);
        return 2;
    }
    print("port", QByteArray::number(server.port()));
    std::fflush(stdout);
    return QCoreApplication::exec();
}

int usage()
{
    std::fputs("usage: quorvel-updatesbench [--timeout SECONDS] [--requests FILE]\n"
               "       quorvel-updatesbench serve PORT\n"
               "The first runs one update check over 203 fake applications in a temporary\n"
               "HOME against a loopback server, with SECONDS (default 2) as the inactivity\n"
               "limit, and prints elapsed_ms, ideal_ms, counts and verdict match|mismatch\n"
               "(exit 1 on mismatch); FILE receives the request targets in arrival order.\n"
               "serve runs only that server on PORT (0: any free one), prints \"port N\" and\n"
               "answers until killed.\n",
               stderr);
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 3 && std::strcmp(argv[1], "serve") == 0) {
        bool ok = false;
        const uint port = QByteArray(argv[2]).toUInt(&ok);
        return ok && port <= 65535 ? serve(quint16(port)) : usage();
    }
    double seconds = 2;
    QString requestsFile;
    for (int k = 1; k < argc; ++k) {
        if (std::strcmp(argv[k], "--timeout") == 0 && k + 1 < argc) {
            bool ok = false;
            seconds = QByteArray(argv[++k]).toDouble(&ok);
            if (!ok || seconds <= 0 || seconds > 60)
                return usage();
        } else if (std::strcmp(argv[k], "--requests") == 0 && k + 1 < argc) {
            requestsFile = QFile::decodeName(argv[++k]);
        } else {
            return usage();
        }
    }
    return check(std::chrono::milliseconds(qint64(seconds * 1000)), requestsFile);
}

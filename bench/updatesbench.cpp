// One whole update check against a loopback server, so bench/updates.sh can set its wall
// time beside curl fetching the same URLs. Plain "key value" lines; nothing is for people.
#include "core/updates/AppUpdater.h"
#include "core/updates/HttpClient.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QMutex>
#include <QSet>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <QUrl>
#include <QUrlQuery>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <queue>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// --- the fixture ----------------------------------------------------------------------
// Everything the server answers and the truth the check is held to derive from these
// functions alone, so the serving process curl talks to needs no shared state.

constexpr int kStoreApps = 100;
constexpr int kFeedApps = 100;
constexpr int kSilentFeeds = 3;
constexpr int kMinLatencyMs = 50;
constexpr int kMaxLatencyMs = 500;
// Store apps that also carry a feed: the App Store has to win, so these are never asked.
constexpr int kDecoyEvery = 10;

enum class Outcome { outdated, current, ahead };

Outcome outcome(int i)
{
    return i % 3 == 0 ? Outcome::outdated : i % 3 == 1 ? Outcome::current : Outcome::ahead;
}

struct Release
{
    QString installed;
    QString latest;
};

// The outdated pairs only order correctly by number (9 < 10), not as text.
Release release(int i)
{
    const QString n = QString::number(i);
    switch (outcome(i)) {
    case Outcome::outdated:
        return {u"1."_s + n + u".9"_s, u"1."_s + n + u".10"_s};
    case Outcome::current:
        return {u"2."_s + n, u"2."_s + n};
    case Outcome::ahead:
        break;
    }
    return {u"3."_s + n + u".1"_s, u"3."_s + n + u".0"_s};
}

// Builds that disagree with the short versions: a checker reading the wrong field errs.
const QString kInstalledBuild = u"500"_s;
const QString kFeedBuild = u"10"_s;

QString padded(int i)
{
    return u"%1"_s.arg(i, 3, 10, QChar(u'0'));
}

QString storeName(int i)
{
    return u"Bench Store "_s + padded(i);
}
QString storeId(int i)
{
    return u"org.quorvel.bench.store-"_s + padded(i);
}
QString feedName(int i)
{
    return u"Bench Feed "_s + padded(i);
}
QString feedId(int i)
{
    return u"org.quorvel.bench.feed-"_s + padded(i);
}
QString feedPath(int i)
{
    return u"/feed/"_s + padded(i) + u".xml"_s;
}
QString decoyPath(int i)
{
    return u"/decoy/"_s + padded(i) + u".xml"_s;
}
QString silentName(int i)
{
    return u"Bench Silent "_s + padded(i);
}
QString silentId(int i)
{
    return u"org.quorvel.bench.silent-"_s + padded(i);
}
QString silentPath(int i)
{
    return u"/silent/"_s + padded(i) + u".xml"_s;
}

// The fixture number in `text` between prefix and suffix, or -1.
int numberIn(QStringView text, QStringView prefix, QStringView suffix, int count)
{
    if (!text.startsWith(prefix) || !text.endsWith(suffix))
        return -1;
    const QStringView digits =
        text.sliced(prefix.size(), text.size() - prefix.size() - suffix.size());
    bool ok = false;
    const int i = digits.toInt(&ok);
    return ok && i >= 0 && i < count && digits == padded(i) ? i : -1;
}

// Deterministic per URL, so a rerun and curl's run see the same delays.
int latencyMs(const QByteArray &key)
{
    quint32 hash = 2166136261u; // FNV-1a
    for (const char c : key) {
        hash ^= quint8(c);
        hash *= 16777619u;
    }
    return kMinLatencyMs + int(hash % quint32(kMaxLatencyMs - kMinLatencyMs + 1));
}

// Release notes in the size real feeds carry, so the parser has something to wade through.
QByteArray releaseNotes()
{
    QByteArray notes;
    for (int k = 0; k < 40; ++k)
        notes += "<li>Fixes a rare problem where item " + QByteArray::number(k) +
                 " was shown twice after waking from sleep.</li>\n";
    return notes;
}

QByteArray appcast(const QString &title, const QString &latest)
{
    static const QByteArray notes = releaseNotes();
    const QByteArray name = title.toUtf8();
    const auto item = [&](const QByteArray &heading, const QByteArray &channel,
                          const QByteArray &shortVersion, const QByteArray &build) {
        return "    <item>\n      <title>" + heading + "</title>\n" + channel +
               "      <description><![CDATA[<ul>\n" + notes +
               "</ul>]]></description>\n"
               "      <enclosure url=\"https://downloads.example.org/" +
               shortVersion + ".zip\" sparkle:version=\"" + build +
               "\" sparkle:shortVersionString=\"" + shortVersion +
               "\" length=\"48211968\" type=\"application/octet-stream\"/>\n"
               "    </item>\n";
    };
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           "<rss version=\"2.0\" xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/"
           "sparkle\">\n  <channel>\n    <title>" +
           name + "</title>\n" +
           item("Beta", "      <sparkle:channel>beta</sparkle:channel>\n", "99.0", "9999") +
           item(name + ' ' + latest.toUtf8(), {}, latest.toUtf8(), kFeedBuild.toUtf8()) +
           item("First release", {}, "0.9", "1") + "  </channel>\n</rss>\n";
}

QByteArray lookupAnswer(int i)
{
    return "{\n \"resultCount\":1,\n \"results\": [\n{\"kind\":\"mac-software\", "
           "\"features\":[], \"advisories\":[], \"bundleId\":\"" +
           storeId(i).toUtf8() + "\", \"trackName\":\"" + storeName(i).toUtf8() +
           "\", \"releaseNotes\":\"Faster sync; fixes a crash when \\\"version\\\" appeared "
           "in a note\", \"version\":\"" +
           release(i).latest.toUtf8() +
           "\", \"minimumOsVersion\":\"12.0\", \"price\":0.00, \"currency\":\"NZD\", "
           "\"genres\":[\"Productivity\"], \"averageUserRating\":4.5}]\n}\n";
}

struct Answer
{
    bool silent = false;
    int latencyMs = 0;
    int status = 200;
    QByteArray type;
    QByteArray body;
};

Answer answerFor(const QByteArray &target)
{
    const QUrl url(QString::fromLatin1(target));
    const QString path = url.path();
    if (numberIn(path, u"/silent/", u".xml", kSilentFeeds) >= 0)
        return {true, 0, 0, {}, {}};
    if (const int i = numberIn(path, u"/feed/", u".xml", kFeedApps); i >= 0)
        return {false, latencyMs(path.toUtf8()), 200, "application/rss+xml",
                appcast(feedName(i), release(i).latest)};
    if (const int i = numberIn(path, u"/decoy/", u".xml", kStoreApps); i >= 0)
        return {false, latencyMs(path.toUtf8()), 200, "application/rss+xml",
                appcast(storeName(i), u"98.0"_s)};
    if (path == u"/lookup") {
        // Keyed by the identifier alone: the region follows the locale, the delay must not.
        const QString id = QUrlQuery(url).queryItemValue(u"bundleId"_s);
        if (const int i = numberIn(id, u"org.quorvel.bench.store-", u"", kStoreApps); i >= 0)
            return {false, latencyMs(id.toUtf8()), 200, "text/javascript; charset=utf-8",
                    lookupAnswer(i)};
        return {false, kMinLatencyMs, 200, "text/javascript; charset=utf-8",
                "{\"resultCount\":0,\"results\":[]}"};
    }
    return {false, kMinLatencyMs, 404, "text/plain", "not here\n"};
}

// --- the server -----------------------------------------------------------------------

// HTTP/1.1 with keep-alive on 127.0.0.1: each request is answered in full after its
// delay, one at a time per connection; silent paths hold the connection without a byte.
class FixtureServer final
{
public:
    FixtureServer()
    {
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] { accept(); });
    }

    bool listen(quint16 port) { return m_server.listen(QHostAddress::LocalHost, port); }
    quint16 port() const { return m_server.serverPort(); }
    // Request targets in arrival order.
    const QList<QByteArray> &requests() const { return m_requests; }

private:
    struct Connection
    {
        QByteArray buffer;
        bool busy = false;
    };

    void accept()
    {
        while (QTcpSocket *socket = m_server.nextPendingConnection()) {
            auto connection = std::make_shared<Connection>();
            QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, connection] {
                connection->buffer += socket->readAll();
                next(socket, connection);
            });
        }
    }

    void next(QTcpSocket *socket, const std::shared_ptr<Connection> &connection)
    {
        const qsizetype end = connection->buffer.indexOf("\r\n\r\n");
        if (connection->busy || end < 0)
            return;
        const QByteArray head = connection->buffer.left(end);
        connection->buffer.remove(0, end + 4);
        const QList<QByteArray> lines = head.split('\n');
        const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
        const QByteArray target = requestLine.value(1);
        bool close = requestLine.value(2) != "HTTP/1.1";
        for (const QByteArray &line : lines) {
            const QByteArray lower = line.trimmed().toLower();
            if (lower.startsWith("connection:") && lower.contains("close"))
                close = true;
        }
        m_requests.append(target);
        const Answer answer = answerFor(target);
        connection->busy = true;
        if (answer.silent)
            return;
        QTimer::singleShot(answer.latencyMs, socket, [this, socket, connection, answer, close] {
            socket->write("HTTP/1.1 " + QByteArray::number(answer.status) +
                          (answer.status == 200 ? " OK" : " Not Found") +
                          "\r\nContent-Type: " + answer.type +
                          "\r\nContent-Length: " + QByteArray::number(answer.body.size()) +
                          (close ? "\r\nConnection: close" : "") + "\r\n\r\n" + answer.body);
            connection->busy = false;
            if (close)
                socket->disconnectFromHost();
            else
                next(socket, connection);
        });
    }

    QTcpServer m_server;
    QList<QByteArray> m_requests;
};

// The server on a thread of its own, so its delays do not wait on the checker's loop.
class ServerThread final : public QThread
{
public:
    // The port, or 0 when nothing could listen.
    quint16 begin()
    {
        std::future<quint16> port = m_port.get_future();
        start();
        return port.get();
    }
    // Stops the thread; the requests it saw, in arrival order.
    QList<QByteArray> end()
    {
        quit();
        wait();
        return m_requests;
    }

protected:
    void run() override
    {
        FixtureServer server;
        m_port.set_value(server.listen(0) ? server.port() : quint16(0));
        exec();
        m_requests = server.requests();
    }

private:
    std::promise<quint16> m_port;
    QList<QByteArray> m_requests;
};

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

    AppUpdater::Services services = AppUpdater::Services::real();
    services.brewOutdated = [] { return QList<OutdatedApp>(); };
    services.applications = [folder] { return AppUpdater::applications({folder}); };
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

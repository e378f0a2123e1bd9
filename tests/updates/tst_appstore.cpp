#include "common/PeakMemory.h"
#include "common/TestHome.h"
#include "core/updates/AppStore.h"
#include "core/updates/HttpClient.h"
#include "updates/LocalHttpServer.h"

#include <QtTest>
#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Behaviour = LocalHttpServer::Behaviour;

namespace {

// A real lookup answer, shortened; %V% stands for the store's version.
QByteArray answer(const char *version)
{
    QFile file(QFINDTESTDATA("fixtures/appstore/lookup.json"));
    return file.open(QIODevice::ReadOnly) ? file.readAll().replace("%V%", version) : QByteArray();
}

AppInfo lumen(const QString &shortVersion)
{
    return {u"/Applications/Lumen Notes.app"_s,
            u"Lumen Notes"_s,
            u"com.example.lumen"_s,
            shortVersion,
            u"5020"_s,
            std::nullopt,
            true};
}

struct Outcome
{
    int calls = 0;
    bool beforeReturn = false;
    std::optional<OutdatedApp> finding;
};

Outcome checkAppStore(const AppInfo &app)
{
    auto outcome = std::make_shared<Outcome>();
    AppStore::checkAppStore(app, [outcome](std::optional<OutdatedApp> finding) {
        ++outcome->calls;
        outcome->finding = std::move(finding);
    });
    outcome->beforeReturn = outcome->calls > 0;
    static_cast<void>(QTest::qWaitFor([&] { return outcome->calls > 0; }, 10000));
    QTest::qWait(30); // room for a second, wrong call
    return *outcome;
}

} // namespace

class AppStoreTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void parseAnswer_data();
    void parseAnswer();
    void region_data();
    void region();
    void lookup_data();
    void lookup();
    void failures_data();
    void failures();
    void askedFromAWorkerThread();

private:
    std::unique_ptr<TestHome> m_home;
};

void AppStoreTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    HttpClient::setTimeoutsForTesting(300ms, 1200ms);
    // main() starts the process under the C locale: no territory at all.
    QCOMPARE(QLocale::system().territory(), QLocale::AnyTerritory);
}

void AppStoreTest::cleanup()
{
    qunsetenv("QUORVEL_APP_STORE_URL");
}

void AppStoreTest::parseAnswer_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("installed");
    QTest::addColumn<QString>("latest"); // empty: no finding

    QTest::newRow("newer in the store") << answer("1.10") << u"1.2"_s << u"1.10"_s;
    QTest::newRow("equivalent version") << answer("1.2.0") << u"1.2"_s << QString();
    QTest::newRow("older in the store") << answer("1.1") << u"1.2"_s << QString();
    QTest::newRow("no installed short version") << answer("9.0") << QString() << QString();
    QTest::newRow("byte order mark") << "\xef\xbb\xbf" + answer("2.0") << u"1.2"_s << u"2.0"_s;
    QTest::newRow("resultCount is not read")
        << QByteArray(R"({"resultCount":0,"results":[{"version":"2.0"}]})") << u"1.2"_s << u"2.0"_s;
    QTest::newRow("first of two results, newer")
        << QByteArray(R"({"results":[{"version":"1.3"},{"version":"9.0"}]})") << u"1.2"_s
        << u"1.3"_s;
    QTest::newRow("first of two results, older")
        << QByteArray(R"({"results":[{"version":"1.0"},{"version":"9.0"}]})") << u"1.2"_s
        << QString();

    const char *nothing[][2] = {
        {"empty results", R"({"resultCount":0,"results":[]})"},
        {"no results", R"({"resultCount":1})"},
        {"results an object", R"({"results":{"version":"2.0"}})"},
        {"results null", R"({"results":null})"},
        {"a result that is no object", R"({"results":[{"version":"2.0"},3]})"},
        {"version a number", R"({"results":[{"version":2}]})"},
        {"version null", R"({"results":[{"version":null}]})"},
        {"version missing", R"({"results":[{"bundleId":"com.example.lumen"}]})"},
        {"top level an array", R"([{"results":[{"version":"2.0"}]}])"},
        {"HTML error page", "<html><body><h1>503 Service Unavailable</h1></body></html>"},
        {"empty body", ""},
    };
    for (const auto &[name, json] : nothing)
        QTest::newRow(name) << QByteArray(json) << u"1.2"_s << QString();
    QTest::newRow("cut short") << answer("2.0").left(200) << u"1.2"_s << QString();
}

void AppStoreTest::parseAnswer()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, installed);
    QFETCH(QString, latest);
    const AppInfo app = lumen(installed);
    const std::optional<OutdatedApp> finding = AppStore::parseAppStoreAnswer(app, json);
    QCOMPARE(finding.has_value(), !latest.isEmpty());
    if (!finding)
        return;
    QCOMPARE(finding->latest, latest);
    const OutdatedApp expected{u"com.example.lumen"_s,
                               u"Lumen Notes"_s,
                               installed,
                               latest,
                               OutdatedApp::Source::appStore,
                               u"/Applications/Lumen Notes.app"_s};
    QVERIFY(*finding == expected);
}

void AppStoreTest::region_data()
{
    QTest::addColumn<QLocale>("locale");
    QTest::addColumn<QString>("region");
    QTest::newRow("C") << QLocale::c() << u"NZ"_s;
    QTest::newRow("en_GB") << QLocale(QLocale::English, QLocale::UnitedKingdom) << u"GB"_s;
    QTest::newRow("de_CH") << QLocale(u"de_CH"_s) << u"CH"_s;
    QTest::newRow("zh_Hans_CN") << QLocale(QLocale::Chinese, QLocale::SimplifiedHanScript,
                                           QLocale::China)
                                << u"CN"_s;
    QTest::newRow("es_419, a region that is no country") << QLocale(u"es_419"_s) << u"419"_s;
}

void AppStoreTest::region()
{
    QFETCH(QLocale, locale);
    QFETCH(QString, region);
    QCOMPARE(AppStore::appStoreRegion(locale), region);
}

void AppStoreTest::lookup_data()
{
    QTest::addColumn<QString>("baseSuffix"); // after http://127.0.0.1:port
    QTest::addColumn<QString>("bundleID");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("target"); // what the server must be asked for
    QTest::addColumn<bool>("found");

    const QByteArray lookup = "/lookup?bundleId=com.example.lumen&country=NZ";
    const QString id = u"com.example.lumen"_s;
    QTest::newRow("newer") << QString() << id << 200 << answer("1.10") << lookup << true;
    QTest::newRow("500 with a valid answer")
        << QString() << id << 500 << answer("1.10") << lookup << true;
    QTest::newRow("404 page") << QString() << id << 404 << QByteArray("<h1>Not Found</h1>")
                              << lookup << false;
    QTest::newRow("same version") << QString() << id << 200 << answer("1.2") << lookup << false;
    QTest::newRow("trailing slash on the base")
        << u"/"_s << id << 200 << answer("1.10") << lookup << true;
    QTest::newRow("mirror under a path")
        << u"/mirror/"_s << id << 200 << answer("1.10") << "/mirror" + lookup << true;
    QTest::newRow("identifier with a space")
        << QString() << u"com.example.my app"_s << 200 << answer("1.10")
        << QByteArray("/lookup?bundleId=com.example.my%20app&country=NZ") << true;
}

void AppStoreTest::lookup()
{
    QFETCH(QString, baseSuffix);
    QFETCH(QString, bundleID);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, target);
    QFETCH(bool, found);
    LocalHttpServer server;
    QVERIFY(server.listening());
    server.route(target, {Behaviour::answer, status, body, {}});
    qputenv("QUORVEL_APP_STORE_URL", (server.base() + baseSuffix).toUtf8());
    AppInfo app = lumen(u"1.2"_s);
    app.bundleID = bundleID;

    const Outcome outcome = checkAppStore(app);
    QCOMPARE(outcome.calls, 1);
    QVERIFY(!outcome.beforeReturn);
    QCOMPARE(server.requests.size(), 1);
    QCOMPARE(LocalHttpServer::target(server.requests.first()), target);
    QVERIFY(server.requests.first().startsWith("GET "));
    QCOMPARE(outcome.finding.has_value(), found);
    if (found)
        QVERIFY(*outcome.finding == (OutdatedApp{bundleID, app.name, u"1.2"_s, u"1.10"_s,
                                                 OutdatedApp::Source::appStore, app.path}));
}

void AppStoreTest::failures_data()
{
    QTest::addColumn<int>("behaviour");
    QTest::addColumn<QString>("base"); // "server": the local server; "refused": a closed port
    QTest::addColumn<bool>("asked");   // Qt may retry a dropped GET
    QTest::newRow("connection refused") << int(Behaviour::answer) << u"refused"_s << false;
    QTest::newRow("no answer: time-out") << int(Behaviour::hang) << u"server"_s << true;
    QTest::newRow("answer stalls: time-out") << int(Behaviour::stall) << u"server"_s << true;
    QTest::newRow("closed without a byte") << int(Behaviour::closeAtOnce) << u"server"_s << true;
    QTest::newRow("closed before the end") << int(Behaviour::closeEarly) << u"server"_s << true;
    QTest::newRow("not HTTP") << int(Behaviour::garbage) << u"server"_s << true;
    QTest::newRow("endless body") << int(Behaviour::flood) << u"server"_s << true;
    QTest::newRow("base without a scheme") << int(Behaviour::answer) << u"127.0.0.1"_s << false;
    QTest::newRow("base without a host") << int(Behaviour::answer) << u"http://"_s << false;
}

void AppStoreTest::failures()
{
    QFETCH(int, behaviour);
    QFETCH(QString, base);
    QFETCH(bool, asked);
    LocalHttpServer server;
    QVERIFY(server.listening());
    const QByteArray lookup = "/lookup?bundleId=com.example.lumen&country=NZ";
    // A full, valid answer behind every failure: only the transport may lose it.
    server.route(lookup, {Behaviour(behaviour), 200, answer("1.10"), {}});
    QTcpServer closed;
    QVERIFY(closed.listen(QHostAddress::LocalHost));
    if (base == u"server")
        base = server.base();
    else if (base == u"refused")
        base = u"http://127.0.0.1:%1"_s.arg(closed.serverPort());
    else if (base == u"127.0.0.1")
        base += u":%1"_s.arg(server.port());
    closed.close();
    qputenv("QUORVEL_APP_STORE_URL", base.toUtf8());

    QElapsedTimer clock;
    clock.start();
    const Outcome outcome = checkAppStore(lumen(u"1.2"_s));
    QCOMPARE(outcome.calls, 1);
    QVERIFY(!outcome.beforeReturn);
    QVERIFY(!outcome.finding);
    QCOMPARE(!server.requests.isEmpty(), asked);
    // Each failure has a cause of its own, found before the total time-out; a body that
    // never ends is cut off at the cap however fast it comes.
    QVERIFY2(clock.elapsed() < 1000, QByteArray::number(clock.elapsed()).constData());
    const qint64 peak = peakResidentMiB();
    QVERIFY2(peak > 0 && peak < 128, QByteArray::number(peak).constData());
}

void AppStoreTest::askedFromAWorkerThread()
{
    LocalHttpServer server;
    server.route("/lookup?bundleId=com.example.lumen&country=NZ",
                 {Behaviour::answer, 200, answer("1.10"), {}});
    qputenv("QUORVEL_APP_STORE_URL", server.base().toUtf8());
    auto seen = std::make_shared<std::optional<QThread *>>();
    auto latest = std::make_shared<QString>();
    std::unique_ptr<QThread> worker(QThread::create([seen, latest] {
        AppStore::checkAppStore(lumen(u"1.2"_s), [seen, latest](std::optional<OutdatedApp> f) {
            *seen = QThread::currentThread();
            *latest = f ? f->latest : QString();
        });
    }));
    worker->start();
    QVERIFY(worker->wait(5000));
    QTRY_VERIFY_WITH_TIMEOUT(seen->has_value(), 5000);
    QCOMPARE(**seen, QThread::currentThread());
    QCOMPARE(*latest, u"1.10"_s);
}

int main(int argc, char *argv[])
{
    // The storefront falls back to NZ for a locale without a territory; the variables
    // must be set before Qt first reads the system locale.
    qputenv("LC_ALL", "C");
    qputenv("LANG", "C");
    QCoreApplication app(argc, argv);
    AppStoreTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_appstore.moc"

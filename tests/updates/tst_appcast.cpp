#include "common/TestHome.h"
#include "core/updates/Appcast.h"
#include "core/updates/AppcastParser.h"
#include "core/updates/HttpClient.h"
#include "updates/LocalHttpServer.h"

#include <QElapsedTimer>
#include <QtTest>
#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Behaviour = LocalHttpServer::Behaviour;

namespace {

QByteArray fixture(const char *name)
{
    QFile file(QFINDTESTDATA(u"fixtures/appcast/"_s + QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// "short|build|channel", "~" for a missing field.
QString describe(const AppcastParser::Entry &entry)
{
    const auto field = [](const std::optional<QString> &v) { return v.value_or(u"~"_s); };
    return field(entry.short_) + u'|' + field(entry.build) + u'|' + field(entry.channel);
}

// A feed of element-form items from the same "short|build|channel" notation.
QByteArray feedOf(const QStringList &items)
{
    QByteArray xml = "<?xml version=\"1.0\"?>\n<rss version=\"2.0\" xmlns:sparkle=\"http://www."
                     "andymatuschak.org/xml-namespaces/sparkle\"><channel><title>t</title>\n";
    const char *tags[] = {"sparkle:shortVersionString", "sparkle:version", "sparkle:channel"};
    for (const QString &item : items) {
        xml += "<item>";
        const QStringList fields = item.split(u'|');
        for (int i = 0; i < 3; ++i) {
            if (fields.value(i) != u"~")
                xml += "<" + QByteArray(tags[i]) + ">" + fields.value(i).toUtf8() + "</" + tags[i] +
                       ">";
        }
        xml += "</item>\n";
    }
    return xml + "</channel></rss>\n";
}

AppInfo lumen(const QString &shortVersion, const QString &build)
{
    return {u"/Applications/Lumen Notes.app"_s,
            u"Lumen Notes"_s,
            u"com.example.lumen"_s,
            shortVersion,
            build,
            u"https://updates.lumen.example/appcast.xml"_s,
            false};
}

struct Outcome
{
    int calls = 0;
    bool beforeReturn = false;
    std::optional<OutdatedApp> finding;
    qint64 ms = 0;
};

Outcome checkSparkle(const AppInfo &app, const QUrl &feed)
{
    auto outcome = std::make_shared<Outcome>();
    QElapsedTimer clock;
    clock.start();
    Appcast::checkSparkle(app, feed, [outcome](std::optional<OutdatedApp> finding) {
        ++outcome->calls;
        outcome->finding = std::move(finding);
    });
    outcome->beforeReturn = outcome->calls > 0;
    static_cast<void>(QTest::qWaitFor([&] { return outcome->calls > 0; }, 10000));
    outcome->ms = clock.elapsed();
    QTest::qWait(30); // room for a second, wrong call
    return *outcome;
}

} // namespace

class AppcastTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void entries_data();
    void entries();
    void best_data();
    void best();
    void largeFeed_data();
    void largeFeed();
    void decision_data();
    void decision();
    void userAgent_data();
    void userAgent();
    void transport_data();
    void transport();

private:
    std::unique_ptr<TestHome> m_home;
};

void AppcastTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    // Hanging servers must fail in a fraction of a second, and well before the total.
    HttpClient::setTimeoutsForTesting(300ms, 1200ms);
}

void AppcastTest::entries_data()
{
    QTest::addColumn<QByteArray>("feed");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("builds only, enclosure attributes")
        << fixture("builds-only.xml")
        << QStringList{u"~|1.4.2|~"_s, u"~|1.4.1|~"_s, u"~|1.4.0|~"_s};
    QTest::newRow("short versions only, padded text")
        << fixture("short-only.xml") << QStringList{u"3.0|~|~"_s, u"2.9.1|~|~"_s};
    QTest::newRow("elements, channel, deltas, critical update")
        << fixture("sparkle2.xml")
        << QStringList{u"5.1b2|5102|beta"_s, u"5.0.3|5030|~"_s, u"5.0.2|5020|~"_s,
                       u"5.0.1|5010|~"_s};
    QTest::newRow("enclosure attributes outrank elements; first element wins")
        << fixture("precedence.xml")
        << QStringList{u"~|100|~"_s, u"1.0|100|~"_s, u"2.0||~"_s, u"0.5|6|~"_s, u" 1.1 ||~"_s};
    QTest::newRow("channels: last wins, empty counts, outside items ignored")
        << fixture("channels.xml")
        << QStringList{u"4.0b1|400|beta"_s, u"3.9|390|"_s, u"3.8|380|~"_s};
    QTest::newRow("CDATA is no text; comments split, references resolve")
        << fixture("cdata.xml") << QStringList{u"|800|~"_s, u"7.1|791|~"_s, u"7&0|700|~"_s};
    QTest::newRow("other prefixes and cases do not count")
        << fixture("prefixes.xml") << QStringList{u"~|~|~"_s, u"~|~|~"_s, u"7.0|700|~"_s};
    QTest::newRow("undeclared entity ends the feed")
        << fixture("entities.xml") << QStringList{u"2.2|220|~"_s};
    QTest::newRow("entity of an external DTD adds nothing")
        << fixture("rss091.xml") << QStringList{u"1.1|11|~"_s, u"1.0|10|~"_s};
    QTest::newRow("HTML error page") << fixture("not-xml.html") << QStringList();
    QTest::newRow("JSON") << QByteArray(R"({"version": "9.9"})") << QStringList();
    QTest::newRow("empty body") << QByteArray() << QStringList();

    const QByteArray full = fixture("sparkle2.xml");
    const qsizetype third = full.indexOf("<sparkle:version>5020");
    QTest::newRow("cut inside the third item")
        << full.left(third + 20) << QStringList{u"5.1b2|5102|beta"_s, u"5.0.3|5030|~"_s};
    QTest::newRow("cut inside an enclosure tag")
        << full.left(full.indexOf("LumenNotes-5030.zip")) << QStringList{u"5.1b2|5102|beta"_s};
    QTest::newRow("cut after an item's end")
        << full.left(full.lastIndexOf("</item>", third) + 7)
        << QStringList{u"5.1b2|5102|beta"_s, u"5.0.3|5030|~"_s};

    // Text gathers from the last element start, wherever that element ends.
    QTest::newRow("text after a nested element")
        << feedOf({u"~|5<b>6</b>7|~"_s, u"~|<x/>|~"_s}) << QStringList{u"~|67|~"_s, u"~||~"_s};
    QTest::newRow("nested item drops the outer one")
        << feedOf({u"1|<item><sparkle:version>2</sparkle:version></item>|~"_s})
        << QStringList{u"~|2|~"_s};
    QTest::newRow("white space of every kind trimmed")
        << feedOf({QString::fromUtf8("\t\r\n\u00a0\u2003 1.2 beta\u3000\u2029 |~|~")})
        << QStringList{u"1.2 beta|~|~"_s};

    const QByteArray open = QByteArray("<div>").repeated(20000);
    const QByteArray close = QByteArray("</div>").repeated(20000);
    QTest::newRow("deep nesting inside an item")
        << feedOf({u"~|~|~"_s, u"~|6|~"_s})
               .replace("<item></item>", "<item>" + open + "<sparkle:version>5</sparkle:version>" +
                                             close + "</item>")
        << QStringList{u"~|5|~"_s, u"~|6|~"_s};
    QTest::newRow("nesting without end after an item")
        << feedOf({u"~|1|~"_s}).replace("</channel>", QByteArray("<x>").repeated(100000))
        << QStringList{u"~|1|~"_s};

    QByteArray laughs = "<?xml version=\"1.0\"?><!DOCTYPE rss [<!ENTITY a0 \"lol\">";
    for (int i = 1; i < 10; ++i)
        laughs += "<!ENTITY a" + QByteArray::number(i) + " \"" +
                  QByteArray("&a" + QByteArray::number(i - 1) + ";").repeated(10) + "\">";
    laughs += "]>" + feedOf({u"~|1|~"_s, u"~|&a9;|~"_s}).mid(21);
    QTest::newRow("entity expansion bomb stops the feed") << laughs << QStringList{u"~|1|~"_s};
}

void AppcastTest::entries()
{
    QFETCH(QByteArray, feed);
    QFETCH(QStringList, expected);
    AppcastParser parser;
    parser.parse(feed);
    QStringList got;
    for (const AppcastParser::Entry &entry : parser.entries())
        got << describe(entry);
    QCOMPARE(got, expected);
}

void AppcastTest::best_data()
{
    QTest::addColumn<QStringList>("items");
    QTest::addColumn<int>("best"); // index into the items, -1 for none

    QTest::newRow("equal keys keep the first")
        << QStringList{u"2.0|~|~"_s, u"2.0.0|~|~"_s, u"1.9|~|~"_s} << 0;
    QTest::newRow("a later newer entry wins") << QStringList{u"1.0|~|~"_s, u"1.1|~|~"_s} << 1;
    QTest::newRow("beta never offered") << QStringList{u"3.0|~|beta"_s, u"2.0|~|~"_s} << 1;
    QTest::newRow("empty channel is a channel") << QStringList{u"2.0|~|~"_s, u"3.0|~|"_s} << 0;
    QTest::newRow("only channels") << QStringList{u"3.0|~|beta"_s, u"2.0|~|nightly"_s} << -1;
    QTest::newRow("no items") << QStringList() << -1;
    QTest::newRow("short outranks build") << QStringList{u"1.5|900|~"_s, u"2.0|100|~"_s} << 1;
    QTest::newRow("build when no short") << QStringList{u"~|100|~"_s, u"~|99|~"_s} << 0;
    QTest::newRow("build key against short key") << QStringList{u"2.0|~|~"_s, u"~|300|~"_s} << 1;
    QTest::newRow("empty short is the key") << QStringList{u"|500|~"_s, u"1.0|~|~"_s} << 1;
    QTest::newRow("no version loses to 0.1") << QStringList{u"~|~|~"_s, u"0.1|~|~"_s} << 1;
    QTest::newRow("no version stays against 0.0") << QStringList{u"~|~|~"_s, u"0.0|~|~"_s} << 0;
    QTest::newRow("0 stays against no version") << QStringList{u"0|~|~"_s, u"~|~|~"_s} << 0;
}

void AppcastTest::best()
{
    QFETCH(QStringList, items);
    QFETCH(int, best);
    AppcastParser parser;
    parser.parse(feedOf(items));
    QCOMPARE(parser.entries().size(), items.size());
    const std::optional<AppcastParser::Entry> newest = parser.best();
    QCOMPARE(newest.has_value(), best >= 0);
    if (newest)
        QCOMPARE(describe(*newest), items.at(best));
}

void AppcastTest::largeFeed_data()
{
    QTest::addColumn<int>("items");
    QTest::addColumn<int>("padding"); // bytes of white space around each build text
    QTest::newRow("40,000 items") << 40000 << 200;
    QTest::newRow("one 10 MB text") << 1 << 10'000'000;
}

void AppcastTest::largeFeed()
{
    QFETCH(int, items);
    QFETCH(int, padding);
    QStringList list;
    for (int i = 0; i < items; ++i)
        list << u"~|%1%2%1|~"_s.arg(QString(padding / 2, u' ')).arg(i == items / 2 ? 99999 : i);
    const QByteArray feed = feedOf(list);
    QVERIFY(feed.size() > 9'000'000);
    QElapsedTimer clock;
    clock.start();
    AppcastParser parser;
    parser.parse(feed);
    QCOMPARE(parser.entries().size(), items);
    QCOMPARE(parser.best()->build, u"99999"_s);
    QVERIFY2(clock.elapsed() < 5000, "reading must stay linear");
}

void AppcastTest::decision_data()
{
    QTest::addColumn<QByteArray>("feed");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("shortVersion");
    QTest::addColumn<QString>("build");
    QTest::addColumn<QString>("installed"); // empty: no finding
    QTest::addColumn<QString>("latest");

    const QByteArray enclosure = "<rss xmlns:sparkle=\"x\"><channel><item><enclosure url=\"u\" "
                                 "sparkle:version=\"120\" sparkle:shortVersionString=\"1.2\"/>"
                                 "</item></channel></rss>";
    QTest::newRow("newer short version")
        << enclosure << 200 << u"1.1"_s << u"110"_s << u"1.1"_s << u"1.2"_s;
    QTest::newRow("same short version")
        << enclosure << 200 << u"1.2"_s << u"110"_s << QString() << QString();
    QTest::newRow("installed is newer")
        << enclosure << 200 << u"1.3"_s << u"110"_s << QString() << QString();
    QTest::newRow("builds decide without an installed short version")
        << enclosure << 200 << QString() << u"110"_s << u"110"_s << u"120"_s;
    QTest::newRow("equal short versions settle it, whatever the builds")
        << enclosure << 200 << u"1.2"_s << u"1"_s << QString() << QString();
    QTest::newRow("builds decide without a short version in the feed, short shown")
        << feedOf({u"~|120|~"_s}) << 200 << u"1.1"_s << u"110"_s << u"1.1"_s << u"120"_s;
    QTest::newRow("feed build only, no installed build")
        << feedOf({u"~|120|~"_s}) << 200 << u"1.1"_s << QString() << QString() << QString();
    QTest::newRow("feed short only, no installed short")
        << feedOf({u"1.2|~|~"_s}) << 200 << QString() << u"5"_s << QString() << QString();
    QTest::newRow("nothing installed to compare")
        << enclosure << 200 << QString() << QString() << QString() << QString();
    QTest::newRow("beta is never offered")
        << fixture("sparkle2.xml") << 200 << u"5.0.2"_s << u"5020"_s << u"5.0.2"_s << u"5.0.3"_s;
    QTest::newRow("feed without items")
        << feedOf({}) << 200 << u"1.0"_s << u"1"_s << QString() << QString();
    QTest::newRow("404 with a feed body")
        << enclosure << 404 << u"1.1"_s << u"110"_s << u"1.1"_s << u"1.2"_s;
    QTest::newRow("500 with a feed body")
        << enclosure << 500 << u"1.1"_s << u"110"_s << u"1.1"_s << u"1.2"_s;
    QTest::newRow("404 page") << fixture("not-xml.html") << 404 << u"1.1"_s << u"1"_s << QString()
                              << QString();
}

void AppcastTest::decision()
{
    QFETCH(QByteArray, feed);
    QFETCH(int, status);
    QFETCH(QString, shortVersion);
    QFETCH(QString, build);
    QFETCH(QString, installed);
    QFETCH(QString, latest);
    LocalHttpServer server;
    QVERIFY(server.listening());
    server.route("/appcast.xml", {Behaviour::answer, status, feed, {}});
    const AppInfo app = lumen(shortVersion, build);

    const Outcome outcome = checkSparkle(app, server.url(u"/appcast.xml"_s));
    QCOMPARE(outcome.calls, 1);
    QVERIFY(!outcome.beforeReturn);
    QCOMPARE(server.requests.size(), 1);
    QCOMPARE(outcome.finding.has_value(), !installed.isEmpty());
    if (!outcome.finding)
        return;
    const OutdatedApp expected{
        app.bundleID, app.name, installed, latest, OutdatedApp::Source::sparkle, app.path};
    QCOMPARE(outcome.finding->installed, expected.installed);
    QCOMPARE(outcome.finding->latest, expected.latest);
    QVERIFY(*outcome.finding == expected);
}

void AppcastTest::userAgent_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("shortVersion");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("plain") << u"Foo"_s << u"2.1"_s << QByteArray("Foo/2.1 Sparkle");
    QTest::newRow("no short version") << u"Foo"_s << QString() << QByteArray("Foo/ Sparkle");
    QTest::newRow("spaces and accents")
        << u"Café Timer"_s << u"1.0 (22)"_s << QByteArray("Caf\xc3\xa9 Timer/1.0 (22) Sparkle");
    QTest::newRow("line break cannot add a header")
        << u"Evil\r\nX-Injected: 1"_s << u"1.0"_s << QByteArray("Evil  X-Injected: 1/1.0 Sparkle");
}

void AppcastTest::userAgent()
{
    QFETCH(QString, name);
    QFETCH(QString, shortVersion);
    QFETCH(QByteArray, expected);
    LocalHttpServer server;
    server.route("/feed", {Behaviour::answer, 200, feedOf({u"9.0|~|~"_s}), {}});
    AppInfo app = lumen(shortVersion, u"1"_s);
    app.name = name;
    const Outcome outcome = checkSparkle(app, server.url(u"/feed"_s));
    QCOMPARE(outcome.calls, 1);
    QCOMPARE(server.requests.size(), 1);
    const QByteArray head = server.requests.first();
    QVERIFY(head.startsWith("GET /feed HTTP/1.1\r\n"));
    QCOMPARE(LocalHttpServer::header(head, "User-Agent"), expected);
    QVERIFY(LocalHttpServer::header(head, "X-Injected").isEmpty());
}

void AppcastTest::transport_data()
{
    QTest::addColumn<int>("behaviour");
    QTest::addColumn<qsizetype>("size"); // the feed padded to this many bytes; 0: as is
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("found");
    QTest::addColumn<int>("minMs");
    QTest::addColumn<int>("maxMs");
    const auto row = [](const char *name, Behaviour b, bool found,
                        const QString &path = u"/appcast.xml"_s, qsizetype size = 0, int minMs = 0,
                        int maxMs = 8000) {
        QTest::newRow(name) << int(b) << size << path << found << minMs << maxMs;
    };
    const qsizetype cap = HttpClient::maxBodyBytes;
    row("plain answer", Behaviour::answer, true);
    row("redirected once", Behaviour::answer, true, u"/moved"_s);
    row("slow drip within the limits", Behaviour::drip, true, u"/appcast.xml"_s, 0, 400);
    row("just under 8 MB", Behaviour::answer, true, u"/appcast.xml"_s, cap - 4096);
    row("past 8 MB", Behaviour::answer, false, u"/appcast.xml"_s, cap + 4096);
    row("hangs: inactivity", Behaviour::hang, false, u"/appcast.xml"_s, 0, 250, 1000);
    row("stalls after the headers", Behaviour::stall, false, u"/appcast.xml"_s, 0, 250, 1000);
    row("drips forever: total", Behaviour::dripForever, false, u"/appcast.xml"_s, 0, 1100);
    row("closes at once", Behaviour::closeAtOnce, false);
    row("closes before the promised length", Behaviour::closeEarly, false);
    row("redirects in a loop", Behaviour::redirectLoop, false);
    row("answers with garbage", Behaviour::garbage, false);
    row("connection refused", Behaviour::answer, false, u"refused"_s);
}

void AppcastTest::transport()
{
    QFETCH(int, behaviour);
    QFETCH(qsizetype, size);
    QFETCH(QString, path);
    QFETCH(bool, found);
    QFETCH(int, minMs);
    QFETCH(int, maxMs);
    QByteArray feed = feedOf({u"1.0|~|~"_s, u"2.0|~|~"_s});
    if (size > 0)
        feed.insert(feed.indexOf("</channel>"),
                    "<!--" + QByteArray(size - feed.size() - 7, 'x') + "-->");
    QVERIFY(size == 0 || feed.size() == size);

    LocalHttpServer server;
    server.route("/appcast.xml", {Behaviour(behaviour), 200, feed, {}});
    server.route("/moved", {Behaviour::answer, 301, "moved", "Location: /appcast.xml\r\n"});
    QUrl url = server.url(path);
    if (path == u"refused") {
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        url = QUrl(u"http://127.0.0.1:%1/appcast.xml"_s.arg(closed.serverPort()));
    }

    const Outcome outcome = checkSparkle(lumen(u"1.0"_s, u"1"_s), url);
    QCOMPARE(outcome.calls, 1);
    QVERIFY(!outcome.beforeReturn);
    QCOMPARE(outcome.finding.has_value(), found);
    if (found)
        QCOMPARE(outcome.finding->latest, u"2.0"_s);
    QVERIFY2(outcome.ms >= minMs && outcome.ms <= maxMs,
             QByteArray::number(outcome.ms).constData());
}

QTEST_GUILESS_MAIN(AppcastTest)
#include "tst_appcast.moc"

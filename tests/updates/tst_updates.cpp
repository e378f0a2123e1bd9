#include "common/TestHome.h"
#include "core/models/AppUpdater.h"
#include "core/process/Shell.h"
#include "core/updates/AppStore.h"
#include "core/updates/Appcast.h"
#include "core/updates/AppcastParser.h"
#include "core/updates/Homebrew.h"
#include "core/updates/HttpClient.h"
#include "core/updates/Inventory.h"
#include "core/updates/Versions.h"
#include "updates/LocalHttpServer.h"

#include <QtTest>
#include <sys/resource.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Behaviour = LocalHttpServer::Behaviour;
using Source = OutdatedApp::Source;
using Result = std::optional<QString>;
using Found = std::optional<OutdatedApp>;

namespace {
// The most this process has held resident so far, in MiB (KiB on Linux, bytes on macOS).
qint64 peakResidentMiB()
{
    rusage usage{};
    const qint64 unit = QSysInfo::productType() == u"macos" ? 1024 * 1024 : 1024;
    return ::getrusage(RUSAGE_SELF, &usage) == 0 ? usage.ru_maxrss / unit : -1;
}
// Each table is one column of a row type, so that a row reads like the case it states.
template <typename Row> void table(std::initializer_list<std::pair<const char *, Row>> rows)
{
    QTest::addColumn<Row>("row");
    for (const auto &[tag, row] : rows)
        QTest::newRow(tag) << row;
}
QByteArray fixture(const char *name)
{
    QFile file(QFINDTESTDATA(u"fixtures/"_s + QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
bool writeFile(const QString &path, const QByteArray &bytes, bool executable = false)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) &&
           file.write(bytes) == bytes.size() &&
           (!executable || file.setPermissions(file.permissions() | QFileDevice::ExeOwner));
}
// Appcast entries as "short|build|channel", "~" for an absent field, ',' between entries;
// feedOf() writes element-form items from the same notation.
QString describe(const AppcastParser::Entry &e)
{
    const auto field = [](const std::optional<QString> &v) { return v.value_or(u"~"_s); };
    return field(e.short_) + u'|' + field(e.build) + u'|' + field(e.channel);
}
QByteArray feedOf(const QString &items)
{
    QByteArray xml = "<rss xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\">"
                     "<channel><title>t</title>\n";
    const char *tags[] = {"sparkle:shortVersionString", "sparkle:version", "sparkle:channel"};
    for (const QString &item : items.split(u',', Qt::SkipEmptyParts)) {
        xml += "<item>";
        for (int i = 0; i < 3; ++i) {
            const QByteArray field = item.section(u'|', i, i).toUtf8();
            if (field != "~")
                xml += '<' + QByteArray(tags[i]) + '>' + field + "</" + tags[i] + '>';
        }
        xml += "</item>\n";
    }
    return xml + "</channel></rss>\n";
}
QString describe(const QList<OutdatedApp> &apps)
{
    QStringList rows;
    for (const OutdatedApp &a : apps)
        rows << QStringList{a.id, a.name, a.installed, a.latest, rawValue(a.source)}.join(u'|');
    return rows.join(u',');
}
OutdatedApp formula(const QString &name)
{
    return {u"brew:"_s + name, name, u"1"_s, u"2"_s, Source::brewFormula, std::nullopt};
}
// Its name carries a line break that must never reach a request header.
AppInfo lumen(const QString &shortVersion, const QString &build = u"5"_s)
{
    return {u"/A/L.app"_s, u"Lumen\r\nNotes"_s, u"my app"_s, shortVersion, build, {}, true};
}
// "installed latest", or "" for no finding.
Found finding(const AppInfo &app, const QString &expected, Source source)
{
    if (expected.isEmpty())
        return std::nullopt;
    const QStringList v = expected.split(u' ');
    return OutdatedApp{app.bundleID, app.name, v.first(), v.last(), source, app.path};
}
// Runs one App Store or appcast check until it answers; every answer is kept.
QList<Found> check(const std::function<void(Finding)> &start, qint64 *ms)
{
    auto answers = std::make_shared<QList<Found>>();
    QElapsedTimer clock;
    clock.start();
    start([answers](Found f) { answers->append(f); });
    static_cast<void>(QTest::qWaitFor([&] { return !answers->isEmpty(); }, 10000));
    *ms = clock.elapsed();
    QTest::qWait(10); // room for a second, wrong answer
    return *answers;
}
QByteArray storeAnswer(const char *version)
{
    return fixture("appstore/lookup.json").replace("%V%", version);
}
const QByteArray kLookup = "/lookup?bundleId=my%20app&country=NZ";

using Pair = std::pair<QByteArray, QString>;
using VersionRow = std::tuple<QString, QString, int>; // -1: a before b, 0: the same, 1: after
using FeedRow = std::tuple<QByteArray, QString, int>; // entries, index of the newest
using CheckRow = std::tuple<QByteArray, QString, QString, QString>; // short, build, finding
using BrewRow = std::tuple<int, QString, QByteArray, QString, Result>;
using BundleRow = std::tuple<QString, QString, QString>; // entry, Info.plist, expected
struct TransportRow
{
    Behaviour behaviour;
    bool found;
    QString base = {};  // after the server's address, or a whole base
    qsizetype size = 0; // the answer padded to this many bytes
    int minMs = 0, maxMs = 1000, status = 200;
};
struct ShellRow
{
    QString script;
    Result expected;
    QMap<QString, QString> env = {};
    double limit = 10;
    int minMs = 0, maxMs = 5000;
    QString program = u"/bin/sh"_s;
};

} // namespace

class UpdatesTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> m_home;

private Q_SLOTS:
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        // Hanging servers must fail in a fraction of a second, and well before the total.
        HttpClient::setTimeoutsForTesting(250ms, 900ms);
        qputenv("OURS", "ours");
    }
    void versions_data()
    {
        table<VersionRow>({
            {"numeric pieces", {u"1.9"_s, u"1.10"_s, -1}},
            {"leading zeros", {u"0009.02"_s, u"9.2"_s, 0}},
            {"empty is 0", {QString(), u"0.0"_s, 0}},
            {"letters, signs, spaces separate", {u"v+2.-0b 3"_s, u"2.0.10"_s, -1}},
            {"max", {u"9223372036854775807"_s, u"9223372036854775806"_s, 1}},
            {"past max is 0", {u"1.9223372036854775808.3"_s, u"1.0.3"_s, 0}},
            // Other numerals hold their place as 0; a cluster's first code point decides.
            {"cjk numeral", {u"1.\u4E00.2"_s, u"1.1"_s, -1}},
            {"superscript", {u"1.\u00B2.5"_s, u"1.0.5"_s, 0}},
            {"astral digit", {u"1.\U0001D7D9"_s, u"1"_s, 0}},
            {"combining mark", {u"1\u0301.2"_s, u"0.2"_s, 0}},
        });
    }
    void versions()
    {
        QFETCH(VersionRow, row);
        const auto &[a, b, relation] = row;
        QCOMPARE(Versions::versionLess(a, b), relation < 0);
        QCOMPARE(Versions::versionLess(b, a), relation > 0);
    }
    // Captured feeds, the same cut short, and hostile ones; newest indexes the entries.
    // Enclosure attributes outrank elements; of elements the first wins, of channels the last.
    void appcast_data()
    {
        const auto f = [](const char *name) { return fixture(("appcast/"_ba + name).constData()); };
        const QByteArray sparkle2 = f("sparkle2.xml");
        const qsizetype third = sparkle2.indexOf("<sparkle:version>5020") + 20;
        const QByteArray endless =
            feedOf(u"~|1|~"_s).replace("</channel>", QByteArray("<x>").repeated(100000));
        table<FeedRow>({
            {"builds only", {f("builds-only.xml"), u"~|1.4.2|~,~|1.4.1|~,~|1.4.0|~"_s, 0}},
            {"short only, padded", {f("short-only.xml"), u"3.0|~|~,2.9.1|~|~"_s, 0}},
            {"sparkle 2",
             {sparkle2, u"5.1b2|5102|beta,5.0.3|5030|~,5.0.2|5020|~,5.0.1|5010|~"_s, 1}},
            {"precedence",
             {f("precedence.xml"), u"~|100|~,1.0|100|~,2.0||~,0.5|6|~, 1.1 ||~"_s, 0}},
            {"channels", {f("channels.xml"), u"4.0b1|400|beta,3.9|390|,3.8|380|~"_s, 2}},
            {"CDATA, comments", {f("cdata.xml"), u"|800|~,7.1|791|~,7&0|700|~"_s, 1}},
            {"other prefixes and cases", {f("prefixes.xml"), u"~|~|~,~|~|~,7.0|700|~"_s, 2}},
            {"undeclared entity ends the feed", {f("entities.xml"), u"2.2|220|~"_s, 0}},
            {"RSS 0.91, external DTD", {f("rss091.xml"), u"1.1|11|~,1.0|10|~"_s, 0}},
            {"HTML error page", {f("not-xml.html"), {}, -1}},
            {"cut inside the third item",
             {sparkle2.left(third), u"5.1b2|5102|beta,5.0.3|5030|~"_s, 1}},
            {"cut inside an enclosure tag",
             {sparkle2.left(sparkle2.indexOf("LumenNotes-5030.zip")), u"5.1b2|5102|beta"_s, -1}},
            {"equal keys: the first", {feedOf(u"2.0|~|~,2.0.0|~|~"_s), u"2.0|~|~,2.0.0|~|~"_s, 0}},
            {"build key against short key", {feedOf(u"2.0|~|~,~|3|~"_s), u"2.0|~|~,~|3|~"_s, 1}},
            {"nesting without end", {endless, u"~|1|~"_s, 0}},
        });
    }
    void appcast()
    {
        QFETCH(FeedRow, row);
        const auto &[feed, entries, newest] = row;
        AppcastParser parser;
        parser.parse(feed);
        QStringList got;
        for (const AppcastParser::Entry &entry : parser.entries())
            got << describe(entry);
        QCOMPARE(got.join(u','), entries);
        const std::optional<AppcastParser::Entry> best = parser.best();
        QCOMPARE(best ? describe(*best) : QString(), newest < 0 ? QString() : got.value(newest));
    }
    void appcastCheck_data()
    {
        const QByteArray both = feedOf(u"1.2|120|~"_s);
        const QByteArray build = feedOf(u"~|120|~"_s);
        table<CheckRow>({
            {"newer short version", {both, u"1.1"_s, u"110"_s, u"1.1 1.2"_s}},
            {"equal short versions settle it", {both, u"1.2.0"_s, u"1"_s, {}}},
            {"builds without an installed short version", {both, {}, u"110"_s, u"110 120"_s}},
            {"builds, no short in the feed", {build, u"1.1"_s, u"110"_s, u"1.1 120"_s}},
            {"same build", {build, u"1.1"_s, u"120"_s, {}}},
            {"feed build, no installed build", {build, u"1.1"_s, {}, {}}},
        });
    }
    void appcastCheck()
    {
        QFETCH(CheckRow, row);
        const auto &[feed, shortVersion, build, expected] = row;
        LocalHttpServer server;
        server.route("/appcast.xml", {Behaviour::answer, 200, feed, {}});
        const AppInfo app = lumen(shortVersion, build);
        const QUrl url(server.base() + u"/appcast.xml"_s);
        qint64 ms = 0;
        QCOMPARE(check([&](Finding done) { Appcast::checkSparkle(app, url, done); }, &ms),
                 QList<Found>{finding(app, expected, Source::sparkle)});
        const QByteArray head = server.requests.first();
        QVERIFY2(
            head.contains("\r\nUser-Agent: Lumen  Notes/" + shortVersion.toUtf8() + " Sparkle\r\n"),
            head.constData());
    }
    void appStoreAnswer_data()
    {
        table<Pair>({
            {"newer", {storeAnswer("1.10"), u"1.2 1.10"_s}},
            {"equivalent", {storeAnswer("1.2.0"), {}}},
            {"older", {storeAnswer("1.1"), {}}},
            {"byte order mark", {"\xef\xbb\xbf" + storeAnswer("2.0"), u"1.2 2.0"_s}},
            {"first result decides", {R"({"results":[{"version":"1.0"},{"version":"9.0"}]})", {}}},
            {"cut short", {storeAnswer("2.0").left(200), {}}},
            {"no result", {R"({"results":[]})", {}}},
            {"results not a list", {R"({"results":{"version":"2.0"}})", {}}},
            {"not json", {"<html>", {}}},
            {"version not text", {R"({"results":[{"version":2}]})", {}}},
            {"a stray result", {R"({"results":[{"version":"2.0"},3]})", {}}},
        });
    }
    void appStoreAnswer()
    {
        QFETCH(Pair, row);
        const AppInfo app = lumen(u"1.2"_s);
        QCOMPARE(AppStore::parseAppStoreAnswer(app, row.first),
                 finding(app, row.second, Source::appStore));
        QCOMPARE(AppStore::parseAppStoreAnswer(lumen(QString()), storeAnswer("9.0")), Found());
        QCOMPARE(AppStore::appStoreRegion(QLocale::c()), u"NZ"_s);
        QCOMPARE(AppStore::appStoreRegion(QLocale(u"en_GB"_s)), u"GB"_s);
    }
    // The transfer rules every source shares: a valid answer stands behind each row, so only
    // the transport can lose it. Floods first, before anything raises the memory high-water mark.
    void appStoreLookup_data()
    {
        const qsizetype cap = HttpClient::maxBodyBytes;
        table<TransportRow>({
            {"endless chunked body", {Behaviour::flood, false}},
            {"past 8 MB", {Behaviour::answer, false, {}, cap + 1}},
            {"exactly 8 MB", {Behaviour::answer, true, {}, cap, 0, 8000}},
            {"answer", {Behaviour::answer, true}},
            {"403 with a valid answer", {Behaviour::answer, true, {}, 0, 0, 1000, 403}},
            {"base with trailing slashes", {Behaviour::answer, true, u"//"_s}},
            {"base under a path", {Behaviour::answer, true, u"/mirror/"_s}},
            {"redirected once", {Behaviour::answer, true, u"/moved"_s}},
            {"slow drip within the limits", {Behaviour::drip, true, {}, 0, 400, 8000}},
            {"no answer: inactivity", {Behaviour::hang, false, {}, 0, 200}},
            {"drips forever: total", {Behaviour::dripForever, false, {}, 0, 800, 3000}},
            {"closes before the promised length", {Behaviour::closeEarly, false}},
            {"redirects in a loop", {Behaviour::redirectLoop, false, {}, 0, 0, 3000}},
            {"not HTTP", {Behaviour::garbage, false}},
            {"connection refused", {Behaviour::answer, false, u"http://127.0.0.1:1"_s}},
        });
    }
    void appStoreLookup()
    {
        QFETCH(TransportRow, row);
        QByteArray body = storeAnswer("1.10");
        body += QByteArray(std::max<qsizetype>(row.size - body.size(), 0), ' ');
        LocalHttpServer server;
        server.route((row.base == u"/mirror/" ? "/mirror" : "") + kLookup,
                     {row.behaviour, row.status, body, {}});
        server.route("/moved" + kLookup,
                     {Behaviour::answer, 301, {}, "Location: " + kLookup + "\r\n"});
        const QString base = row.base.startsWith(u"http") ? row.base : server.base() + row.base;
        qputenv("QUORVEL_APP_STORE_URL", base.toUtf8());
        qint64 ms = 0; // main() runs us without a territory: the storefront is NZ
        const QList<Found> answers =
            check([](Finding done) { AppStore::checkAppStore(lumen(u"1.2"_s), done); }, &ms);
        qunsetenv("QUORVEL_APP_STORE_URL");
        QCOMPARE(answers.size(), 1);
        QCOMPARE(answers.first().has_value(), row.found);
        QVERIFY2(ms >= row.minMs && ms <= row.maxMs, QByteArray::number(ms).constData());
    }
    void brewOutdated_data()
    {
        QTest::addColumn<Pair>("row");
        const QByteArray cask = R"("casks": [{"name": "iterm2", "installed_versions": "3.4.19",
                                              "current_version": "3.4.20"}])";
        const QString iterm = u"cask:iterm2|iterm2|3.4.19|3.4.20|brewCask"_s;
        const auto formulae = [&](const char *tag, const QByteArray &group, const QString &listed) {
            QTest::newRow(tag) << Pair{"{\"formulae\": " + group + ", " + cask + "}",
                                       listed + iterm};
        };
        // Shaped like `brew outdated --json=v2`; casks gave one string in older releases.
        formulae("answer", R"([
            {"name": "wget", "installed_versions": ["1.2"], "current_version": "1.3", "pinned": false},
            {"name": "py", "installed_versions": ["3.1_1", "3.2"], "current_version": "3.3"}])",
                 u"brew:wget|wget|1.2|1.3|brewFormula,brew:py|py|3.1_1, 3.2|3.3|brewFormula,"_s);
        // A group or element of the wrong shape drops out; the rest still counts.
        formulae("group with a stray element", R"([{"name": "wget"}, 3])", {});
        formulae("duplicates kept, name empty", R"([{"name": ""}, {"name": ""}])",
                 u"brew:||||brewFormula,brew:||||brewFormula,"_s);
        formulae("installed mixed", R"([{"name": "w", "installed_versions": ["1", 3]}])",
                 u"brew:w|w|||brewFormula,"_s);
        QTest::newRow("not json") << Pair{"Error: Unknown command: outdatd", {}};
    }
    void brewOutdated()
    {
        QFETCH(Pair, row);
        QCOMPARE(describe(Homebrew::parseBrewOutdated(row.first)), row.second);
    }
    // A fake brew records its arguments and fails noisily: what it printed is the result.
    void brewRuns_data()
    {
        const QString odd = u"it's a \"b c\" $HOME"_s;
        const int formula = int(Source::brewFormula), outdated = -1;
        const QString listing = u"[outdated][--json=v2]"_s,
                      cask = u"[upgrade][--cask]["_s + odd + u']';
        table<BrewRow>({
            {"outdated, not utf-8", {outdated, {}, "\xff", listing, QString()}},
            {"outdated, no brew", {outdated, {}, {}, {}, QString()}},
            {"formula", {formula, u"wget"_s, "Error\n", u"[upgrade][wget]"_s, u"Error\n"_s}},
            {"cask, name verbatim",
             {int(Source::brewCask), odd, "\xE2\x9C\x94", cask, u"\u2714"_s}},
            {"upgrade, no brew", {formula, u"a"_s, {}, {}, std::nullopt}},
        });
    }
    void brewRuns()
    {
        QFETCH(BrewRow, row);
        const auto &[source, name, printed, arguments, expected] = row;
        QTemporaryDir bin(m_home->file(u"bin-XXXXXX"_s));
        const QString brew = bin.filePath(u"brew"_s);
        QVERIFY(writeFile(bin.filePath(u"answer"_s), printed));
        QVERIFY(
            writeFile(brew,
                      "#!/bin/sh\nprintf '[%s]' \"$@\" > \"$0.argv\"\ncat \"${0%/brew}/answer\"\n"
                      "echo noise >&2\nexit 1\n",
                      !printed.isEmpty()));
        // Only an executable file counts: a folder with the execute bit does not.
        const QStringList candidates{bin.filePath(u"missing"_s), bin.path(), brew};
        const OutdatedApp app{u"x"_s, name, u"1"_s, u"2"_s, Source(std::max(source, 0)), {}};
        QCOMPARE(source < 0 ? Result(describe(Homebrew::brewOutdated(candidates)))
                            : Homebrew::runBrewUpgrade(app, candidates),
                 expected);
        QFile argv(brew + u".argv"_s);
        QCOMPARE(argv.open(QIODevice::ReadOnly) ? QString::fromUtf8(argv.readAll()) : QString(),
                 arguments);
    }
    // Info.plist as key=value;... with short keys and "<" for a raw value; a row that ends in
    // ";cut" is truncated, ";receipt" adds an App Store receipt. name|id|short|build|feed|mas.
    void bundle_data()
    {
        const QString full = u"id=com.full;short=1.2.3;build=456;feed=https://e.com/a.xml;"
                             "display=Full Display;name=Full"_s;
        const QString b = u"Bare.app"_s;
        table<BundleRow>({
            {"every key", {b, full, u"Full Display|com.full|1.2.3|456|https://e.com/a.xml|0"_s}},
            {"truncated", {b, full + u";cut"_s, {}}},
            {"no identifier", {b, u"short=1.0"_s, {}}},
            {"values not text",
             {b, u"id=c;short=<integer>1</integer>;build=<true/>"_s, u"Bare|c||||0"_s}},
            {"bundle name", {b, u"id=c;name=Short"_s, u"Short|c||||0"_s}},
            {"empty display name wins", {b, u"id=c;display=;name=Short"_s, u"|c||||0"_s}},
            {"App Store receipt", {b, u"id=c;receipt"_s, u"Bare|c||||1"_s}},
            {"upper case APP", {u"Bare.APP"_s, u"id=c"_s, {}}},
        });
    }
    void bundle()
    {
        QFETCH(BundleRow, row);
        const auto &[entry, info, expected] = row;
        static const QHash<QString, QString> keys{
            {u"id"_s, u"CFBundleIdentifier"_s},       {u"short"_s, u"CFBundleShortVersionString"_s},
            {u"build"_s, u"CFBundleVersion"_s},       {u"feed"_s, u"SUFeedURL"_s},
            {u"display"_s, u"CFBundleDisplayName"_s}, {u"name"_s, u"CFBundleName"_s}};
        QString xml = u"<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"_s;
        for (const QString &pair : info.split(u';')) {
            const QString value = pair.section(u'=', 1);
            xml += u"<key>"_s + keys.value(pair.section(u'=', 0, 0)) + u"</key>"_s +
                   (value.startsWith(u'<') ? value : u"<string>"_s + value + u"</string>"_s);
        }
        xml = info.endsWith(u";cut") ? xml.left(xml.size() / 2) : xml + u"</dict></plist>"_s;
        QTemporaryDir dir(m_home->file(u"row-XXXXXX"_s));
        QVERIFY(writeFile(dir.filePath(entry + u"/Contents/Info.plist"_s), xml.toUtf8()));
        if (info.endsWith(u";receipt"))
            QVERIFY(writeFile(dir.filePath(entry + u"/Contents/_MASReceipt/receipt"_s), {}));
        const QList<AppInfo> apps = Inventory::applications({dir.path()}, m_home->where());
        QStringList got;
        for (const AppInfo &a : apps)
            got << a.path
                << QStringList({a.name, a.bundleID, a.shortVersion, a.build,
                                a.feed.value_or(QString()), QString::number(a.mas)})
                       .join(u'|');
        QCOMPARE(got,
                 expected.isEmpty() ? QStringList() : QStringList({dir.filePath(entry), expected}));
    }
    // Folders in the order given, each in the file system's order, none deeper; repeats repeat.
    void folders()
    {
        const QString tree = m_home->file(u"tree/"_s);
        const QByteArray plist =
            "<plist><dict><key>CFBundleIdentifier</key><string>c</string></dict></plist>";
        for (const QString &bundle :
             {u"A/zeta"_s, u"A/Alpha"_s, u"A/10"_s, u"A/.dot"_s, u"A/Sub/In"_s, u"B/S"_s, u"C/S"_s})
            QVERIFY(writeFile(tree + bundle + u".app/Contents/Info.plist"_s, plist));
        QVERIFY(writeFile(tree + u"A/file"_s, "not an app"));
        const QStringList a =
            QDir(tree + u'A').entryList({u"*.app"_s}, QDir::Dirs | QDir::Hidden, QDir::Unsorted);
        QStringList folders, paths;
        for (const char *folder : {"missing", "A/file", "B", "A", "B", "C"})
            folders << tree + QLatin1String(folder);
        for (const AppInfo &app : Inventory::applications(folders, m_home->where()))
            paths << app.path.mid(tree.size());
        QCOMPARE(paths, QStringList(u"B/S.app"_s) +
                            QStringList(a).replaceInStrings(QRegularExpression(u"^"_s), u"A/"_s) +
                            QStringList({u"B/S.app"_s, u"C/S.app"_s}));
        const Locations where = m_home->where();
        const QString mine = m_home->file(u"Applications"_s);
        QCOMPARE(where.applicationFolders(Locations::Apps::updatable),
                 QStringList({u"/Applications"_s, u"/Applications/Utilities"_s, mine}));
        QCOMPARE(where.applicationFolders(Locations::Apps::userFacing),
                 QStringList({u"/Applications"_s, mine}));
        QCOMPARE(where.applicationFolders(Locations::Apps::installed).size(), 6);
    }
    // At most six checks at once, the App Store before a feed and only feeds that form a
    // URL, results by name with equal names in the order found; a second scan meanwhile is
    // ignored. An upgrade drops every row of its package; without brew there is none.
    void updaterScan()
    {
        QObject alive; // ends the fake checks' timers with the test
        int inFlight = 0, maxInFlight = 0;
        QStringList checked; // "s:" from the App Store, "f:" from a feed
        // Receipts (and feeds), feeds, one no URL, an empty one, none. beta answers first, Alpha
        // before its namesake; those three are outdated.
        const QStringList names =
            u"store0 Alpha store2 feed0 alpha beta feed3 bad empty plain"_s.split(u' ');
        const QList<std::optional<QString>> feeds{u"https://e.org/f"_s, u"no url"_s, QString(), {}};
        QList<AppInfo> apps;
        for (qsizetype i = 0; i < names.size(); ++i)
            apps << AppInfo{
                names[i], names[i], names[i], {}, {}, feeds[std::max<qsizetype>(i - 6, 0)], i < 3};
        const auto answer = [&](const QString &how, const AppInfo &a, Finding done) {
            checked << how + a.name;
            maxInFlight = std::max(maxInFlight, ++inFlight);
            const bool found = a.name.endsWith(u"lpha") || a.name == u"beta";
            const int ms = a.name == u"beta" ? 20 : a.name == u"Alpha" ? 40 : 60;
            QTimer::singleShot(ms, &alive, [&, a, done, found] {
                --inFlight;
                done(finding(a, found ? u"1 2"_s : QString(), Source::sparkle));
            });
        };
        AppUpdater::Services s;
        s.brewOutdated = [] { return QList<OutdatedApp>{formula(u"wget"_s), formula(u"wget"_s)}; };
        // On the main thread the inventory finds nothing: it must be read on a worker.
        s.applications = [&] {
            return QThread::currentThread() == thread() ? QList<AppInfo>() : apps;
        };
        s.checkAppStore = [&](const AppInfo &a, Finding f) { answer(u"s:"_s, a, f); };
        s.checkSparkle = [&](const AppInfo &a, const QUrl &, Finding f) { answer(u"f:"_s, a, f); };
        s.brewPath = [] { return Result(u"/fake/brew"_s); };
        s.upgrade = [](const OutdatedApp &a) { return Result(u"==> Upgrading "_s + a.name); };
        AppUpdater updater(s);
        QStringList seen;
        connect(&updater, &AppUpdater::changed, &alive, [&] {
            if (seen.isEmpty() || seen.last() != updater.status())
                seen << updater.status();
        });
        updater.scan();
        updater.scan();
        QTRY_VERIFY_WITH_TIMEOUT(!updater.scanning(), 10000);
        QCOMPARE(seen,
                 QStringList({u"Checking Homebrew…"_s, u"Checking App Store and in-app updaters…"_s,
                              u"5 update(s) available"_s}));
        QCOMPARE(updater.checkedCount(), 10);
        QCOMPARE(maxInFlight, AppUpdater::kMaxChecks);
        QCOMPARE(checked.join(u' '), u"s:store0 s:Alpha s:store2 f:feed0 f:alpha f:beta f:feed3"_s);
        QCOMPARE(describe(updater.items()),
                 u"Alpha|Alpha|1|2|sparkle,alpha|alpha|1|2|sparkle,beta|beta|1|2|sparkle,"
                 "brew:wget|wget|1|2|brewFormula,brew:wget|wget|1|2|brewFormula"_s);

        updater.brewUpgrade(formula(u"wget"_s));
        QCOMPARE(updater.status(), u"Upgrading wget…"_s);
        QTRY_COMPARE(updater.status(), u"Done: wget"_s);
        QCOMPARE(updater.log(), u"==> Upgrading wget"_s);
        QCOMPARE(updater.items().size(), 3);
        s.brewPath = [] { return Result(); };
        s.brewOutdated = [] { return QList<OutdatedApp>(); };
        apps.clear();
        AppUpdater without(s);
        without.brewUpgrade(formula(u"wget"_s));
        QVERIFY(without.status().isEmpty());
        without.scan();
        QTRY_COMPARE(without.status(), u"Everything is up to date."_s);
    }
    // Whatever reached stdout, whatever the exit status; SIGTERM at the limit keeps it too.
    void shell_data()
    {
        const QString cap = u"head -c %1 /dev/zero | tr '\\0' a"_s.arg(Shell::maxOutputBytes);
        const QString env =
            u"echo \"$PATH|$HOMEBREW_NO_AUTO_UPDATE|$HOMEBREW_NO_ENV_HINTS|$OURS\""_s;
        const QString fixed = QLatin1String(Shell::kFixedPath);
        const QMap<QString, QString> given{{u"PATH"_s, u"/bin"_s},
                                           {u"HOMEBREW_NO_AUTO_UPDATE"_s, u"0"_s},
                                           {u"OURS"_s, u"x y=z"_s}};
        const QString term =
            u"trap 'echo got-term; kill $p; exit' TERM; echo start; sleep 9 & p=$!; wait $p"_s;
        table<ShellRow>({
            {"missing program", {{}, {}, {}, 20, 0, 5000, m_home->file(u"none"_s)}},
            {"non-zero exit keeps output", {u"echo out; exit 3"_s, u"out\n"_s}},
            {"stderr drained", {u"echo a; head -c 8000000 /dev/zero >&2; echo b"_s, u"a\nb\n"_s}},
            {"utf-8", {u"printf '\\344\\270\\255\\360\\237\\247\\271'"_s, u"中🧹"_s}},
            {"stray byte", {u"printf 'ok\\377'"_s, {}}},
            {"cut-off sequence at the end", {u"printf 'ok\\344\\270'"_s, {}}},
            // Ours, a fixed PATH, Homebrew kept quiet; the caller's for that call alone.
            {"environment", {env, fixed + u"|1|1|ours\n"_s}},
            {"caller's environment", {env, u"/bin|0|1|x y=z\n"_s, given}},
            {"SIGTERM at the limit", {term, u"start\ngot-term\n"_s, {}, 0.5, 400, 4000}},
            {"a child keeps stdout",
             {u"echo hi; sleep 5 & echo bye"_s, u"hi\nbye\n"_s, {}, 10, 0, 3000}},
            // Cut off at the cap, killed after the grace period.
            {"endless, deaf to SIGTERM", {u"trap '' TERM; exec yes"_s, {}, {}, 60, 4500, 15000}},
            {"one byte past the cap", {cap + u"; echo"_s, {}, {}, 60, 0, 15000}},
            {"exactly the cap", {cap, QString(Shell::maxOutputBytes, u'a'), {}, 60, 0, 15000}},
        });
    }
    void shell()
    {
        QFETCH(ShellRow, row);
        // Memory stays bounded after every flood; only the last row's answer may be large.
        const qint64 peak = peakResidentMiB();
        QVERIFY2(peak > 0 && peak < 128, QByteArray::number(peak).constData());
        QElapsedTimer clock;
        clock.start();
        const Result got = Shell::run(row.program, {u"-c"_s, row.script}, row.env, row.limit);
        const qint64 ms = clock.elapsed();
        QCOMPARE(got, row.expected);
        QVERIFY2(ms >= row.minMs && ms < row.maxMs, QByteArray::number(ms).constData());
    }
};

int main(int argc, char *argv[])
{
    // The storefront falls back to NZ for a locale without a territory; the variables
    // must be set before Qt first reads the system locale.
    qputenv("LC_ALL", "C");
    qputenv("LANG", "C");
    QCoreApplication app(argc, argv);
    UpdatesTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_updates.moc"

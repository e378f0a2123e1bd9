#include "common/Pty.h"
#include "common/TestHome.h"
#include "updates/LocalHttpServer.h"

#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTimer>
#include <QtTest>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

struct Run
{
    int status = -1;
    QString out;
    QString err;
    QJsonObject json() const { return QJsonDocument::fromJson(out.toUtf8()).object(); }
};

// One formula and one cask, shaped like `brew outdated --json=v2`.
const QByteArray kOutdated = R"({
  "formulae": [{"name": "wget", "installed_versions": ["1.21.3"], "current_version": "1.21.4",
                "pinned": false, "pinned_version": null}],
  "casks": [{"name": "firefox", "installed_versions": ["118.0.1"], "current_version": "118.0.2"}]
})";

const QByteArray kAppcast = R"(<?xml version="1.0" encoding="utf-8"?>
<rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle" version="2.0">
  <channel>
    <title>Feedy</title>
    <item>
      <title>2.0</title>
      <sparkle:version>200</sparkle:version>
      <sparkle:shortVersionString>2.0</sparkle:shortVersionString>
      <enclosure url="http://127.0.0.1/Feedy-2.0.zip" length="1000" type="application/octet-stream"/>
    </item>
  </channel>
</rss>
)";

const QString kFeedyID = u"com.example.Feedy"_s;
const QString kShoppeID = u"com.example.Shoppe"_s;

// A home of its own, a fake brew and a local server for every test: the feeds and the
// App Store lookups go to the server, which answers while the test's event loop spins.
class Fixture
{
public:
    explicit Fixture(const QString &parent) : m_dir(parent + u"/home-XXXXXX"_s)
    {
        m_path = m_dir.path();
        server.route("/feedy.xml", {LocalHttpServer::Behaviour::answer, 200, kAppcast, {}});
        const QByteArray lookup =
            "/lookup?bundleId=" + kShoppeID.toUtf8() + "&country=NZ"; // no territory in C
        server.route(lookup, {LocalHttpServer::Behaviour::answer,
                              200,
                              R"({"resultCount": 1, "results": [{"version": "3.2"}]})",
                              {}});
    }

    LocalHttpServer server;

    QString path(const QString &relative) const { return m_path + u'/' + relative; }
    QString brewPath() const { return path(u"bin/brew"_s); }

    // Answers `outdated` with kOutdated and an upgrade with a line naming its arguments;
    // every call's arguments go to a file, "|"-terminated so that their split shows.
    void brew(bool executable = true) const
    {
        const QByteArray script = "#!/bin/sh\n"
                                  "for a in \"$@\"; do printf '%s|' \"$a\"; done >> '" +
                                  callsPath().toUtf8() +
                                  "'\n"
                                  "echo >> '" +
                                  callsPath().toUtf8() +
                                  "'\n"
                                  "case \"$1\" in\n"
                                  "outdated) cat <<'EOF'\n" +
                                  kOutdated +
                                  "\nEOF\n;;\n"
                                  "upgrade) echo \"==> fake brew $*\";;\n"
                                  "esac\n";
        write(brewPath(), script);
        QFile::setPermissions(brewPath(),
                              executable ? QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner
                                         : QFile::ReadOwner | QFile::WriteOwner);
    }
    QStringList brewCalls() const
    {
        QFile f(callsPath());
        if (!f.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(f.readAll()).split(u'\n', Qt::SkipEmptyParts);
    }

    // ~/Applications/Feedy.app at 1.0 with its appcast on the local server.
    void feedApp() const
    {
        app(u"Feedy.app"_s, kFeedyID, u"1.0"_s,
            u"<key>SUFeedURL</key><string>"_s + server.base() + u"/feedy.xml</string>"_s);
    }
    // ~/Applications/Shoppe.app at 3.1 from the App Store.
    void storeApp() const
    {
        app(u"Shoppe.app"_s, kShoppeID, u"3.1"_s, {});
        write(path(u"Applications/Shoppe.app/Contents/_MASReceipt/receipt"_s), "receipt");
    }

    Run cli(const QStringList &arguments, const QString &language = u"C.UTF-8"_s,
            const Pty *stderrTerminal = nullptr) const
    {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const QString &name : env.keys()) {
            if (name.startsWith(u"LC_"_s) || name == u"LANGUAGE"_s ||
                name.contains(u"proxy"_s, Qt::CaseInsensitive))
                env.remove(name);
        }
        env.insert(u"LANG"_s, language);
        env.insert(u"HOME"_s, m_path);
        env.insert(u"QUORVEL_BREW"_s, brewPath());
        env.insert(u"QUORVEL_APP_STORE_URL"_s, server.base());
        process.setProcessEnvironment(env);
        process.setWorkingDirectory(m_path);
        if (stderrTerminal) {
            process.setChildProcessModifier(
                [slave = stderrTerminal->slave] { ::dup2(slave, STDERR_FILENO); });
        }
        QEventLoop loop;
        QObject::connect(&process, &QProcess::finished, &loop, &QEventLoop::quit);
        QObject::connect(&process, &QProcess::errorOccurred, &loop, [&](QProcess::ProcessError e) {
            if (e == QProcess::FailedToStart)
                loop.quit();
        });
        QTimer::singleShot(30'000, &loop, &QEventLoop::quit);
        process.start(QStringLiteral(QUORVEL_CLI_PATH), arguments);
        loop.exec(); // the server answers from here while the child waits on it
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished();
            return {};
        }
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

private:
    QString callsPath() const { return path(u"brew-calls"_s); }

    static void write(const QString &file, const QByteArray &bytes)
    {
        QDir().mkpath(file.section(u'/', 0, -2));
        QFile f(file);
        if (f.open(QIODevice::WriteOnly))
            f.write(bytes);
    }

    void app(const QString &entry, const QString &bundleID, const QString &version,
             const QString &extraKeys) const
    {
        const QString plist = u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                              u"<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                              u"\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                              u"<plist version=\"1.0\"><dict>"
                              u"<key>CFBundleIdentifier</key><string>"_s +
                              bundleID +
                              u"</string><key>CFBundleShortVersionString</key><string>"_s +
                              version + u"</string>"_s + extraKeys + u"</dict></plist>\n"_s;
        write(path(u"Applications/"_s + entry + u"/Contents/Info.plist"_s), plist.toUtf8());
    }

    QTemporaryDir m_dir;
    QString m_path;
};

QString compact(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

const QString kOutdatedCall = u"outdated|--json=v2|"_s;

} // namespace

class CliUpdatesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void updatesJson();
    void updatesText_data();
    void updatesText();
    void upgrade_data();
    void upgrade();
    void upgradeJson();
    void withoutHomebrew_data();
    void withoutHomebrew();
    void usage_data();
    void usage();
    void progressOnTerminal_data();
    void progressOnTerminal();

private:
    std::unique_ptr<TestHome> m_home;
};

void CliUpdatesTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
}

void CliUpdatesTest::updatesJson()
{
    Fixture fixture(m_home->path());
    QVERIFY(fixture.server.listening());
    fixture.brew();
    fixture.feedApp();
    const Run run = fixture.cli({u"updates"_s, u"--json"_s});
    QCOMPARE(run.status, 0);
    QVERIFY2(run.err.isEmpty(), qPrintable(run.err)); // no progress into a pipe
    const QJsonObject answer = run.json();
    QCOMPARE(answer.value(u"status"_s).toString(), u"3 update(s) available"_s);

    const QJsonObject feedy{
        {u"id"_s, kFeedyID},         {u"name"_s, u"Feedy"_s},
        {u"installed"_s, u"1.0"_s},  {u"latest"_s, u"2.0"_s},
        {u"source"_s, u"sparkle"_s}, {u"appURL"_s, fixture.path(u"Applications/Feedy.app"_s)}};
    const QJsonObject firefox{{u"id"_s, u"cask:firefox"_s},   {u"name"_s, u"firefox"_s},
                              {u"installed"_s, u"118.0.1"_s}, {u"latest"_s, u"118.0.2"_s},
                              {u"source"_s, u"brewCask"_s},   {u"appURL"_s, QJsonValue()}};
    const QJsonObject wget{{u"id"_s, u"brew:wget"_s},       {u"name"_s, u"wget"_s},
                           {u"installed"_s, u"1.21.3"_s},   {u"latest"_s, u"1.21.4"_s},
                           {u"source"_s, u"brewFormula"_s}, {u"appURL"_s, QJsonValue()}};
    const QJsonArray items = answer.value(u"items"_s).toArray();
    QCOMPARE(items.size(), 3);
    // By name, ignoring case, as the model sorts them.
    QCOMPARE(compact(items[0].toObject()), compact(feedy));
    QCOMPARE(compact(items[1].toObject()), compact(firefox));
    QCOMPARE(compact(items[2].toObject()), compact(wget));
    QVERIFY(items[1].toObject().contains(u"appURL"_s)); // present as null, not left out
    QCOMPARE(fixture.brewCalls(), QStringList{kOutdatedCall});
}

void CliUpdatesTest::updatesText_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<bool>("storeApp");
    QTest::addColumn<QString>("expected");
    const QString brew = u"Homebrew Cask\tfirefox\t118.0.1 -> 118.0.2\n"_s;
    const QString wget = u"Homebrew\twget\t1.21.3 -> 1.21.4\n"_s;
    QTest::newRow("en") << u"C.UTF-8"_s << false
                        << u"3 update(s) available\n"_s + u"In-app updater\tFeedy\t1.0 -> 2.0\n"_s +
                               brew + wget;
    QTest::newRow("zh") << u"zh_CN.UTF-8"_s << false
                        << u"有 3 个更新\n"_s + u"应用内更新\tFeedy\t1.0 -> 2.0\n"_s + brew + wget;
    QTest::newRow("with an App Store app")
        << u"C.UTF-8"_s << true
        << u"4 update(s) available\n"_s + u"In-app updater\tFeedy\t1.0 -> 2.0\n"_s + brew +
               u"App Store\tShoppe\t3.1 -> 3.2\n"_s + wget;
}

void CliUpdatesTest::updatesText()
{
    QFETCH(QString, language);
    QFETCH(bool, storeApp);
    QFETCH(QString, expected);
    Fixture fixture(m_home->path());
    fixture.brew();
    fixture.feedApp();
    if (storeApp)
        fixture.storeApp();
    const Run run = fixture.cli({u"updates"_s}, language);
    QCOMPARE(run.status, 0);
    QCOMPARE(run.out, expected);
    QVERIFY2(run.err.isEmpty(), qPrintable(run.err));
}

void CliUpdatesTest::upgrade_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("id");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("upgradeCall"); // empty when brew must not be asked to upgrade
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("complaint");
    QTest::newRow("formula") << u"C.UTF-8"_s << u"brew:wget"_s << 0 << u"upgrade|wget|"_s
                             << u"==> fake brew upgrade wget\nDone: wget\n"_s << QString();
    QTest::newRow("cask") << u"C.UTF-8"_s << u"cask:firefox"_s << 0 << u"upgrade|--cask|firefox|"_s
                          << u"==> fake brew upgrade --cask firefox\nDone: firefox\n"_s
                          << QString();
    QTest::newRow("formula, zh") << u"zh_CN.UTF-8"_s << u"brew:wget"_s << 0 << u"upgrade|wget|"_s
                                 << u"==> fake brew upgrade wget\n已升级：wget\n"_s << QString();
    QTest::newRow("unknown cask") << u"C.UTF-8"_s << u"cask:nope"_s << 2 << QString() << QString()
                                  << u"no update found with id cask:nope"_s;
    QTest::newRow("formula named as a cask") << u"C.UTF-8"_s << u"cask:wget"_s << 2 << QString()
                                             << QString() << u"no update found with id"_s;
    QTest::newRow("package name without prefix")
        << u"C.UTF-8"_s << u"wget"_s << 2 << QString() << QString() << u"no update found with id"_s;
    QTest::newRow("appcast app") << u"C.UTF-8"_s << kFeedyID << 2 << QString() << QString()
                                 << kFeedyID + u" is not a Homebrew package"_s;
    QTest::newRow("appcast app, zh") << u"zh_CN.UTF-8"_s << kFeedyID << 2 << QString() << QString()
                                     << kFeedyID + u" 不是 Homebrew 软件包"_s;
}

void CliUpdatesTest::upgrade()
{
    QFETCH(QString, language);
    QFETCH(QString, id);
    QFETCH(int, status);
    QFETCH(QString, upgradeCall);
    QFETCH(QString, out);
    QFETCH(QString, complaint);
    Fixture fixture(m_home->path());
    fixture.brew();
    fixture.feedApp();
    const Run run = fixture.cli({u"upgrade"_s, id}, language);
    QCOMPARE(run.status, status);
    QCOMPARE(run.out, out);
    if (complaint.isEmpty())
        QVERIFY2(run.err.isEmpty(), qPrintable(run.err));
    else
        QVERIFY2(run.err.contains(complaint), qPrintable(run.err));
    QStringList calls{kOutdatedCall};
    if (!upgradeCall.isEmpty())
        calls.append(upgradeCall);
    QCOMPARE(fixture.brewCalls(), calls);
}

void CliUpdatesTest::upgradeJson()
{
    Fixture fixture(m_home->path());
    fixture.brew();
    const Run run = fixture.cli({u"upgrade"_s, u"--json"_s, u"cask:firefox"_s});
    QCOMPARE(run.status, 0);
    const QJsonObject expected{{u"id"_s, u"cask:firefox"_s},
                               {u"name"_s, u"firefox"_s},
                               {u"source"_s, u"brewCask"_s},
                               {u"status"_s, u"Done: firefox"_s},
                               {u"output"_s, u"==> fake brew upgrade --cask firefox\n"_s}};
    QCOMPARE(compact(run.json()), compact(expected));
    QCOMPARE(fixture.brewCalls(), (QStringList{kOutdatedCall, u"upgrade|--cask|firefox|"_s}));
}

void CliUpdatesTest::withoutHomebrew_data()
{
    QTest::addColumn<QString>("brew"); // "missing", or a file that is no executable
    QTest::addColumn<bool>("feedApp");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("complaint");
    const QString none = u"Homebrew was not found"_s;
    const QStringList upgradeX{u"upgrade"_s, u"brew:x"_s};
    QTest::newRow("upgrade, missing")
        << u"missing"_s << false << upgradeX << 2 << QString() << none;
    QTest::newRow("upgrade, not executable")
        << u"not executable"_s << false << QStringList{u"upgrade"_s, u"brew:wget"_s} << 2
        << QString() << none;
    QTest::newRow("upgrade of an appcast app")
        << u"missing"_s << true << QStringList{u"upgrade"_s, kFeedyID} << 2 << QString() << none;
    QTest::newRow("updates, nothing") << u"missing"_s << false << QStringList{u"updates"_s} << 0
                                      << u"Everything is up to date.\n"_s << QString();
    QTest::newRow("updates, not executable")
        << u"not executable"_s << false << QStringList{u"updates"_s} << 0
        << u"Everything is up to date.\n"_s << QString();
    QTest::newRow("updates, feed app")
        << u"missing"_s << true << QStringList{u"updates"_s} << 0
        << u"1 update(s) available\nIn-app updater\tFeedy\t1.0 -> 2.0\n"_s << QString();
}

void CliUpdatesTest::withoutHomebrew()
{
    QFETCH(QString, brew);
    QFETCH(bool, feedApp);
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QString, out);
    QFETCH(QString, complaint);
    Fixture fixture(m_home->path());
    if (brew != u"missing")
        fixture.brew(false);
    if (feedApp)
        fixture.feedApp();
    const Run run = fixture.cli(arguments);
    QCOMPARE(run.status, status);
    QCOMPARE(run.out, out);
    if (complaint.isEmpty())
        QVERIFY2(run.err.isEmpty(), qPrintable(run.err));
    else
        QVERIFY2(run.err.contains(complaint), qPrintable(run.err));
    QVERIFY(fixture.brewCalls().isEmpty());
}

void CliUpdatesTest::usage_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("expected"); // on standard output when 0, else on error
    const QStringList updatesUsage{u"usage: quorvel-cli updates [--json]"_s, u"QUORVEL_BREW="_s};
    const QStringList upgradeUsage{u"usage: quorvel-cli upgrade ID"_s, u"QUORVEL_BREW="_s};
    QTest::newRow("updates --help") << QStringList{u"updates"_s, u"--help"_s} << 0 << updatesUsage;
    QTest::newRow("upgrade --help") << QStringList{u"upgrade"_s, u"--help"_s} << 0 << upgradeUsage;
    QTest::newRow("help with an id upgrades nothing")
        << QStringList{u"upgrade"_s, u"brew:wget"_s, u"-h"_s} << 0 << upgradeUsage;
    QTest::newRow("listed in the overview")
        << QStringList{u"--help"_s} << 0 << QStringList{u"\n  updates "_s, u"\n  upgrade "_s};
    QTest::newRow("updates, unknown option")
        << QStringList{u"updates"_s, u"--all"_s} << 2
        << (QStringList{u"unknown option --all"_s} + updatesUsage);
    QTest::newRow("updates, argument")
        << QStringList{u"updates"_s, u"wget"_s} << 2
        << (QStringList{u"unexpected argument wget"_s} + updatesUsage);
    QTest::newRow("upgrade, no id") << QStringList{u"upgrade"_s} << 2
                                    << (QStringList{u"expected exactly one ID"_s} + upgradeUsage);
    QTest::newRow("upgrade, two ids")
        << QStringList{u"upgrade"_s, u"brew:wget"_s, u"cask:firefox"_s} << 2
        << (QStringList{u"expected exactly one ID"_s} + upgradeUsage);
    QTest::newRow("upgrade, unknown option")
        << QStringList{u"upgrade"_s, u"--yes"_s, u"brew:wget"_s} << 2
        << (QStringList{u"unknown option --yes"_s} + upgradeUsage);
}

void CliUpdatesTest::usage()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QStringList, expected);
    Fixture fixture(m_home->path());
    fixture.brew();
    const Run run = fixture.cli(arguments);
    QCOMPARE(run.status, status);
    const QString &shown = status == 0 ? run.out : run.err;
    QVERIFY2((status == 0 ? run.err : run.out).isEmpty(), qPrintable(run.out + run.err));
    for (const QString &text : expected)
        QVERIFY2(shown.contains(text), qPrintable(text + u"\n---\n"_s + shown));
    QVERIFY(fixture.brewCalls().isEmpty()); // refused before anything is checked
}

void CliUpdatesTest::progressOnTerminal_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QStringList>("progress");
    const QStringList scan{u"Checking Homebrew…"_s,
                           u"Checking App Store and in-app updaters… (1)"_s};
    QTest::newRow("updates") << QStringList{u"updates"_s}
                             << u"3 update(s) available\nIn-app updater\tFeedy\t1.0 -> 2.0\n"
                                u"Homebrew Cask\tfirefox\t118.0.1 -> 118.0.2\n"
                                u"Homebrew\twget\t1.21.3 -> 1.21.4\n"_s
                             << scan;
    QTest::newRow("upgrade") << QStringList{u"upgrade"_s, u"brew:wget"_s}
                             << u"==> fake brew upgrade wget\nDone: wget\n"_s
                             << (scan + QStringList{u"Upgrading wget…"_s});
}

void CliUpdatesTest::progressOnTerminal()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, out);
    QFETCH(QStringList, progress);
    Fixture fixture(m_home->path());
    fixture.brew();
    fixture.feedApp();
    Pty pty;
    QVERIFY(pty.slave >= 0);
    const Run run = fixture.cli(arguments, u"C.UTF-8"_s, &pty);
    QCOMPARE(run.status, 0);
    QCOMPARE(run.out, out); // results stay on standard output, untouched by progress
    const QString shown = QString::fromUtf8(pty.drain());
    qsizetype previous = -1;
    for (const QString &text : progress) {
        const qsizetype at = shown.indexOf(u"\r\x1b[K"_s + text);
        QVERIFY2(at > previous, qPrintable(text + u"\n---\n"_s + shown));
        previous = at;
    }
    QVERIFY2(shown.endsWith(u"\r\x1b[K"_s), qPrintable(shown)); // the line is cleared
}

QTEST_GUILESS_MAIN(CliUpdatesTest)
#include "tst_cli_updates.moc"

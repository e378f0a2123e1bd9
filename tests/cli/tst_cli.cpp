#include "common/Pty.h"
#include "common/TestHome.h"
#include "updates/LocalHttpServer.h"

#include "core/health/SystemStats.h"

#include <QtTest> // and QtCore
#include <functional>
#include <unistd.h>

using namespace Qt::StringLiterals;

// Off Linux the CLI moves to and empties the developer's own Trash, whatever HOME says.
#ifdef Q_OS_LINUX
#define SKIP_OFF_LINUX()
#else
#define SKIP_OFF_LINUX() QSKIP("the system's Trash here is the developer's own")
#endif

namespace {

const QString en = u"C.UTF-8"_s;
const QString zh = u"zh_CN.UTF-8"_s;

// One run of the command line, written as a table row: arguments as one string with `~`
// for the home, and what it must say (parts separated by "|", unless a test says otherwise).
struct Case
{
    QString arguments = {};
    int status = 0;
    QString said = {};
    QString language = en;
    QByteArray typed = {}; // answered on a terminal, once the question is there; empty: none
};

struct Run
{
    int status = -1;
    QString out;
    QString err;
    QJsonObject json() const { return QJsonDocument::fromJson(out.toUtf8()).object(); }
};

const QByteArray kOutdated = R"({"formulae": [{"name": "wget", "installed_versions": ["1.21.3"],
  "current_version": "1.21.4"}], "casks": [{"name": "firefox", "installed_versions": ["118.0.1"],
  "current_version": "118.0.2"}]})";
const QByteArray kAppcast =
    R"(<rss xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"
version="2.0"><channel><item><title>2.0</title><sparkle:version>200</sparkle:version>
<enclosure url="http://127.0.0.1/F.zip" sparkle:shortVersionString="2.0"/></item></channel></rss>)";

QStringList words(const QString &text)
{
    return text.split(u' ', Qt::SkipEmptyParts);
}

// A home of its own per run, with a local server for the appcast and the App Store, Feedy 1.0
// whose appcast offers 2.0, and a fake brew that records its calls.
class Home
{
public:
    explicit Home(const QString &parent) : m_dir(parent + u"/home-XXXXXX"_s), m_path(m_dir.path())
    {
        server.route("/feedy.xml", {LocalHttpServer::Behaviour::answer, 200, kAppcast, {}});
        file(u"Applications/Feedy.app/Contents/Info.plist"_s,
             "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleIdentifier</key>"
             "<string>com.example.Feedy</string><key>CFBundleShortVersionString</key><string>1.0"
             "</string><key>SUFeedURL</key><string>" +
                 server.base().toUtf8() + "/feedy.xml</string></dict></plist>\n");
        file(u"bin/brew.json"_s, kOutdated);
        file(u"bin/brew"_s, "#!/bin/sh\nprintf '%s|' \"$@\" >> \"$0-calls\"; echo >> \"$0-calls\"\n"
                            "case \"$1\" in outdated) cat \"$0.json\";;\n"
                            "upgrade) echo \"==> fake brew $*\";; esac\n");
        QFile::setPermissions(path(u"bin/brew"_s), QFile::ReadOwner | QFile::ExeOwner);
    }
    LocalHttpServer server;

    QString path(const QString &relative) const { return m_path + u'/' + relative; }
    QString expand(QString text) const { return text.replace(u'~', m_path); }
    void file(const QString &relative, const QByteArray &bytes) const
    {
        QDir().mkpath(path(relative).section(u'/', 0, -2));
        QFile f(path(relative));
        QVERIFY(f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size());
    }
    // The clean-up page's default candidates: two caches, a log, pip in both AI places.
    QStringList fill() const
    {
        const QStringList found =
            words(u"Library/Caches/com.example.a Library/Caches/pip "
                  u"Library/Caches/com.example.b Library/Logs/x.log .cache/pip"_s);
        for (const QString &name : found)
            file(name.endsWith(u".log"_s) ? name : name + u"/blob"_s, QByteArray(5000, 'q'));
        return found;
    }
    QStringList trashed() const
    {
        return QDir(path(u".local/share/Trash/files"_s))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }
    QStringList lines(const QString &relative) const
    {
        QFile f(path(relative));
        return f.open(QIODevice::ReadOnly)
                   ? QString::fromUtf8(f.readAll()).split(u'\n', Qt::SkipEmptyParts)
                   : QStringList();
    }
    QStringList logLines() const { return lines(u"Library/Logs/Quorvel/removals.log"_s); }

    Run cli(const Case &c, const QString &folder = {},
            const std::function<void()> &whileAsking = {}) const
    {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const QString &name : env.keys())
            if (name.startsWith(u"LC_"_s) || name == u"LANGUAGE"_s ||
                name.contains(u"proxy"_s, Qt::CaseInsensitive))
                env.remove(name);
        env.insert(u"LANG"_s, c.language);
        env.insert(u"HOME"_s, m_path);
        env.insert(u"QUORVEL_BREW"_s, path(u"bin/brew"_s));
        env.insert(u"QUORVEL_APP_STORE_URL"_s, server.base());
        process.setProcessEnvironment(env);
        process.setWorkingDirectory(path(folder));
        Pty terminal;
        if (!c.typed.isEmpty())
            process.setChildProcessModifier([in = terminal.slave] { ::dup2(in, STDIN_FILENO); });
        process.start(QStringLiteral(QUORVEL_CLI_PATH), words(expand(c.arguments)));
        QByteArray err;
        const QDeadlineTimer limit(30'000);
        while (process.state() != QProcess::NotRunning && !limit.hasExpired()) {
            process.waitForFinished(20);
            QCoreApplication::processEvents(); // the server answers while the child waits
            err += process.readAllStandardError();
            if (!c.typed.isEmpty() && err.contains("[y/N]") && terminal.slave >= 0) {
                if (whileAsking)
                    whileAsking();
                [[maybe_unused]] const auto n = ::write(terminal.master, c.typed, c.typed.size());
                ::close(std::exchange(terminal.slave, -1)); // answered once
            }
        }
        const bool ended = process.state() == QProcess::NotRunning; // else killed on return
        return {ended && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(err + process.readAllStandardError())};
    }

private:
    QTemporaryDir m_dir;
    QString m_path;
};

Case row(const char *arguments, int status, const char *said, const QString &language = en,
         const QByteArray &typed = {})
{
    return {QString::fromUtf8(arguments), status, QString::fromUtf8(said), language, typed};
}

} // namespace

Q_DECLARE_METATYPE(Case)

class CliTest : public QObject
{
    Q_OBJECT
    std::unique_ptr<TestHome> m_home;

private Q_SLOTS:
    void initTestCase() { m_home = std::make_unique<TestHome>(); }

    // Every command's exit status, what it says and which Homebrew calls it makes: `said`
    // is on standard error for a usage error (2), else on standard output, where --json
    // output is compared as JSON.
    void commands_data()
    {
        QTest::addColumn<Case>("c");
        QTest::addColumn<QString>("calls"); // brew's calls, space-separated; arguments end in "|"
        QTest::addColumn<bool>("brew");
        const auto add = [](const char *name, const Case &c, const char *calls = "",
                            bool brew = true) {
            QTest::newRow(name) << c << QString::fromLatin1(calls) << brew;
        };
        add("--help",
            row("--help", 0, "\n  check |\n  scan |\n  clean |\n  updates |\n  upgrade "));
        add("--version", row("--version", 0, "quorvel-cli 0."));
        for (const char *command :
             {"check", "scan", "clean", "overview", "trash", "health", "updates", "upgrade"})
            add(command, {QString::fromLatin1(command) + u" --help"_s, 0,
                          u"usage: quorvel-cli "_s + QString::fromLatin1(command) + u' '});
        add("help with an id upgrades nothing", row("upgrade brew:wget -h", 0, "usage: "));
        add("unknown command", row("frobnicate", 2, "unknown command|usage: quorvel-cli "));
        add("no category", row("check /x", 2, "--category|usage: quorvel-cli check"));
        add("no category value", row("check /x --category", 2, "needs a value"));
        add("option as value", row("check --category --json /x", 2, "unknown category --json"));
        add("no path", row("check --category logs", 2, "no path"));
        add("unknown option", row("check --category logs --jsn /x", 2, "unknown option --jsn"));
        add("not a page", row("scan overview", 2, "unknown page overview|usage: quorvel-cli scan"));
        add("page in the wrong case", row("clean Cleanup --yes", 2, "unknown page Cleanup"));
        add("two pages", row("clean cleanup leftovers", 2, "exactly one PAGE"));
        add("--only without a path", row("clean cleanup --yes --only", 2, "--only needs"));
        add("updates argument", row("updates wget", 2, "unexpected argument wget|usage: "));
        add("upgrade, no id", row("upgrade", 2, "expected exactly one ID"));

        // "-" and "--odd" are paths relative to a folder outside the home.
        add("check, echoed as given, in order",
            row("check --category userCache ~/Library/Caches/../Caches/com.x/ "
                "~/Library/Caches/../Mail/x - -- --odd",
                1,
                "~/Library/Caches/../Caches/com.x/\tallowed\n~/Library/Caches/../Mail/x\trefused\t"
                "protected location — refused\n-\trefused\toutside your home folder — refused\n"
                "--odd\trefused\toutside your home folder — refused\n"));
        add("check, a name cannot add a line or a field",
            row("check --category=userCache ~/Library/Caches/a\nb\tallowed", 0,
                "~/Library/Caches/a\\nb\\tallowed\tallowed\n"));
        add("check, json: a code for scripts in every language",
            row("check --json --category=logs ~/Library/Logs/a /etc/hosts", 1,
                R"([{"path": "~/Library/Logs/a", "allowed": true, "reason": null, "code": null},
                    {"path": "/etc/hosts", "allowed": false, "code": "outsideHome",
                     "reason": "不在个人文件夹内，拒绝"}])",
                zh));

        const char *outdated = "outdated|--json=v2|";
        add("updates",
            row("updates", 0, "3 update(s) available\nIn-app updater\tFeedy\t1.0 -> 2.0\n"),
            outdated);
        add("updates, json", row("updates --json", 0, R"({"status": "3 update(s) available",
            "items": [{"id": "com.example.Feedy", "name": "Feedy", "installed": "1.0",
                       "latest": "2.0", "source": "sparkle", "appURL": "~/Applications/Feedy.app"},
                      {"id": "cask:firefox", "name": "firefox", "installed": "118.0.1",
                       "latest": "118.0.2", "source": "brewCask", "appURL": null},
                      {"id": "brew:wget", "name": "wget", "installed": "1.21.3",
                       "latest": "1.21.4", "source": "brewFormula", "appURL": null}]})"),
            outdated);
        add("updates, no brew", row("updates", 0, "1 update(s) available\nIn-app"), "", false);
        add("formula", row("upgrade brew:wget", 0, "==> fake brew upgrade wget\nDone: wget\n"),
            "outdated|--json=v2| upgrade|wget|");
        add("cask, json",
            row("upgrade --json cask:firefox", 0,
                R"({"id": "cask:firefox", "name": "firefox", "source": "brewCask",
                    "status": "Done: firefox", "output": "==> fake brew upgrade --cask firefox\n"})"),
            "outdated|--json=v2| upgrade|--cask|firefox|");
        add("no prefix", row("upgrade wget", 2, "no update found with id wget"), outdated);
        add("appcast app", row("upgrade com.example.Feedy", 2, "is not a Homebrew package"),
            outdated);
        add("no brew", row("upgrade brew:wget", 2, "Homebrew was not found"), "", false);
    }

    void commands()
    {
        QFETCH(Case, c);
        QFETCH(QString, calls);
        QFETCH(bool, brew);
        Home home(m_home->path());
        if (!brew)
            QFile::remove(home.path(u"bin/brew"_s));
        const Run run = home.cli(c, u".."_s);
        QCOMPARE(run.status, c.status);
        const QString &shown = c.status == 2 ? run.err : run.out;
        QVERIFY2((c.status == 2 ? run.out : run.err).isEmpty(), qPrintable(run.out + run.err));
        if (c.status != 2 && c.arguments.contains(u"--json"_s))
            QVERIFY2(QJsonDocument::fromJson(shown.toUtf8()) ==
                         QJsonDocument::fromJson(home.expand(c.said).toUtf8()),
                     qPrintable(shown));
        else
            for (const QString &text : c.said.split(u'|'))
                QVERIFY2(shown.contains(home.expand(text)), qPrintable(shown));
        QCOMPARE(home.lines(u"bin/brew-calls"_s), words(calls));
    }

    void scan()
    {
        Home home(m_home->path());
        const QStringList found = home.fill();
        home.file(u"Library/Caches/odd\n  [x] 9 KB  forged/blob"_s, "q"); // stays one line
        const Run run = home.cli(row("scan cleanup --json", 0, ""));
        QCOMPARE(run.status, 0);
        QVERIFY2(run.err.isEmpty(), qPrintable(run.err));     // no progress into a pipe
        QCOMPARE(run.json()[u"items"_s].toArray().size(), 6); // pip once, not again as a cache
        QHash<QString, QJsonObject> items;
        for (const QJsonValue &v : run.json()[u"items"_s].toArray())
            items.insert(v[u"path"_s].toString(), v.toObject());
        const QStringList categories = words(u"userCache ai userCache logs ai"_s);
        for (qsizetype i = 0; i < found.size(); ++i) {
            const QJsonObject item = items[home.path(found[i])];
            QCOMPARE(item[u"category"_s].toString(), categories[i]);
            QCOMPARE(item[u"selected"_s].toBool(false), true);
            QVERIFY(item[u"bytes"_s].toInteger() >= 5000);
        }

        const QString text = home.cli(row("scan cleanup", 0, "")).out;
        const auto lines = QRegularExpression::MultilineOption;
        const auto inOrder = lines | QRegularExpression::DotMatchesEverythingOption;
        QVERIFY2(text.contains(QRegularExpression( // groups in the page's order, not the scan's
                     u"^App caches — .*^Logs & crash reports — .*^AI tools & models — .*"
                     u"^Developer junk — Zero KB\n  \\(nothing found\\)$"_s,
                     inOrder)),
                 qPrintable(text));
        QVERIFY2(text.contains(QRegularExpression(
                     u"^  \\[x\\] +\\d+ KB  x\\.log — ~/Library/Logs$"_s, lines)),
                 qPrintable(text));
        QVERIFY2(text.contains(u"odd\\n  [x] 9 KB  forged"_s), qPrintable(text));
    }

    void clean_data()
    {
        QTest::addColumn<Case>("c"); // `said` on standard output or error
        QTest::addColumn<QStringList>("moved");
        const QStringList all = words(u"com.example.a pip com.example.b x.log .cache/pip"_s);
        const QStringList b{u"com.example.b"_s};
        const auto add = [](const char *name, const Case &c, const QStringList &moved = {}) {
            QTest::newRow(name) << c << moved;
        };
        const char *terminal = "not a terminal, so there is no one to confirm";
        add("no terminal", row("clean cleanup", 2, terminal));
        add("no terminal, trash", row("trash --empty", 2, terminal));
        add("--yes", row("clean cleanup --yes", 0, "Moved 5 item(s)"), all);
        add("y", row("clean cleanup", 0, "Move 5 item(s), |Moved 5", en, "y\n"), all);
        add("YES", row("clean cleanup", 0, "Moved 5 item(s)", en, "YES\n"), all);
        add("n", row("clean cleanup", 1, "Nothing was moved.", en, "n\n"));
        add("anything else", row("clean cleanup", 1, "Nothing was moved.", en, "sure\n"));
        add("end of input", row("clean cleanup", 1, "Nothing was moved.", en, "\x04"));
        add("dry run", row("clean cleanup --dry-run", 0, "Total: 5 item(s)|nothing was moved"));
        add("dry run, --yes", row("clean cleanup --dry-run --yes", 0, "nothing was moved"));
        const char *moved1 = "Moved 1 item(s)";
        add("only", row("clean cleanup --yes --only ~/Library/Caches/com.example.b", 0, moved1), b);
        add("only, trailing slash",
            row("clean cleanup --yes --only ~/Library/Caches/com.example.b/", 0, moved1), b);
        add("only, relative", row("clean cleanup --yes --only com.example.b", 0, moved1), b);
        add("only, one unknown",
            row("clean cleanup --yes --only ~/Library/Caches/nope ~/Library/Caches/com.example.b",
                2, "not among the items found: ~/Library/Caches/nope\n"));
        add("only, inside an item",
            row("clean cleanup --yes --only ~/Library/Caches/com.example.b/blob", 2,
                "not among the items found: ~/Library/Caches/com.example.b/blob\n"));
        add("only, a leftover",
            row("clean leftovers --yes --only ~/Library/Containers/com.gone.App", 0, moved1),
            {u"com.gone.App"_s});
        add("nothing chosen", row("clean leftovers --yes", 0, "Nothing to move.\n"));
    }

    void clean()
    {
        SKIP_OFF_LINUX();
        QFETCH(Case, c);
        QFETCH(QStringList, moved);
        Home home(m_home->path());
        const QStringList found = home.fill() << u"Library/Containers/com.gone.App"_s;
        home.file(found.last() + u"/data"_s, "q");
        home.file(u".local/share/Trash/files/old"_s, "old");
        // A bare name is relative to the working folder.
        const Run run = home.cli(c, c.arguments.contains(u" com.") ? u"Library/Caches"_s : u""_s);
        QCOMPARE(run.status, c.status);
        for (const QString &text : c.said.split(u'|'))
            QVERIFY2((run.out + run.err).contains(home.expand(text)),
                     qPrintable(run.out + run.err));
        for (const QString &path : found) {
            const bool gone =
                moved.contains(path.section(u'/', -1)) || moved.contains(path.section(u'/', -2));
            QVERIFY2(QFileInfo::exists(home.path(path)) != gone, qPrintable(path));
        }
        QCOMPARE(home.trashed().size(), moved.size() + 1); // and what was there before
        QCOMPARE(home.logLines().size(), moved.size());
    }

    // Every failed item is reported with a reason for people and a code for scripts; what
    // could move still moves.
    void cleanFailures_data()
    {
        QTest::addColumn<bool>("trashUsable");
        QTest::newRow("refused beside a move") << true;
        QTest::newRow("no Trash") << false;
    }

    void cleanFailures()
    {
        SKIP_OFF_LINUX();
        QFETCH(bool, trashUsable);
        Home home(m_home->path());
        home.file(u"Library/Caches/disk.vmdk"_s, "vm");
        home.file(u"Library/Caches/com.example.a/blob"_s, "q");
        if (!trashUsable)
            home.file(u".local/share/Trash"_s, "not a folder");
        const Run run = home.cli(row("clean cleanup --yes --json", 1, ""));
        QCOMPARE(run.status, 1);
        QCOMPARE(run.json()[u"count"_s].toInteger(), trashUsable ? 1 : 0);
        QStringList seen;
        for (const QJsonValue &failure : run.json()[u"failures"_s].toArray()) {
            const QString path = failure[u"path"_s].toString();
            seen << path.section(u'/', -1) + u'=' + failure[u"code"_s].toString();
            QVERIFY2(QFileInfo::exists(path), qPrintable(path));
            QVERIFY(!failure[u"reason"_s].toString().isEmpty());
        }
        seen.sort();
        const QString refused = u"disk.vmdk=protectedExtension"_s;
        QCOMPARE(seen, trashUsable ? QStringList(refused)
                                   : QStringList({u"com.example.a=noTrash"_s, refused}));
        QCOMPARE(home.logLines().size(), trashUsable ? 1 : 0);
    }

    void trash_data()
    {
        QTest::addColumn<Case>("c");        // after "trash --empty"; `said` on standard output
        QTest::addColumn<QString>("trash"); // "two", "none", "two, one stuck" or "…arriving"
        QTest::addColumn<QStringList>("left");
        const auto add = [](const char *name, const Case &c, const char *trash,
                            const QString &left = {}) {
            QTest::newRow(name) << c << QString::fromLatin1(trash) << words(left);
        };
        add("text", row("--yes", 0, "\nTrash emptied.\nTrash — 0 item(s), Zero KB\n"), "two");
        add("already empty", row("--yes --json", 0, "\"code\": \"alreadyEmpty\""), "none");
        add("declined", row("--json", 1, "The Trash was not emptied.", en, "n\n"), "two", u"a b"_s);
        add("an arrival while asking stays",
            row("--json", 0, "\"code\": \"emptied\"|\"kept\": 1|1 item(s) added after", en, "y\n"),
            "two, one arriving", u"late.txt"_s);
        add("partial", row("--yes --json", 1, "\"code\": \"partial\""), "two, one stuck", u"a"_s);
    }

    void trash()
    {
        SKIP_OFF_LINUX();
        QFETCH(Case, c);
        QFETCH(QString, trash);
        QFETCH(QStringList, left);
        Home home(m_home->path());
        if (trash != u"none") {
            home.file(u".local/share/Trash/files/a"_s, "a");
            home.file(u".local/share/Trash/files/b/c"_s, "c");
        }
        const qint64 count = trash == u"none" ? 0 : 2; // a plain listing empties nothing
        QCOMPARE(home.cli(row("trash --json", 0, "")).json()[u"count"_s].toInteger(-1), count);
        const QString stuck = home.path(u".local/share/Trash/files/a"_s);
        const bool immutable = trash.endsWith(u"stuck"_s);
        if (immutable && QProcess::execute(u"chattr"_s, {u"+i"_s, stuck}) != 0)
            QSKIP("chattr +i needs CAP_LINUX_IMMUTABLE and a file system that supports it");
        const auto unstick = qScopeGuard([&] {
            if (immutable)
                QProcess::execute(u"chattr"_s, {u"-i"_s, stuck});
        });
        c.arguments.prepend(u"trash --empty "_s);
        const Run run = home.cli(c, {}, [&] { // what arrives while the question waits
            if (trash.endsWith(u"arriving"_s))
                home.file(u".local/share/Trash/files/late.txt"_s, "late");
        });
        QCOMPARE(run.status, c.status);
        for (const QString &text : c.said.split(u'|'))
            QVERIFY2(run.out.contains(text), qPrintable(run.out));
        QCOMPARE(run.out.contains(u"\"kept\""_s), left.contains(u"late.txt"_s));
        QCOMPARE(home.trashed(), left);
    }

    void health()
    {
        Home home(m_home->path());
        const Run run = home.cli(row("health --json", 0, ""));
        QCOMPARE(run.status, 0);
        const QJsonObject json = run.json();
        const double load = json[u"cpuLoad"_s].toDouble(-1);
        QVERIFY2(load >= 0 && load <= 100, qPrintable(QString::number(load)));
        const qint64 total = json[u"disk"_s][u"total"_s].toInteger();
        const qint64 free = json[u"disk"_s][u"free"_s].toInteger(-1);
        QVERIFY(total > 0 && free >= 0 && free <= total);
        const qsizetype level =
            words(u"normal warning critical"_s).indexOf(json[u"memoryPressure"_s].toString());
        QVERIFY(level >= 0);
        // The grade belongs to the figures printed beside it.
        QCOMPARE(json[u"grade"_s].toString(),
                 caseName(SystemStats::gradeFor(load, MemoryPressureLevel(level),
                                                DiskUsage{total, free})));
    }
};

QTEST_GUILESS_MAIN(CliTest)
#include "tst_cli.moc"

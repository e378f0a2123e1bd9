#include "common/Pty.h"
#include "common/TestHome.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>
#include <fcntl.h>
#include <functional>
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

// One home per test, so every command sees exactly the files the test made.
class Home
{
public:
    explicit Home(const QString &parent) : m_dir(parent + u"/home-XXXXXX"_s)
    {
        m_path = m_dir.path();
    }
    QString path(const QString &relative) const { return m_path + u'/' + relative; }
    void file(const QString &relative, qsizetype bytes) const
    {
        const QString full = path(relative);
        QDir().mkpath(full.section(u'/', 0, -2));
        QFile f(full);
        if (f.open(QIODevice::WriteOnly))
            f.write(QByteArray(bytes, 'q'));
    }
    // The clean-up page's default candidates: two caches, a log, pip in both AI places.
    void fill() const
    {
        file(u"Library/Caches/com.example.a/blob"_s, 5000);
        file(u"Library/Caches/com.example.b/blob"_s, 9000);
        file(u"Library/Caches/pip/wheel"_s, 3000);
        file(u"Library/Logs/x.log"_s, 100);
        file(u".cache/pip/wheel"_s, 20000);
    }
    QStringList candidates() const
    {
        return {path(u"Library/Caches/com.example.a"_s), path(u"Library/Caches/com.example.b"_s),
                path(u"Library/Caches/pip"_s), path(u"Library/Logs/x.log"_s),
                path(u".cache/pip"_s)};
    }
    QStringList trashed() const
    {
        return QDir(path(u".local/share/Trash/files"_s))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }
    QStringList logLines() const
    {
        QFile f(path(u"Library/Logs/Quorvel/removals.log"_s));
        if (!f.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(f.readAll()).split(u'\n', Qt::SkipEmptyParts);
    }

    Run cli(const QStringList &arguments, const QString &language = u"C.UTF-8"_s,
            const std::optional<QByteArray> &typed = std::nullopt,
            const QString &workingDirectory = {},
            const std::function<void()> &whileAsking = {}) const
    {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const QString &name : {u"LANGUAGE"_s, u"LC_ALL"_s, u"LC_MESSAGES"_s})
            env.remove(name);
        env.insert(u"LANG"_s, language);
        env.insert(u"HOME"_s, m_path);
        process.setProcessEnvironment(env);
        process.setWorkingDirectory(workingDirectory.isEmpty() ? m_path : workingDirectory);
        std::optional<Pty> pty;
        if (typed) {
            pty.emplace();
            if (pty->slave < 0)
                return {};
            process.setChildProcessModifier([slave = pty->slave] { ::dup2(slave, STDIN_FILENO); });
        }
        process.start(QStringLiteral(QUORVEL_CLI_PATH), arguments);
        QByteArray err;
        if (whileAsking) { // the answer is typed only once the question is there
            QElapsedTimer clock;
            clock.start();
            while (!err.contains("[y/N]") && clock.elapsed() < 15'000) {
                process.waitForReadyRead(50);
                err += process.readAllStandardError();
            }
            whileAsking();
        }
        if (typed && ::write(pty->master, typed->constData(), size_t(typed->size())) < 0)
            return {};
        if (!process.waitForFinished(15'000))
            return {};
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(err + process.readAllStandardError())};
    }

private:
    QTemporaryDir m_dir;
    QString m_path;
};

QHash<QString, QJsonObject> itemsByPath(const QJsonObject &scan)
{
    QHash<QString, QJsonObject> result;
    for (const QJsonValue &v : scan.value(u"items"_s).toArray())
        result.insert(v[u"path"_s].toString(), v.toObject());
    return result;
}

} // namespace

class CliCleanTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void scanJson();
    void scanText_data();
    void scanText();
    void leftoversAreNotPreselected();
    void cleanMovesDefaultSelection();
    void refusedItemIsReported();
    void noTerminalMovesNothing_data();
    void noTerminalMovesNothing();
    void only_data();
    void only();
    void dryRun_data();
    void dryRun();
    void confirmOnTerminal_data();
    void confirmOnTerminal();
    void overviewJson();
    void trashEmpty();

private:
    std::unique_ptr<TestHome> m_home;
};

void CliCleanTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
}

void CliCleanTest::scanJson()
{
    Home home(m_home->path());
    home.fill();
    const Run run = home.cli({u"scan"_s, u"cleanup"_s, u"--json"_s});
    QCOMPARE(run.status, 0);
    QVERIFY2(run.err.isEmpty(), qPrintable(run.err)); // no progress into a pipe
    const QJsonObject scan = run.json();
    QCOMPARE(scan.value(u"page"_s).toString(), u"cleanup"_s);
    const QJsonArray list = scan.value(u"items"_s).toArray();
    const auto items = itemsByPath(scan);
    QCOMPARE(list.size(), 5); // each pip folder once, not again as a cache
    const QStringList candidates = home.candidates();
    QCOMPARE(QSet<QString>(items.keyBegin(), items.keyEnd()),
             QSet<QString>(candidates.begin(), candidates.end()));
    const QHash<QString, QString> category{
        {u"Library/Caches/com.example.a"_s, u"userCache"_s},
        {u"Library/Caches/pip"_s, u"ai"_s},
        {u".cache/pip"_s, u"ai"_s},
        {u"Library/Logs/x.log"_s, u"logs"_s},
    };
    for (auto it = category.begin(); it != category.end(); ++it)
        QCOMPARE(items[home.path(it.key())][u"category"_s].toString(), it.value());
    for (const QJsonObject &item : items) {
        QCOMPARE(item[u"selected"_s].toBool(false), true);
        QCOMPARE(item[u"method"_s].toString(), u"delete"_s);
        QVERIFY(item[u"bytes"_s].toInteger(-1) > 0);
    }
    QVERIFY(items[home.path(u".cache/pip"_s)][u"bytes"_s].toInteger() >= 20000);
    QCOMPARE(items[home.path(u"Library/Logs/x.log"_s)][u"title"_s].toString(), u"x.log"_s);
    QCOMPARE(items[home.path(u"Library/Logs/x.log"_s)][u"subtitle"_s].toString(),
             u"~/Library/Logs"_s);
}

void CliCleanTest::scanText_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QStringList>("headings");
    QTest::addColumn<QString>("nothing");
    QTest::newRow("en") << u"C.UTF-8"_s
                        << QStringList{u"App caches — "_s, u"Logs & crash reports — "_s,
                                       u"AI tools & models — "_s, u"Developer junk — Zero KB"_s}
                        << u"(nothing found)"_s;
    QTest::newRow("zh") << u"zh_CN.UTF-8"_s
                        << QStringList{u"应用缓存 — "_s, u"日志与崩溃报告 — "_s,
                                       u"AI 工具缓存 / 模型 — "_s, u"开发者垃圾 — 零 KB"_s}
                        << u"（未发现）"_s;
}

void CliCleanTest::scanText()
{
    QFETCH(QString, language);
    QFETCH(QStringList, headings);
    QFETCH(QString, nothing);
    Home home(m_home->path());
    home.fill();
    const Run run = home.cli({u"scan"_s, u"cleanup"_s}, language);
    QCOMPARE(run.status, 0);
    qsizetype previous = -1;
    for (const QString &heading : headings) { // in the page's order, not the scan's
        const qsizetype at = run.out.indexOf(QRegularExpression(
            u"^"_s + QRegularExpression::escape(heading), QRegularExpression::MultilineOption));
        QVERIFY2(at > previous, qPrintable(heading + u"\n"_s + run.out));
        previous = at;
    }
    QVERIFY2(
        run.out.contains(QRegularExpression(u"^  \\[x\\] +\\d+ KB  x\\.log — ~/Library/Logs$"_s,
                                            QRegularExpression::MultilineOption)),
        qPrintable(run.out));
    QCOMPARE(run.out.count(u"[x]"_s), 5);
    QVERIFY(run.out.contains(nothing));
}

void CliCleanTest::leftoversAreNotPreselected()
{
    Home home(m_home->path());
    home.file(u"Library/Containers/com.gone.App/data"_s, 9000);
    const QString gone = home.path(u"Library/Containers/com.gone.App"_s);
    const auto found = itemsByPath(home.cli({u"scan"_s, u"leftovers"_s, u"--json"_s}).json());
    QCOMPARE(found.keys(), QStringList{gone});
    QCOMPARE(found[gone][u"selected"_s].toBool(true), false);
    QCOMPARE(found[gone][u"method"_s].toString(), u"trash"_s);
    QCOMPARE(found[gone][u"category"_s].toString(), u"leftovers"_s);
    QVERIFY(home.cli({u"scan"_s, u"leftovers"_s}).out.contains(u"  [ ] "_s));

    const Run none = home.cli({u"clean"_s, u"leftovers"_s, u"--yes"_s});
    QCOMPARE(none.status, 0);
    QCOMPARE(none.out, u"Nothing to move.\n"_s);
    QVERIFY(QFileInfo::exists(gone));

    const Run chosen = home.cli({u"clean"_s, u"leftovers"_s, u"--yes"_s, u"--only"_s, gone});
    QCOMPARE(chosen.status, 0);
    QCOMPARE(home.trashed(), QStringList{u"com.gone.App"_s});
}

void CliCleanTest::cleanMovesDefaultSelection()
{
    Home home(m_home->path());
    home.fill();
    const auto found = itemsByPath(home.cli({u"scan"_s, u"cleanup"_s, u"--json"_s}).json());
    qint64 total = 0;
    for (const QJsonObject &item : found)
        total += item[u"bytes"_s].toInteger();

    const Run run = home.cli({u"clean"_s, u"cleanup"_s, u"--yes"_s, u"--json"_s});
    QCOMPARE(run.status, 0);
    const QJsonObject report = run.json();
    QCOMPARE(report[u"count"_s].toInteger(), 5);
    QCOMPARE(report[u"bytes"_s].toInteger(), total);
    QCOMPARE(report[u"failures"_s].toArray().size(), 0);
    QVERIFY(report[u"message"_s].toString().startsWith(u"Moved 5 item(s)"_s));

    for (const QString &path : home.candidates())
        QVERIFY2(!QFileInfo::exists(path), qPrintable(path));
    QCOMPARE(home.trashed().size(), 5);
    const QStringList log = home.logLines();
    QCOMPARE(log.size(), 5);
    for (const QString &path : home.candidates()) {
        const QStringList lines = log.filter(u'\t' + path + u" → "_s);
        QCOMPARE(lines.size(), 1);
        QVERIFY(QFileInfo::exists(lines.first().section(u" → "_s, 1)));
    }

    const auto after = itemsByPath(home.cli({u"scan"_s, u"cleanup"_s, u"--json"_s}).json());
    QCOMPARE(after.keys(), QStringList{home.path(u"Library/Logs/Quorvel"_s)});
    QCOMPARE(after.begin().value()[u"category"_s].toString(), u"logs"_s);
}

void CliCleanTest::refusedItemIsReported()
{
    Home home(m_home->path());
    home.file(u"Library/Caches/disk.vmdk"_s, 4000);
    home.file(u"Library/Caches/com.example.a/blob"_s, 4000);
    const Run run = home.cli({u"clean"_s, u"cleanup"_s, u"--yes"_s, u"--json"_s});
    QCOMPARE(run.status, 1);
    const QJsonObject report = run.json();
    QCOMPARE(report[u"count"_s].toInteger(), 1);
    const QJsonArray failures = report[u"failures"_s].toArray();
    QCOMPARE(failures.size(), 1);
    QCOMPARE(failures[0][u"path"_s].toString(), home.path(u"Library/Caches/disk.vmdk"_s));
    QCOMPARE(failures[0][u"reason"_s].toString(), u"protected file type — refused"_s);
    QVERIFY(QFileInfo::exists(home.path(u"Library/Caches/disk.vmdk"_s)));
    QCOMPARE(home.logLines().size(), 1);
}

void CliCleanTest::noTerminalMovesNothing_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("clean") << u"C.UTF-8"_s << QStringList{u"clean"_s, u"cleanup"_s};
    QTest::newRow("clean json") << u"C.UTF-8"_s
                                << QStringList{u"clean"_s, u"cleanup"_s, u"--json"_s};
    QTest::newRow("clean zh") << u"zh_CN.UTF-8"_s << QStringList{u"clean"_s, u"cleanup"_s};
    QTest::newRow("trash") << u"C.UTF-8"_s << QStringList{u"trash"_s, u"--empty"_s};
}

void CliCleanTest::noTerminalMovesNothing()
{
    QFETCH(QString, language);
    QFETCH(QStringList, arguments);
    Home home(m_home->path());
    home.fill();
    home.file(u".local/share/Trash/files/old"_s, 100);
    const Run run = home.cli(arguments, language);
    QCOMPARE(run.status, 2);
    QVERIFY(run.out.isEmpty());
    QVERIFY2(run.err.contains(u"--yes"_s), qPrintable(run.err));
    QVERIFY(run.err.contains(language.startsWith(u"zh"_s) ? u"终端"_s : u"terminal"_s));
    for (const QString &path : home.candidates())
        QVERIFY(QFileInfo::exists(path));
    QCOMPARE(home.trashed(), QStringList{u"old"_s});
    QVERIFY(home.logLines().isEmpty());
}

void CliCleanTest::only_data()
{
    QTest::addColumn<QStringList>("given");
    QTest::addColumn<QString>("workingFolder"); // relative to the home
    QTest::addColumn<QStringList>("unknown");
    const QString b = u"Library/Caches/com.example.b"_s;
    QTest::newRow("absolute") << QStringList{b} << QString() << QStringList{};
    QTest::newRow("trailing slash") << QStringList{b + u'/'} << QString() << QStringList{};
    QTest::newRow("relative") << QStringList{u"com.example.b"_s} << u"Library/Caches"_s
                              << QStringList{};
    QTest::newRow("one unknown") << QStringList{b, u"Library/Caches/nope"_s} << QString()
                                 << QStringList{u"Library/Caches/nope"_s};
    QTest::newRow("inside an item")
        << QStringList{b + u"/blob"_s} << QString() << QStringList{b + u"/blob"_s};
}

void CliCleanTest::only()
{
    QFETCH(QStringList, given);
    QFETCH(QString, workingFolder);
    QFETCH(QStringList, unknown);
    Home home(m_home->path());
    home.fill();
    QStringList arguments{u"clean"_s, u"cleanup"_s, u"--yes"_s, u"--only"_s};
    for (const QString &path : given) // relative to the home unless run from a folder
        arguments.append(workingFolder.isEmpty() ? home.path(path) : path);
    const Run run = home.cli(arguments, u"C.UTF-8"_s, std::nullopt,
                             workingFolder.isEmpty() ? QString() : home.path(workingFolder));
    const QString b = home.path(u"Library/Caches/com.example.b"_s);
    if (!unknown.isEmpty()) {
        QCOMPARE(run.status, 2);
        for (const QString &path : unknown)
            QVERIFY2(run.err.contains(u"not among the items found: "_s + home.path(path)),
                     qPrintable(run.err));
        QVERIFY(!run.err.contains(b + u'\n'));
        QVERIFY(QFileInfo::exists(b));
        QVERIFY(home.trashed().isEmpty());
        return;
    }
    QCOMPARE(run.status, 0);
    QVERIFY2(run.out.contains(u"Moved 1 item(s)"_s), qPrintable(run.out));
    QVERIFY(!QFileInfo::exists(b));
    for (const QString &path : home.candidates())
        QCOMPARE(QFileInfo::exists(path), path != b);
    QCOMPARE(home.trashed(), QStringList{u"com.example.b"_s});
    QCOMPARE(home.logLines().size(), 1);
}

void CliCleanTest::dryRun_data()
{
    QTest::addColumn<QStringList>("extra");
    QTest::newRow("text") << QStringList{};
    QTest::newRow("json") << QStringList{u"--json"_s};
    QTest::newRow("with --yes") << QStringList{u"--yes"_s};
    QTest::newRow("only") << QStringList{u"--only"_s, u"Library/Logs/x.log"_s};
}

void CliCleanTest::dryRun()
{
    QFETCH(QStringList, extra);
    Home home(m_home->path());
    home.fill();
    const bool only = extra.contains(u"--only"_s);
    if (only)
        extra.last() = home.path(extra.last());
    const Run run = home.cli(QStringList{u"clean"_s, u"cleanup"_s, u"--dry-run"_s} + extra);
    QCOMPARE(run.status, 0);
    if (extra.contains(u"--json"_s)) {
        QCOMPARE(run.json()[u"dryRun"_s].toBool(), true);
        QCOMPARE(run.json()[u"count"_s].toInteger(), 5);
        QCOMPARE(run.json()[u"taken"_s].toArray().size(), 5);
    } else {
        QVERIFY2(run.out.contains(u"Total: "_s + (only ? u"1 item(s)"_s : u"5 item(s)"_s)),
                 qPrintable(run.out));
        QVERIFY(run.out.contains(u"nothing was moved"_s));
    }
    for (const QString &path : home.candidates())
        QVERIFY(QFileInfo::exists(path));
    QVERIFY(home.trashed().isEmpty());
    QVERIFY(home.logLines().isEmpty());
}

void CliCleanTest::confirmOnTerminal_data()
{
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<bool>("moves");
    QTest::newRow("y") << QByteArray("y\n") << true;
    QTest::newRow("YES") << QByteArray("YES\n") << true;
    QTest::newRow("n") << QByteArray("n\n") << false;
    QTest::newRow("just return") << QByteArray("\n") << false;
    QTest::newRow("anything else") << QByteArray("sure\n") << false;
    QTest::newRow("end of input (^D)") << QByteArray("\x04") << false;
}

void CliCleanTest::confirmOnTerminal()
{
    QFETCH(QByteArray, typed);
    QFETCH(bool, moves);
    Home home(m_home->path());
    home.fill();
    const Run run = home.cli({u"clean"_s, u"cleanup"_s}, u"C.UTF-8"_s, typed);
    QCOMPARE(run.status, moves ? 0 : 1);
    QVERIFY2(run.err.contains(u"Move 5 item(s), "_s) && run.err.contains(u"[y/N]"_s),
             qPrintable(run.err));
    QVERIFY(run.out.contains(u"Total: 5 item(s)"_s));
    QCOMPARE(home.trashed().size(), moves ? 5 : 0);
    QCOMPARE(home.logLines().size(), moves ? 5 : 0);
    QVERIFY(run.out.contains(moves ? u"Moved 5 item(s)"_s : u"Nothing was moved."_s));
}

void CliCleanTest::overviewJson()
{
    Home home(m_home->path());
    home.file(u"Documents/report.bin"_s, 40000);
    home.file(u".local/share/Trash/files/a"_s, 5000);
    home.file(u".local/share/Trash/files/b/c"_s, 5000);
    const Run run = home.cli({u"overview"_s, u"--json"_s});
    QCOMPARE(run.status, 0);
    const QJsonArray categories = run.json()[u"categories"_s].toArray();
    QStringList ids;
    for (const QJsonValue &c : categories) {
        ids.append(c[u"id"_s].toString());
        QVERIFY(!c[u"name"_s].toString().isEmpty());
        QVERIFY(c[u"bytes"_s].toInteger(-1) >= 0);
    }
    QCOMPARE(ids, (QStringList{u"documents"_s, u"applications"_s, u"desktop"_s, u"downloads"_s,
                               u"other"_s, u"free"_s}));
    QVERIFY(categories[0][u"bytes"_s].toInteger() >= 40000);
    QCOMPARE(categories[2][u"bytes"_s].toInteger(), 0); // no Desktop folder
    const QJsonObject trash = run.json()[u"trash"_s].toObject();
    QCOMPARE(trash[u"count"_s].toInteger(), 2);
    QVERIFY(trash[u"bytes"_s].toInteger() >= 10000);

    const Run zh = home.cli({u"overview"_s}, u"zh_CN.UTF-8"_s);
    QCOMPARE(zh.status, 0);
    QVERIFY2(zh.out.startsWith(u"磁盘\n  文稿"_s), qPrintable(zh.out));
    QVERIFY(zh.out.contains(u"废纸篓 — 2 项，"_s));
}

void CliCleanTest::trashEmpty()
{
    Home home(m_home->path());
    home.fill();
    const Run never = home.cli({u"trash"_s, u"--json"_s});
    QCOMPARE(never.json()[u"count"_s].toInteger(-1), 0); // no Trash yet reads as empty
    QCOMPARE(home.cli({u"clean"_s, u"cleanup"_s, u"--yes"_s}).status, 0);

    const Run before = home.cli({u"trash"_s, u"--json"_s});
    QCOMPARE(before.status, 0);
    QCOMPARE(before.json()[u"count"_s].toInteger(), 5);
    QVERIFY(before.json()[u"message"_s].isNull());

    const Run emptied = home.cli({u"trash"_s, u"--empty"_s, u"--yes"_s});
    QVERIFY2(emptied.status == 0, qPrintable(emptied.out + emptied.err));
    QVERIFY(emptied.out.startsWith(u"Trash — 5 item(s), "_s));
    QVERIFY(emptied.out.contains(u"\nTrash emptied.\nTrash — 0 item(s), Zero KB\n"_s));

    const Run after = home.cli({u"trash"_s, u"--json"_s});
    QCOMPARE(after.json()[u"bytes"_s].toInteger(-1), 0);
    QCOMPARE(after.json()[u"count"_s].toInteger(-1), 0);
    QVERIFY(home.trashed().isEmpty());
    QCOMPARE(home.logLines().size(), 5); // emptying the Trash is not a clean-up move

    // What arrives while the question waits was not agreed to: it stays, and is named.
    QCOMPARE(home.cli({u"clean"_s, u"cleanup"_s, u"--yes"_s}).status, 0);
    const Run late =
        home.cli({u"trash"_s, u"--empty"_s, u"--json"_s}, u"C.UTF-8"_s, QByteArray("y\n"), {},
                 [&] { home.file(u".local/share/Trash/files/late.txt"_s, 10); });
    QCOMPARE(late.status, 0);
    QCOMPARE(late.json()[u"code"_s].toString(), u"emptied"_s);
    QCOMPARE(late.json()[u"kept"_s].toInteger(), 1);
    QVERIFY(late.json()[u"message"_s].toString().contains(u"1 item(s) added after"_s));
    QCOMPARE(home.trashed(), QStringList{u"late.txt"_s});
}

QTEST_GUILESS_MAIN(CliCleanTest)
#include "tst_cli_clean.moc"

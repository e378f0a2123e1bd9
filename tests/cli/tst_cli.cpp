#include "common/TestHome.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

struct Run
{
    int status = -1;
    QString out;
    QString err;
};

Run cli(const QStringList &arguments, const QString &language = u"C.UTF-8"_s)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(u"LANGUAGE"_s);
    env.remove(u"LC_ALL"_s);
    env.remove(u"LC_MESSAGES"_s);
    env.insert(u"LANG"_s, language);
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(QUORVEL_CLI_PATH), arguments);
    if (!process.waitForFinished(30'000))
        return {};
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

} // namespace

class CliTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void helpAndVersion_data();
    void helpAndVersion();
    void usageErrors_data();
    void usageErrors();
    void checkText();
    void checkJson();
    void everyCategoryIsValid();
    void chinese();

private:
    std::unique_ptr<TestHome> m_home;
};

void CliTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
}

void CliTest::helpAndVersion_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("expected");
    QTest::newRow("no arguments") << QStringList{} << u"\n  check "_s;
    QTest::newRow("--help") << QStringList{u"--help"_s} << u"\n  check "_s;
    QTest::newRow("--version") << QStringList{u"--version"_s} << u"quorvel-cli 0."_s;
    QTest::newRow("check --help") << QStringList{u"check"_s, u"--help"_s}
                                  << u"usage: quorvel-cli check --category"_s;
    QTest::newRow("help lists scan") << QStringList{u"--help"_s} << u"\n  scan "_s;
    QTest::newRow("scan --help") << QStringList{u"scan"_s, u"--help"_s}
                                 << u"usage: quorvel-cli scan PAGE"_s;
    QTest::newRow("clean -h") << QStringList{u"clean"_s, u"-h"_s}
                              << u"usage: quorvel-cli clean PAGE"_s;
    QTest::newRow("overview --help")
        << QStringList{u"overview"_s, u"--help"_s} << u"usage: quorvel-cli overview"_s;
    QTest::newRow("trash --help") << QStringList{u"trash"_s, u"--empty"_s, u"--help"_s}
                                  << u"usage: quorvel-cli trash"_s;
}

void CliTest::helpAndVersion()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, expected);
    const Run run = cli(arguments);
    QCOMPARE(run.status, 0);
    QVERIFY2(run.out.contains(expected), qPrintable(run.out));
    QVERIFY(run.err.isEmpty());
}

void CliTest::usageErrors_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("complaint");
    QTest::newRow("unknown command") << QStringList{u"frobnicate"_s} << u"unknown command"_s;
    QTest::newRow("no category") << QStringList{u"check"_s, u"/x"_s} << u"--category"_s;
    QTest::newRow("category without value")
        << QStringList{u"check"_s, u"/x"_s, u"--category"_s} << u"needs a value"_s;
    QTest::newRow("unknown category")
        << QStringList{u"check"_s, u"--category"_s, u"LargeFiles"_s, u"/x"_s}
        << u"unknown category LargeFiles"_s;
    QTest::newRow("category value that looks like an option")
        << QStringList{u"check"_s, u"--category"_s, u"--json"_s, u"/x"_s}
        << u"unknown category --json"_s;
    QTest::newRow("no path") << QStringList{u"check"_s, u"--category"_s, u"logs"_s} << u"no path"_s;
    QTest::newRow("unknown option")
        << QStringList{u"check"_s, u"--category"_s, u"logs"_s, u"--jsn"_s, u"/x"_s}
        << u"unknown option --jsn"_s;
    QTest::newRow("overview is no clean-up page")
        << QStringList{u"scan"_s, u"overview"_s} << u"unknown page overview"_s;
    QTest::newRow("page in the wrong case")
        << QStringList{u"clean"_s, u"Cleanup"_s, u"--yes"_s} << u"unknown page Cleanup"_s;
    QTest::newRow("no page") << QStringList{u"scan"_s, u"--json"_s} << u"exactly one PAGE"_s;
    QTest::newRow("two pages") << QStringList{u"clean"_s, u"cleanup"_s, u"leftovers"_s}
                               << u"exactly one PAGE"_s;
    QTest::newRow("clean option on scan")
        << QStringList{u"scan"_s, u"cleanup"_s, u"--yes"_s} << u"unknown option --yes"_s;
    QTest::newRow("--only without a path")
        << QStringList{u"clean"_s, u"cleanup"_s, u"--yes"_s, u"--only"_s} << u"--only needs"_s;
    QTest::newRow("overview argument")
        << QStringList{u"overview"_s, u"x"_s} << u"unexpected argument x"_s;
    QTest::newRow("trash option") << QStringList{u"trash"_s, u"--emtpy"_s}
                                  << u"unknown option --emtpy"_s;
}

void CliTest::usageErrors()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, complaint);
    const Run run = cli(arguments);
    QCOMPARE(run.status, 2);
    QVERIFY(run.out.isEmpty());
    QVERIFY2(run.err.contains(complaint), qPrintable(run.err));
    QVERIFY(run.err.contains(u"usage:"_s));
}

void CliTest::checkText()
{
    const QString cache = m_home->path() + u"/Library/Caches/../Caches/com.x/"_s;
    const QString mail = m_home->path() + u"/Library/Caches/../Mail/x"_s;
    const Run run = cli(
        {u"check"_s, u"--category"_s, u"userCache"_s, cache, mail, u"-"_s, u"--"_s, u"--odd"_s});
    QCOMPARE(run.status, 1);
    // Arguments are echoed exactly as given, one line each, in order.
    QCOMPARE(run.out, cache + u"\tallowed\n"_s + mail +
                          u"\trefused\tprotected location — refused\n"_s +
                          u"-\trefused\toutside your home folder — refused\n"_s +
                          u"--odd\trefused\toutside your home folder — refused\n"_s);

    const Run allowed = cli({u"check"_s, u"--category=userCache"_s, cache});
    QCOMPARE(allowed.status, 0);
    QCOMPARE(allowed.out, cache + u"\tallowed\n"_s);

    // A name cannot add a line or a field of its own.
    const QString forged = m_home->path() + u"/Library/Caches/a\nb\tallowed"_s;
    const Run escaped = cli({u"check"_s, u"--category=userCache"_s, forged});
    QCOMPARE(escaped.out, m_home->path() + u"/Library/Caches/a\\nb\\tallowed\tallowed\n"_s);
}

void CliTest::checkJson()
{
    const QString big = m_home->path() + u"/Movies/film.mov"_s;
    const QString vm = m_home->path() + u"/Disk.VMDK"_s;
    const Run run = cli({u"check"_s, u"--json"_s, u"--category"_s, u"largeFiles"_s, big, vm});
    QCOMPARE(run.status, 1);
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(run.out.toUtf8(), &error);
    QCOMPARE(error.error, QJsonParseError::NoError);
    const QJsonArray answers = doc.array();
    QCOMPARE(answers.size(), 2);
    QCOMPARE(answers[0].toObject().value(u"path"_s).toString(), big);
    QCOMPARE(answers[0].toObject().value(u"allowed"_s).toBool(), true);
    QVERIFY(answers[0].toObject().value(u"reason"_s).isNull());
    QCOMPARE(answers[1].toObject().value(u"allowed"_s).toBool(), false);
    QCOMPARE(answers[1].toObject().value(u"reason"_s).toString(),
             u"protected file type — refused"_s);
}

void CliTest::everyCategoryIsValid()
{
    for (const char *raw :
         {"userCache", "logs", "ai", "developer", "leftovers", "largeFiles", "unusedApps"}) {
        const Run run = cli({u"check"_s, u"--category"_s, QString::fromLatin1(raw), u"/etc"_s});
        QVERIFY2(run.status == 1, raw);
        QVERIFY2(run.out.startsWith(u"/etc\trefused\t"_s), qPrintable(run.out));
    }
}

void CliTest::chinese()
{
    const Run run =
        cli({u"check"_s, u"--category"_s, u"logs"_s, u"/etc/hosts"_s}, u"zh_CN.UTF-8"_s);
    QCOMPARE(run.status, 1);
    QCOMPARE(run.out, u"/etc/hosts\trefused\t不在个人文件夹内，拒绝\n"_s);

    const Run usage = cli({u"check"_s, u"/etc/hosts"_s}, u"zh_CN.UTF-8"_s);
    QCOMPARE(usage.status, 2);
    QVERIFY2(usage.err.startsWith(u"quorvel-cli check: 必须给出 --category\n用法："_s),
             qPrintable(usage.err));
}

QTEST_GUILESS_MAIN(CliTest)
#include "tst_cli.moc"

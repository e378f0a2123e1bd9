#include "common/TestHome.h"

#include "core/health/SystemStats.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

struct Run
{
    int status = -1;
    QString out;
    QString err;
};

QProcessEnvironment environment(const QString &home, const QString &language)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const QString &name : {u"LANGUAGE"_s, u"LC_ALL"_s, u"LC_MESSAGES"_s})
        env.remove(name);
    env.insert(u"LANG"_s, language);
    env.insert(u"HOME"_s, home);
    return env;
}

Run cli(const QString &home, const QStringList &arguments, const QString &language = u"C.UTF-8"_s)
{
    QProcess process;
    process.setProcessEnvironment(environment(home, language));
    process.start(QStringLiteral(QUORVEL_CLI_PATH), QStringList{u"health"_s} + arguments);
    if (!process.waitForFinished(15'000))
        return {};
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

// The value at a "disk.total"-style path, or undefined.
QJsonValue at(const QJsonObject &root, const QString &path)
{
    QJsonValue value = root;
    for (const QString &key : path.split(u'.'))
        value = value.toObject().value(key);
    return value;
}

} // namespace

class CliHealthTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void jsonKeys_data();
    void jsonKeys();
    void jsonFigures();
    void text_data();
    void text();
    void watch_data();
    void watch();
    void badUsage_data();
    void badUsage();

private:
    std::unique_ptr<TestHome> m_home;
    QJsonObject m_json; // one run shared by the JSON checks: each run takes a second
};

void CliHealthTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    const Run run = cli(m_home->path(), {u"--json"_s});
    QCOMPARE(run.status, 0);
    QVERIFY2(run.err.isEmpty(), qPrintable(run.err));
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(run.out.toUtf8(), &error);
    QVERIFY2(error.error == QJsonParseError::NoError && document.isObject(), qPrintable(run.out));
    m_json = document.object();
}

void CliHealthTest::jsonKeys_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QJsonValue::Type>("type");
    const auto row = [](const QString &path, QJsonValue::Type type) {
        QTest::newRow(qPrintable(path)) << path << type;
    };
    for (const QString &path : {u"cpuLoad"_s, u"memoryUsed"_s, u"memoryTotal"_s, u"disk.total"_s,
                                u"disk.free"_s, u"battery.percent"_s, u"netUp"_s, u"netDown"_s})
        row(path, QJsonValue::Double);
    for (const QString &path : {u"grade"_s, u"memoryPressure"_s, u"primaryInterface"_s})
        row(path, QJsonValue::String);
    for (const QString &path : {u"battery.present"_s, u"battery.charging"_s, u"battery.onAC"_s})
        row(path, QJsonValue::Bool);
}

void CliHealthTest::jsonKeys()
{
    QFETCH(QString, path);
    QFETCH(QJsonValue::Type, type);
    QCOMPARE(at(m_json, path).type(), type);
}

void CliHealthTest::jsonFigures()
{
    QCOMPARE(m_json.keys(), QStringList({u"battery"_s, u"cpuLoad"_s, u"disk"_s, u"grade"_s,
                                         u"memoryPressure"_s, u"memoryTotal"_s, u"memoryUsed"_s,
                                         u"netDown"_s, u"netUp"_s, u"primaryInterface"_s}));
    QVERIFY(QStringList({u"good"_s, u"fair"_s, u"poor"_s}).contains(m_json[u"grade"_s].toString()));
    const QString pressure = m_json[u"memoryPressure"_s].toString();
    QVERIFY2(QStringList({u"normal"_s, u"warning"_s, u"critical"_s}).contains(pressure),
             qPrintable(pressure));
    const double load = m_json[u"cpuLoad"_s].toDouble(-1);
    QVERIFY2(load >= 0 && load <= 100, qPrintable(QString::number(load)));
    const qint64 total = at(m_json, u"disk.total"_s).toInteger();
    const qint64 free = at(m_json, u"disk.free"_s).toInteger();
    QVERIFY(total > 0 && free >= 0 && free <= total); // "/" is always there to measure
    QVERIFY(m_json[u"memoryTotal"_s].toInteger() > 0);
    QVERIFY(m_json[u"memoryUsed"_s].toInteger() <= m_json[u"memoryTotal"_s].toInteger());
    QVERIFY(m_json[u"netUp"_s].toDouble(-1) >= 0 && m_json[u"netDown"_s].toDouble(-1) >= 0);
    // The grade belongs to the figures printed beside it.
    const auto level =
        pressure == u"critical"
            ? MemoryPressureLevel::critical
            : (pressure == u"warning" ? MemoryPressureLevel::warning : MemoryPressureLevel::normal);
    QCOMPARE(m_json[u"grade"_s].toString(),
             caseName(SystemStats::gradeFor(load, level, DiskUsage{total, free})));
}

void CliHealthTest::text_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("heading");
    QTest::addColumn<QStringList>("titles"); // the last is the battery's or the power tile's
    QTest::addColumn<QString>("network");
    QTest::newRow("en") << u"C.UTF-8"_s << u"^Mac Health: (Good|Fair|Poor)$"_s
                        << QStringList{u"CPU"_s, u"Memory"_s, u"Macintosh HD"_s,
                                       u"(Battery|Power)"_s}
                        << u"^Network( · \\S+)?   ↑ \\d+(\\.\\d)? [KM]?B/s   ↓ "_s;
    QTest::newRow("zh") << u"zh_CN.UTF-8"_s << u"^Mac 健康：(良好|一般|需处理)$"_s
                        << QStringList{u"CPU"_s, u"内存"_s, u"磁盘"_s, u"(电池|电源)"_s}
                        << u"^网络( · \\S+)?   ↑ \\d+(\\.\\d)? [KM]?B/s   ↓ "_s;
}

void CliHealthTest::text()
{
    QFETCH(QString, language);
    QFETCH(QString, heading);
    QFETCH(QStringList, titles);
    QFETCH(QString, network);
    const Run run = cli(m_home->path(), {}, language);
    QCOMPARE(run.status, 0);
    const auto lines = QRegularExpression::MultilineOption;
    QVERIFY2(run.out.contains(QRegularExpression(heading, lines)), qPrintable(run.out));
    qsizetype previous = -1;
    for (const QString &title : titles) { // one line per tile, in the panel's order
        const QRegularExpressionMatch match =
            QRegularExpression(u"^[ !] "_s + title + u" .*\\[[#-]{10}\\]  \\S"_s, lines)
                .match(run.out);
        QVERIFY2(match.hasMatch() && match.capturedStart() > previous,
                 qPrintable(title + u'\n' + run.out));
        previous = match.capturedStart();
    }
    QVERIFY2(run.out.contains(QRegularExpression(network, lines)), qPrintable(run.out));
}

void CliHealthTest::watch_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("frameMark");
    QTest::newRow("text") << QStringList{u"--watch"_s} << u"Mac Health:"_s;
    QTest::newRow("json") << QStringList{u"--watch"_s, u"--json"_s} << u"\"grade\""_s;
}

void CliHealthTest::watch()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, frameMark);
    QProcess process;
    process.setProcessEnvironment(environment(m_home->path(), u"C.UTF-8"_s));
    QString out;
    connect(&process, &QProcess::readyReadStandardOutput, this,
            [&] { out += QString::fromUtf8(process.readAllStandardOutput()); });
    process.start(QStringLiteral(QUORVEL_CLI_PATH), QStringList{u"health"_s} + arguments);
    QVERIFY(process.waitForStarted());
    // Frames at about 1 s and 3 s; the first must not be the last.
    QTRY_VERIFY2_WITH_TIMEOUT(out.count(frameMark) >= 2, qPrintable(out), 6000);
    QCOMPARE(process.state(), QProcess::Running);
    process.terminate();
    QVERIFY(process.waitForFinished(3000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    out += QString::fromUtf8(process.readAllStandardOutput());
    QVERIFY(!out.contains(u"\x1b["_s)); // never clears a screen that is not a terminal
    if (arguments.contains(u"--json"_s)) {
        for (const QString &line : out.split(u'\n', Qt::SkipEmptyParts))
            QVERIFY2(QJsonDocument::fromJson(line.toUtf8()).isObject(), qPrintable(line));
    }
}

void CliHealthTest::badUsage_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("expected"); // in standard output for 0, else in standard error
    QTest::newRow("help") << QStringList{u"--help"_s} << 0
                          << u"usage: quorvel-cli health [--json] [--watch]"_s;
    QTest::newRow("unknown option") << QStringList{u"--fast"_s} << 2 << u"unknown option --fast"_s;
    QTest::newRow("extra argument") << QStringList{u"now"_s} << 2 << u"unexpected argument now"_s;
}

void CliHealthTest::badUsage()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QString, expected);
    const Run run = cli(m_home->path(), arguments);
    QCOMPARE(run.status, status);
    QVERIFY2((status == 0 ? run.out : run.err).contains(expected), qPrintable(run.out + run.err));
    if (status != 0)
        QVERIFY(run.out.isEmpty());
}

QTEST_GUILESS_MAIN(CliHealthTest)
#include "tst_cli_health.moc"

#include "common/TestHome.h"

#include "core/cleanup/Cleaner.h"
#include "core/cleanup/RemovalLog.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"

#include <QRegularExpression>
#include <QtTest>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace {

void makeFile(const QString &path, int size = 10)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(size, 'x'));
}

QStringList logLines()
{
    QFile file(RemovalLog::path());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

Platform::TrashMove failed(Platform::TrashFailure failure, int code = 0, QString text = {})
{
    Platform::TrashMove move;
    move.failure = failure;
    move.errorCode = code;
    move.systemText = std::move(text);
    return move;
}

} // namespace

class CleanerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void emptyListWritesNothing();
    void refusalsInInputOrder();
    void failureReasons_data();
    void failureReasons();
    void unknownResultingPath();
    void movesToTrashAndLogs();
    void logAppendsAndNeverTruncates();
    void unwritableLogStillCountsTheMove();

private:
    CleanItem item(const QString &relative, CleanCategory category, const QString &title = {});
    std::unique_ptr<TestHome> m_home;
    QString m_logFolder;
};

CleanItem CleanerTest::item(const QString &relative, CleanCategory category, const QString &title)
{
    const QString path = m_home->file(relative);
    return {path,      title.isEmpty() ? QFileInfo(path).fileName() : title,
            QString(), 1'500'000,
            category,  CleanMethod::delete_};
}

void CleanerTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    m_logFolder = m_home->file(u"Library/Logs/Quorvel"_s);
    QCOMPARE(RemovalLog::path(), m_logFolder + u"/removals.log"_s);
}

void CleanerTest::init()
{
    L10n::overrideForTesting(false);
    QDir(m_logFolder).removeRecursively();
}

void CleanerTest::emptyListWritesNothing()
{
    const Cleaner::Result result = Cleaner::remove({});
    QCOMPARE(result.count, 0);
    QCOMPARE(result.bytes, 0);
    QVERIFY(result.failures.isEmpty());
    QVERIFY(!QFileInfo::exists(m_logFolder));
}

void CleanerTest::refusalsInInputOrder()
{
    int calls = 0;
    const auto mover = [&](const QString &, const QString &) {
        ++calls;
        return Platform::TrashMove{};
    };
    const QList<CleanItem> items{
        item(u"Documents/a.txt"_s, CleanCategory::userCache, u"Same"_s),
        CleanItem{
            u"/etc/hosts"_s, u"Hosts"_s, {}, 1, CleanCategory::largeFiles, CleanMethod::trash},
        item(u"Library/Mail/x"_s, CleanCategory::leftovers, u"Same"_s),
    };
    const Cleaner::Result result = Cleaner::remove(items, mover);
    QCOMPARE(calls, 0);
    QCOMPARE(result.count, 0);
    QCOMPARE(result.failures, (QStringList{u"Same: not in a cleanable area — refused"_s,
                                           u"Hosts: outside your home folder — refused"_s,
                                           u"Same: protected location — refused"_s}));
    QVERIFY(!QFileInfo::exists(m_logFolder));
}

void CleanerTest::failureReasons_data()
{
    QTest::addColumn<int>("failure");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("systemText");
    QTest::addColumn<bool>("zh");
    QTest::addColumn<QString>("line");
    using F = Platform::TrashFailure;
    QTest::newRow("missing") << int(F::missing) << ENOENT << QString() << false
                             << u"x: the item no longer exists"_s;
    QTest::newRow("missing zh") << int(F::missing) << ENOENT << QString() << true
                                << u"x: 项目已不存在"_s;
    QTest::newRow("permission") << int(F::permissionDenied) << EACCES << QString() << false
                                << u"x: permission denied"_s;
    QTest::newRow("no trash zh") << int(F::noTrash) << EXDEV << QString() << true
                                 << u"x: 该卷上没有废纸篓"_s;
    QTest::newRow("too long") << int(F::nameTooLong) << ENAMETOOLONG << QString() << false
                              << u"x: name too long"_s;
    QTest::newRow("system text wins")
        << int(F::permissionDenied) << 0 << u"Nope."_s << false << u"x: Nope."_s;
    QTest::newRow("other errno") << int(F::other) << EIO << QString() << false
                                 << u"x: "_s + qt_error_string(EIO);
}

void CleanerTest::failureReasons()
{
    QFETCH(int, failure);
    QFETCH(int, code);
    QFETCH(QString, systemText);
    QFETCH(bool, zh);
    QFETCH(QString, line);
    L10n::overrideForTesting(zh);
    const auto mover = [&](const QString &, const QString &) {
        return failed(Platform::TrashFailure(failure), code, systemText);
    };
    const auto result =
        Cleaner::remove({item(u"Library/Caches/x"_s, CleanCategory::userCache)}, mover);
    QCOMPARE(result.count, 0);
    QCOMPARE(result.bytes, 0);
    QCOMPARE(result.failures, QStringList{line});
    QVERIFY(!QFileInfo::exists(m_logFolder));
}

void CleanerTest::unknownResultingPath()
{
    const auto mover = [](const QString &, const QString &) {
        Platform::TrashMove move;
        move.moved = true;
        return move;
    };
    const CleanItem it = item(u"Library/Caches/x/"_s, CleanCategory::userCache);
    const auto result = Cleaner::remove({it}, mover);
    QCOMPARE(result.count, 1);
    const QStringList lines = logLines();
    QCOMPARE(lines.size(), 1);
    // The path is logged as the item holds it, trailing slash and all.
    QVERIFY2(lines.first().endsWith(u'\t' + it.path + u" → Trash"_s), qPrintable(lines.first()));
}

void CleanerTest::movesToTrashAndLogs()
{
    // No ~/.local/share: the Trash must still be made inside the home folder.
    QDir(m_home->file(u".local"_s)).removeRecursively();
    makeFile(m_home->file(u"Library/Caches/com.a/data.bin"_s));
    makeFile(m_home->file(u"Library/Caches/com.b/data.bin"_s));
    makeFile(m_home->file(u"Library/Logs/app.log"_s));
    QList<CleanItem> items{
        item(u"Library/Caches/com.a"_s, CleanCategory::userCache),
        item(u"Library/Caches/com.b/data.bin"_s, CleanCategory::userCache, u"data"_s),
        item(u"Library/Caches/com.gone"_s, CleanCategory::userCache, u"gone"_s),
        item(u"Library/Logs/app.log"_s, CleanCategory::logs),
    };
    items[3].bytes = 2'000'000;

    const auto result = Cleaner::remove(items);
    QCOMPARE(result.count, 3);
    QCOMPARE(result.bytes, 1'500'000 * 2 + 2'000'000);
    QCOMPARE(result.failures, QStringList{u"gone: the item no longer exists"_s});
    QVERIFY(!QFileInfo::exists(items[0].path));
    QVERIFY(!QFileInfo::exists(items[1].path));

    const QStringList lines = logLines();
    QCOMPARE(lines.size(), 3);
    static const QRegularExpression layout(
        u"^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ\\t(\\w+)\\t([^\\t]+)\\t(.+) → (.+)$"_s);
    const QString trashFiles = m_home->file(u".local/share/Trash/files/"_s);
    const int moved[] = {0, 1, 3};
    for (int i = 0; i < 3; ++i) {
        const auto match = layout.match(lines[i]);
        QVERIFY2(match.hasMatch(), qPrintable(lines[i]));
        const CleanItem &it = items[moved[i]];
        QCOMPARE(match.captured(1), rawValue(it.category));
        QCOMPARE(match.captured(2), Fmt::bytes(it.bytes));
        QCOMPARE(match.captured(3), it.path);
        QVERIFY2(match.captured(4).startsWith(trashFiles), qPrintable(match.captured(4)));
        QVERIFY(QFileInfo::exists(match.captured(4)));
    }
    // The time stamp is now, in UTC.
    const auto stamp = QDateTime::fromString(lines[0].section(u'\t', 0, 0), Qt::ISODate);
    QVERIFY(qAbs(stamp.secsTo(QDateTime::currentDateTimeUtc())) < 60);
    QVERIFY(QFileInfo::exists(m_home->file(u".local/share/Trash/files/com.a/data.bin"_s)));
}

void CleanerTest::logAppendsAndNeverTruncates()
{
    QVERIFY(QDir().mkpath(m_logFolder));
    {
        QFile file(RemovalLog::path());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("earlier entry\n");
    }
    QVERIFY(!RemovalLog::append({u"userCache"_s, u"1 KB"_s, u"/a → /b"_s}));
    QVERIFY(!RemovalLog::append({u"logs"_s, u"2 KB"_s, u"/c → Trash"_s}));
    const QStringList lines = logLines();
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines[0], u"earlier entry"_s);
    QVERIFY(lines[1].endsWith(u"Z\tuserCache\t1 KB\t/a → /b"_s));
    QVERIFY(lines[2].endsWith(u"Z\tlogs\t2 KB\t/c → Trash"_s));
}

void CleanerTest::unwritableLogStillCountsTheMove()
{
    // A folder where the log file should be: nothing can be appended, nothing replaced.
    QVERIFY(QDir().mkpath(RemovalLog::path()));
    makeFile(RemovalLog::path() + u"/keep"_s);
    makeFile(m_home->file(u"Library/Caches/com.c"_s));
    const auto result =
        Cleaner::remove({item(u"Library/Caches/com.c"_s, CleanCategory::userCache)});
    QCOMPARE(result.count, 1);
    QVERIFY(result.failures.isEmpty());
    QVERIFY(QFileInfo(RemovalLog::path()).isDir());
    QVERIFY(QFileInfo::exists(RemovalLog::path() + u"/keep"_s));
}

QTEST_GUILESS_MAIN(CleanerTest)
#include "tst_cleaner.moc"

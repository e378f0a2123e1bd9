#include "common/TestHome.h"
#include "support/FakeSystem.h"

#include "core/cleanup/Cleaner.h"
#include "core/cleanup/RemovalLog.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/words/CleanupWords.h"

#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QtTest>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

void makeFile(const QString &path, int size = 10)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(size, 'x'));
}

// A link goes as itself; removeRecursively would empty what it points to.
void removeEntry(const QString &path)
{
    if (!QFile::remove(path))
        QDir(path).removeRecursively();
}

QStringList logLines(const Locations &where)
{
    QFile file(where.removalLog());
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
    void linkedFolders_data();
    void linkedFolders();
    void swappedFolderRace_data();
    void swappedFolderRace();
    void hostileLog_data();
    void hostileLog();
    void namesStayOnOneLine();

private:
    CleanItem item(const QString &relative, CleanCategory category, const QString &title = {});
    // The machine as it is under the temporary home, or with the Trash move scripted.
    const System &real()
    {
        m_system = std::make_unique<FakeSystem>(m_home->where());
        return *m_system;
    }
    template <typename Mover> const System &scripted(Mover mover)
    {
        real();
        m_system->move = mover;
        return *m_system;
    }

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<FakeSystem> m_system;
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
    QCOMPARE(m_home->where().removalLog(), m_logFolder + u"/removals.log"_s);
}

void CleanerTest::init()
{
    L10n::overrideForTesting(false);
    removeEntry(m_logFolder);
}

void CleanerTest::emptyListWritesNothing()
{
    const Cleaner::Result result = Cleaner::remove({}, real());
    QCOMPARE(result.count, 0);
    QCOMPARE(result.bytes, 0);
    QVERIFY(Words::failureLines(result).isEmpty());
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
    const Cleaner::Result result = Cleaner::remove(items, scripted(mover));
    QCOMPARE(calls, 0);
    QCOMPARE(result.count, 0);
    QCOMPARE(Words::failureLines(result),
             (QStringList{u"Same: not in a cleanable area — refused"_s,
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
        Cleaner::remove({item(u"Library/Caches/x"_s, CleanCategory::userCache)}, scripted(mover));
    QCOMPARE(result.count, 0);
    QCOMPARE(result.bytes, 0);
    QCOMPARE(Words::failureLines(result), QStringList{line});
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
    const auto result = Cleaner::remove({it}, scripted(mover));
    QCOMPARE(result.count, 1);
    const QStringList lines = logLines(m_home->where());
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

    const auto result = Cleaner::remove(items, real());
    QCOMPARE(result.count, 3);
    QCOMPARE(result.bytes, 1'500'000 * 2 + 2'000'000);
    QCOMPARE(Words::failureLines(result), QStringList{u"gone: the item no longer exists"_s});
    QVERIFY(!QFileInfo::exists(items[0].path));
    QVERIFY(!QFileInfo::exists(items[1].path));

    const QStringList lines = logLines(m_home->where());
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
        QFile file(m_home->where().removalLog());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("earlier entry\n");
    }
    QVERIFY(!RemovalLog::append({u"userCache"_s, u"1 KB"_s, u"/a → /b"_s}, m_home->where()));
    QVERIFY(!RemovalLog::append({u"logs"_s, u"2 KB"_s, u"/c → Trash"_s}, m_home->where()));
    const QStringList lines = logLines(m_home->where());
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines[0], u"earlier entry"_s);
    QVERIFY(lines[1].endsWith(u"Z\tuserCache\t1 KB\t/a → /b"_s));
    QVERIFY(lines[2].endsWith(u"Z\tlogs\t2 KB\t/c → Trash"_s));
}

void CleanerTest::unwritableLogStillCountsTheMove()
{
    // A folder where the log file should be: nothing can be appended, nothing replaced.
    QVERIFY(QDir().mkpath(m_home->where().removalLog()));
    makeFile(m_home->where().removalLog() + u"/keep"_s);
    makeFile(m_home->file(u"Library/Caches/com.c"_s));
    const auto result =
        Cleaner::remove({item(u"Library/Caches/com.c"_s, CleanCategory::userCache)}, real());
    QCOMPARE(result.count, 1);
    QVERIFY(Words::failureLines(result).isEmpty());
    QVERIFY(result.items.value(0).logFailure.has_value());
    QVERIFY(Words::unloggedLine(result).has_value());
    QVERIFY(QFileInfo(m_home->where().removalLog()).isDir());
    QVERIFY(QFileInfo::exists(m_home->where().removalLog() + u"/keep"_s));
}

// Folders on the way that are links: the guard refuses before anything moves, and what
// the link points at stays. The item itself may be a link; it moves as one.
void CleanerTest::linkedFolders_data()
{
    QTest::addColumn<QString>("link");   // below home
    QTest::addColumn<QString>("target"); // relative to the link's folder
    QTest::addColumn<QString>("item");   // below home
    QTest::addColumn<int>("category");
    QTest::addColumn<bool>("moves");
    const auto cache = int(CleanCategory::userCache);
    QTest::newRow("caches link to home")
        << u"Library/Caches"_s << u".."_s << u"Library/Caches/Documents"_s << cache << false;
    QTest::newRow("caches link into mail")
        << u"Library/Caches"_s << u"Mail"_s << u"Library/Caches/inbox"_s << cache << false;
    QTest::newRow("library is a link")
        << u"Library"_s << u"Documents"_s << u"Library/Caches/x"_s << cache << false;
    QTest::newRow("large file behind a link") << u"Movies"_s << u"Documents"_s << u"Movies/x"_s
                                              << int(CleanCategory::largeFiles) << false;
    QTest::newRow("the item is a link")
        << u"Library/Caches/x"_s << u"../../Documents"_s << u"Library/Caches/x"_s << cache << true;
}

void CleanerTest::linkedFolders()
{
    QFETCH(QString, link);
    QFETCH(QString, target);
    QFETCH(QString, item);
    QFETCH(int, category);
    QFETCH(bool, moves);
    for (const QString &name : {u"Library"_s, u"Movies"_s, u"Documents"_s})
        removeEntry(m_home->file(name));
    makeFile(m_home->file(u"Documents/x/doc.txt"_s));
    makeFile(m_home->file(u"Documents/inbox"_s));
    makeFile(m_home->file(u"Library/Mail/inbox/mail.eml"_s));
    removeEntry(m_home->file(link));
    QVERIFY(QDir().mkpath(QFileInfo(m_home->file(link)).path()));
    QVERIFY(::symlink(target.toUtf8().constData(), QFile::encodeName(m_home->file(link))) == 0);

    const auto result =
        Cleaner::remove({this->item(item, CleanCategory(category), u"i"_s)}, real());

    QVERIFY2(result.count == (moves ? 1 : 0), qPrintable(Words::failureLines(result).join(u'\n')));
    if (!moves)
        QCOMPARE(Words::failureLines(result),
                 QStringList{u"i: path goes through a symbolic link — refused"_s});
    QVERIFY(QFileInfo::exists(m_home->file(u"Documents/x/doc.txt"_s)));
    QVERIFY(QFileInfo::exists(m_home->file(u"Library/Mail/inbox/mail.eml"_s)) ||
            link == u"Library");
    QVERIFY(QFileInfo::exists(m_home->file(u"Documents/inbox"_s)));
}

// The caches folder swapped for a link to the documents while removals run: each move
// either fails or takes the cache; the document never moves.
void CleanerTest::swappedFolderRace_data()
{
    QTest::addColumn<bool>("unprivileged");
    QTest::newRow("as this user") << false;
    QTest::newRow("as an ordinary user") << true;
}

void CleanerTest::swappedFolderRace()
{
    QFETCH(bool, unprivileged);
    const QString caches = m_home->file(u"Library/Caches"_s);
    const QString aside = m_home->file(u"Library/Caches.real"_s);
    makeFile(m_home->file(u"Documents/doc"_s));
    QVERIFY(QDir().mkpath(caches));
    constexpr uid_t nobody = 65534;
    const bool drop = unprivileged && ::geteuid() == 0;
    if (unprivileged && !drop)
        QSKIP("already unprivileged");
    if (drop) {
        QProcess::execute(u"chown"_s, {u"-R"_s, u"65534:65534"_s, m_home->path()});
        QVERIFY(::seteuid(nobody) == 0);
    }
    const auto restore = qScopeGuard([drop] {
        if (drop)
            QVERIFY(::seteuid(0) == 0);
    });
    const QByteArray cachesPath = QFile::encodeName(caches), asidePath = QFile::encodeName(aside);
    std::atomic<bool> stop{false};
    std::thread swapper([&] {
        while (!stop) {
            ::rename(cachesPath.constData(), asidePath.constData());
            ::symlink("../Documents", cachesPath.constData());
            std::this_thread::yield();
            ::unlink(cachesPath.constData());
            ::rename(asidePath.constData(), cachesPath.constData());
        }
    });
    QElapsedTimer clock;
    clock.start();
    int moved = 0;
    for (int round = 0; round < 300 && clock.elapsed() < 3000; ++round) {
        // Made in whichever place the real folder is at the moment.
        for (const QByteArray &folder : {cachesPath, asidePath}) {
            const int fd = ::open((folder + "/doc").constData(),
                                  O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
            if (fd >= 0)
                ::close(fd);
        }
        moved += Cleaner::remove({item(u"Library/Caches/doc"_s, CleanCategory::userCache)}, real())
                     .count;
        QVERIFY2(QFileInfo::exists(m_home->file(u"Documents/doc"_s)), "the document moved");
    }
    stop = true;
    swapper.join();
    qInfo("%d of the removals moved the cache", moved);
}

// Whatever stands where the log belongs, nothing is written through it, the move still
// happens, and the removal says its line is missing.
void CleanerTest::hostileLog_data()
{
    QTest::addColumn<QString>("kind");
    QTest::newRow("log links to a file") << u"file link"_s;
    QTest::newRow("log is a dangling link") << u"dangling"_s;
    QTest::newRow("log folder is a link") << u"folder link"_s;
    QTest::newRow("a file where the folder belongs") << u"file"_s;
    QTest::newRow("log is a pipe") << u"pipe"_s;
}

void CleanerTest::hostileLog()
{
    QFETCH(QString, kind);
    const QString outside = m_home->file(u"outside"_s);
    QDir(outside).removeRecursively();
    makeFile(outside + u"/target.txt"_s, 4);
    const QByteArray log = QFile::encodeName(m_home->where().removalLog());
    QVERIFY(QDir().mkpath(m_home->file(u"Library/Logs"_s)));
    if (kind != u"folder link" && kind != u"file")
        QVERIFY(QDir().mkpath(m_logFolder));
    if (kind == u"file link")
        QVERIFY(::symlink(QFile::encodeName(outside + u"/target.txt"_s), log) == 0);
    if (kind == u"dangling")
        QVERIFY(::symlink(QFile::encodeName(outside + u"/new.txt"_s), log) == 0);
    if (kind == u"folder link")
        QVERIFY(::symlink(QFile::encodeName(outside), QFile::encodeName(m_logFolder)) == 0);
    if (kind == u"file")
        makeFile(m_logFolder);
    if (kind == u"pipe")
        QVERIFY(::mkfifo(log.constData(), 0600) == 0);
    const QStringList before = QDir(outside).entryList(QDir::Files);
    makeFile(m_home->file(u"Library/Caches/com.h"_s));

    const auto result =
        Cleaner::remove({item(u"Library/Caches/com.h"_s, CleanCategory::userCache)}, real());

    QCOMPARE(result.count, 1);
    QVERIFY(result.items.value(0).logFailure.has_value());
    QVERIFY(Words::removalSummary(result).contains(u"The removal log could not be written"_s));
    QCOMPARE(QDir(outside).entryList(QDir::Files), before);
    QFile target(outside + u"/target.txt"_s);
    QVERIFY(target.open(QIODevice::ReadOnly));
    QCOMPARE(target.size(), 4);
    removeEntry(m_logFolder);
}

// A name may hold line feeds, tabs and backslashes: one move is still one line of four
// fields, and a crafted name cannot pass for an entry of its own.
void CleanerTest::namesStayOnOneLine()
{
    const QStringList names{u"a\nb"_s, u"x\ty"_s, u"back\\slash"_s, u"bell\x07\x7f"_s,
                            u"n\n2020-01-01T00:00:00Z\tuserCache\t1 KB\tFORGED ENTRY"_s};
    QList<CleanItem> items;
    for (const QString &name : names) {
        makeFile(m_home->file(u"Library/Caches/"_s + name));
        items.append(item(u"Library/Caches/"_s + name, CleanCategory::userCache));
    }
    QCOMPARE(Cleaner::remove(items, real()).count, int(names.size()));
    const QStringList lines = logLines(m_home->where());
    QCOMPARE(lines.size(), names.size());
    for (const QString &line : lines)
        QCOMPARE(line.count(u'\t'), 3);
    QVERIFY(lines[0].contains(u"/a\\nb → "_s));
    QVERIFY(lines[1].contains(u"/x\\ty → "_s));
    QVERIFY(lines[2].contains(u"/back\\\\slash → "_s));
    QVERIFY(lines[3].contains(u"/bell\\x07\\x7F → "_s));
    QVERIFY(lines[4].contains(u"\\tFORGED ENTRY → "_s));
}

QTEST_GUILESS_MAIN(CleanerTest)
#include "tst_cleaner.moc"

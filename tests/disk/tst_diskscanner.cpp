#include "common/TestHome.h"

#include "core/cleanup/CleanScanners.h"
#include "core/disk/DiskScanner.h"
#include "core/health/SystemStats.h"
#include "core/system/RealSystem.h"
#include "core/text/L10n.h"
#include "platform/DateText.h"

#include <QProcess>
#include <QtTest>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

qint64 allocated(const QString &path)
{
    struct stat st;
    return lstat(QFile::encodeName(path).constData(), &st) == 0 ? qint64(st.st_blocks) * 512 : -1;
}

// Writes real bytes (not a hole), so the allocated size is at least `size`.
qint64 makeFile(const QString &path, qint64 size)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return -1;
    const QByteArray chunk(64 * 1024, 'q');
    for (qint64 left = size; left > 0; left -= chunk.size())
        file.write(chunk.constData(), std::min<qint64>(left, chunk.size()));
    file.close();
    return allocated(path);
}

void link(const QString &target, const QString &at)
{
    QDir().mkpath(QFileInfo(at).path());
    QVERIFY(::symlink(QFile::encodeName(target).constData(), QFile::encodeName(at).constData()) ==
            0);
}

// Entries of a folder in the file system's own order.
QStringList readdirOrder(const QString &folder)
{
    QStringList names;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    while (it.hasNext()) {
        it.next();
        names.append(it.fileName());
    }
    return names;
}

} // namespace

class DiskScannerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void folderSizes();
    void linksAreNotFollowed();
    void cancelStopsTheWalk();
    void badInput();
    void hugeFolder();
    void trash();
    void categories();
    void largeFileRules();
    void largeFileThreshold_data();
    void largeFileThreshold();
    void largeFileOrderAndSubtitle();
    void largeFileProgress();
    void volumeUsage();

private:
    QString home(const QString &relative = {}) const
    {
        return relative.isEmpty() ? m_home->path() : m_home->file(relative);
    }
    std::unique_ptr<TestHome> m_home;
};

void DiskScannerTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    L10n::overrideForTesting(false);
}

void DiskScannerTest::init()
{
    // A fresh, empty home for every case; rm copes with paths past PATH_MAX.
    QDir dir(home());
    for (const QString &name :
         dir.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot))
        QCOMPARE(QProcess::execute(u"rm"_s, {u"-rf"_s, dir.filePath(name)}), 0);
}

void DiskScannerTest::folderSizes()
{
    const qint64 small = makeFile(home(u"f/a.txt"_s), 10);
    QVERIFY(small >= 10);
    QCOMPARE(DiskScanner::directorySize(home(u"f"_s)), small);
    QCOMPARE(DiskScanner::directorySize(home(u"f/a.txt"_s)), small);

    // Hidden files, package contents and every hard link count.
    const qint64 hidden = makeFile(home(u"f/.hidden/.dot"_s), 5000);
    const qint64 inPackage = makeFile(home(u"f/Tool.app/Contents/MacOS/tool"_s), 70'000);
    QVERIFY(::link(QFile::encodeName(home(u"f/a.txt"_s)).constData(),
                   QFile::encodeName(home(u"f/hard"_s)).constData()) == 0);
    // A sparse file counts what it occupies, not its length.
    {
        QFile sparse(home(u"f/sparse.img"_s));
        QVERIFY(sparse.open(QIODevice::WriteOnly));
        QVERIFY(sparse.resize(1'000'000'000));
    }
    const qint64 sparse = allocated(home(u"f/sparse.img"_s));
    QVERIFY(sparse < 1'000'000);
    const qint64 expected = small * 2 + hidden + inPackage + sparse;
    QCOMPARE(DiskScanner::directorySize(home(u"f"_s)), expected);
    QCOMPARE(DiskScanner::directorySize(home(u"f/"_s)), expected);
    // The sequential walk (taken when a cancel test is given) agrees with the parallel one.
    QCOMPARE(DiskScanner::directorySize(home(u"f"_s), [] { return false; }), expected);

    // A wide tree, where the parallel walk really fans out.
    qint64 wide = 0;
    for (int i = 0; i < 40; ++i)
        for (int j = 0; j < 25; ++j)
            wide += makeFile(home(u"w/d%1/s%2/x"_s.arg(i).arg(j)), 100 + i * j);
    QCOMPARE(DiskScanner::directorySize(home(u"w"_s)), wide);
    QCOMPARE(DiskScanner::directorySize(home(u"w"_s), [] { return false; }), wide);

    QCOMPARE(DiskScanner::directorySize(home(u"missing"_s)), 0);
    QCOMPARE(DiskScanner::directorySize(QString()), 0);
}

void DiskScannerTest::linksAreNotFollowed()
{
    const qint64 big = makeFile(home(u"big/blob"_s), 300'000);
    const qint64 own = makeFile(home(u"f/own"_s), 100);
    link(home(u"big"_s), home(u"f/to-big"_s));
    link(home(u"big/blob"_s), home(u"f/to-blob"_s));
    link(home(u"f"_s), home(u"f/loop"_s));
    link(home(u"nowhere"_s), home(u"f/dangling"_s));
    // Links add nothing inside a folder walk, and a loop through one is never entered.
    QCOMPARE(DiskScanner::directorySize(home(u"f"_s)), own);
    // A link given directly is measured as itself, never as its target.
    QCOMPARE(DiskScanner::directorySize(home(u"f/to-big"_s)), allocated(home(u"f/to-big"_s)));
    QVERIFY(DiskScanner::directorySize(home(u"f/to-big"_s)) < big);
    QCOMPARE(DiskScanner::directorySize(home(u"f/to-big/"_s)), allocated(home(u"f/to-big"_s)));
}

void DiskScannerTest::cancelStopsTheWalk()
{
    qint64 all = 0;
    for (int i = 0; i < 50; ++i)
        all += makeFile(home(u"c/%1"_s.arg(i)), 1000);
    QCOMPARE(DiskScanner::directorySize(home(u"c"_s), [] { return true; }), 0);
    int asked = 0;
    const qint64 part = DiskScanner::directorySize(home(u"c"_s), [&] { return ++asked > 10; });
    QCOMPARE(part, all / 50 * 10);
    QCOMPARE(asked, 11);
}

void DiskScannerTest::badInput()
{
    // Names that are not UTF-8 still count towards their folder.
    const QByteArray odd = QFile::encodeName(home(u"b"_s)) + "/bad\xff\xfe";
    QDir().mkpath(home(u"b"_s));
    {
        const int fd = ::open(odd.constData(), O_WRONLY | O_CREAT, 0644);
        QVERIFY(fd >= 0);
        QVERIFY(::write(fd, "12345", 5) == 5);
        ::close(fd);
    }
    struct stat st;
    QVERIFY(::lstat(odd.constData(), &st) == 0);
    qint64 expected = qint64(st.st_blocks) * 512;

    // A path far deeper than PATH_MAX, built one level at a time.
    int fd = ::open(QFile::encodeName(home(u"b"_s)).constData(), O_RDONLY | O_DIRECTORY);
    const QByteArray segment(60, 'd');
    for (int level = 0; level < 120; ++level) {
        QVERIFY(::mkdirat(fd, segment.constData(), 0755) == 0);
        const int next = ::openat(fd, segment.constData(), O_RDONLY | O_DIRECTORY);
        ::close(fd);
        fd = next;
        QVERIFY(fd >= 0);
    }
    const int deep = ::openat(fd, "deep.bin", O_WRONLY | O_CREAT, 0644);
    QVERIFY(deep >= 0);
    QVERIFY(::write(deep, "x", 1) == 1);
    QVERIFY(::fstat(deep, &st) == 0);
    expected += qint64(st.st_blocks) * 512;
    ::close(deep);
    ::close(fd);
    QCOMPARE(DiskScanner::directorySize(home(u"b"_s)), expected);
}

void DiskScannerTest::hugeFolder()
{
    // 100,000 entries in one folder: every walk finishes and counts each entry once.
    QDir().mkpath(home(u"huge"_s));
    const int fd = ::open(QFile::encodeName(home(u"huge"_s)).constData(), O_RDONLY | O_DIRECTORY);
    QVERIFY(fd >= 0);
    char name[16];
    for (int i = 0; i < 100'000; ++i) {
        std::snprintf(name, sizeof name, "%d", i);
        const int file = ::openat(fd, name, O_WRONLY | O_CREAT, 0644);
        QVERIFY(file >= 0);
        ::close(file);
    }
    ::close(fd);
    const qint64 one = makeFile(home(u"huge/zz-data"_s), 3000);
    QCOMPARE(DiskScanner::directorySize(home(u"huge"_s)), one);
    QList<qint64> reports;
    const auto found = Cleaner::largeFiles(
        one, [&](qint64 n) { reports.append(n); }, m_home->where());
    QCOMPARE(found.size(), 1);
    QTRY_COMPARE(reports.size(), 50);
    QCOMPARE(reports.last(), 100'000);
}

void DiskScannerTest::trash()
{
    // Never created: empty, not unreadable.
    auto size = DiskScanner::trashSize(RealSystem(m_home->where()));
    QVERIFY(size.has_value());
    QCOMPARE(size->count, 0);
    QCOMPARE(size->bytes, 0);

    const QString files = home(u".local/share/Trash/files/"_s);
    const qint64 a = makeFile(files + u"a.bin"_s, 20'000);
    const qint64 b = makeFile(files + u"folder/inner/b.bin"_s, 30'000);
    const qint64 hidden = makeFile(files + u".hidden"_s, 10);
    link(home(u"elsewhere"_s), files + u"link"_s);
    size = DiskScanner::trashSize(RealSystem(m_home->where()));
    QVERIFY(size.has_value());
    QCOMPARE(size->count, 4);
    QCOMPARE(size->bytes, a + b + hidden + allocated(files + u"link"_s));

    // There, but not a folder that can be listed: unreadable.
    QDir(files).removeRecursively();
    makeFile(home(u".local/share/Trash/files"_s), 10);
    QVERIFY(!DiskScanner::trashSize(RealSystem(m_home->where())).has_value());
}

void DiskScannerTest::categories()
{
    const qint64 docs = makeFile(home(u"Documents/d.txt"_s), 40'000);
    const qint64 apps = makeFile(home(u"SysApps/A.app/Contents/bin"_s), 50'000);
    const qint64 desk = makeFile(home(u"Desktop/x"_s), 1);
    QStringList names;
    const QStringList folders{home(u"SysApps"_s), home(u"Applications"_s)};
    const auto result = DiskScanner::categories([&](const QString &n) { names.append(n); },
                                                RealSystem(m_home->where()), folders);
    QTRY_COMPARE(names,
                 (QStringList{u"documents"_s, u"applications"_s, u"desktop"_s, u"downloads"_s}));
    QCOMPARE(result.size(), 6);
    const QStringList ids{u"documents"_s, u"applications"_s, u"desktop"_s,
                          u"downloads"_s, u"other"_s,        u"free"_s};
    for (int i = 0; i < 6; ++i)
        QCOMPARE(result[i].id, ids[i]);
    QCOMPARE(result[0].bytes, docs);
    QCOMPARE(result[1].bytes, apps); // no ~/Applications: the system folder alone
    QCOMPARE(result[2].bytes, desk);
    QCOMPARE(result[3].bytes, 0);
    QVERIFY(result[4].bytes >= 0);
    const DiskUsage usage = DiskUsage::of(u"/"_s);
    // Free space moves while the test runs; allow for other writers.
    QVERIFY(qAbs(result[5].bytes - usage.free) < 512LL * 1024 * 1024);
    const qint64 other = std::max<qint64>(0, usage.total - usage.free - docs - apps - desk);
    QVERIFY(qAbs(result[4].bytes - other) < 512LL * 1024 * 1024);

    const qint64 userApps = makeFile(home(u"Applications/B.app/b"_s), 9000);
    const auto again = DiskScanner::categories({}, RealSystem(m_home->where()), folders);
    QCOMPARE(again[1].bytes, apps + userApps);
}

void DiskScannerTest::largeFileRules()
{
    constexpr qint64 kBig = 300'000;
    const QStringList listed{u"Movies/film.mov"_s,
                             u"disk.dmg"_s,
                             u"top.bin"_s,
                             u"Projects/app/node_modules/big"_s,
                             u"Projects/Library/big"_s,
                             u"Deep/x/Library/big"_s};
    const QStringList skipped{
        u"Library/Caches/big"_s,
        u"node_modules/big"_s,
        u".git/big"_s,
        u".hidden/big"_s,
        u"Movies/.secret.mov"_s,
        u"VMs/box.utm/disk.img"_s,
        u"Tool.APP/Contents/big"_s,
        u"Disk.sparseimage"_s,
        u"x.VMDK"_s,
        u"Old/Backups.backupdb/m/big"_s,
        u"Backups.backupdb.zip"_s,
    };
    for (const QString &path : listed + skipped)
        QVERIFY2(makeFile(home(path), kBig) >= kBig, qPrintable(path));
    makeFile(home(u"Movies/small.mov"_s), 1000);
    link(home(u"Movies/film.mov"_s), home(u"Movies/link.mov"_s));
    // A name that is not UTF-8 cannot be shown or moved back safely: never listed.
    const QByteArray odd = QFile::encodeName(home(u"Movies/"_s)) + "bad\xff.bin";
    {
        const int fd = ::open(odd.constData(), O_WRONLY | O_CREAT, 0644);
        QVERIFY(fd >= 0);
        QVERIFY(::ftruncate(fd, 0) == 0);
        const QByteArray data(kBig, 'z');
        QVERIFY(::write(fd, data.constData(), size_t(data.size())) == data.size());
        ::close(fd);
    }
    QStringList found;
    for (const CleanItem &item : Cleaner::largeFiles(kBig, {}, m_home->where())) {
        QVERIFY(item.path.startsWith(home() + u'/'));
        QCOMPARE(item.category, CleanCategory::largeFiles);
        QCOMPARE(item.method, CleanMethod::trash);
        QCOMPARE(item.bytes, allocated(item.path));
        found.append(item.path.mid(home().size() + 1));
    }
    found.sort();
    QStringList expected = listed;
    expected.sort();
    QCOMPARE(found, expected);

    // The top-level names are skipped whatever they are, files included.
    QCOMPARE(QProcess::execute(u"rm"_s, {u"-rf"_s, home(u"node_modules"_s)}), 0);
    QVERIFY(makeFile(home(u"node_modules"_s), kBig) >= kBig);
    const auto again = Cleaner::largeFiles(kBig, {}, m_home->where());
    QCOMPARE(again.size(), listed.size());
}

void DiskScannerTest::largeFileThreshold_data()
{
    QTest::addColumn<qint64>("offset"); // minBytes relative to the file's allocated size
    QTest::addColumn<bool>("listed");
    QTest::newRow("exactly at the threshold") << qint64(0) << true;
    QTest::newRow("one byte over") << qint64(1) << false;
    QTest::newRow("below") << qint64(-4096) << true;
}

void DiskScannerTest::largeFileThreshold()
{
    QFETCH(qint64, offset);
    QFETCH(bool, listed);
    // 10 bytes occupy a whole block: the threshold is judged by allocation, not length.
    const qint64 size = makeFile(home(u"Docs/tiny"_s), 10);
    const auto found = Cleaner::largeFiles(size + offset, {}, m_home->where());
    QCOMPARE(found.size(), listed ? 1 : 0);
}

void DiskScannerTest::largeFileOrderAndSubtitle()
{
    const qint64 same = makeFile(home(u"Eq/a"_s), 200'000);
    for (const char *name : {"b", "c", "d", "e"})
        QCOMPARE(makeFile(home(u"Eq/"_s + QLatin1String(name)), 200'000), same);
    const qint64 bigger = makeFile(home(u"Eq/huge"_s), 900'000);
    const qint64 inHome = makeFile(home(u"direct.bin"_s), 200'000);
    const QDateTime stamp = QDateTime::fromString(u"2024-03-05T12:00:00Z"_s, Qt::ISODate);
    {
        QFile f(home(u"direct.bin"_s));
        QVERIFY(f.open(QIODevice::ReadWrite));
        QVERIFY(f.setFileTime(stamp, QFileDevice::FileModificationTime));
    }
    const auto found = Cleaner::largeFiles(same, {}, m_home->where());
    QCOMPARE(found.size(), 7);
    QCOMPARE(found[0].title, u"huge"_s);
    QCOMPARE(found[0].bytes, bigger);
    QCOMPARE(found[0].subtitle.section(u" · "_s, 0, 0), u"~/Eq"_s);
    // Equal sizes keep the walk's order: within a folder, the file system's own.
    QStringList walkOrder;
    for (const QString &name : readdirOrder(home(u"Eq"_s)))
        if (name != u"huge")
            walkOrder.append(name);
    QStringList eqOrder;
    for (const CleanItem &item : found)
        if (item.path.contains(u"/Eq/"_s) && item.title != u"huge")
            eqOrder.append(item.title);
    QCOMPARE(eqOrder, walkOrder);
    QCOMPARE(inHome, same);
    const auto direct = std::find_if(found.begin(), found.end(),
                                     [](const CleanItem &i) { return i.title == u"direct.bin"; });
    QVERIFY(direct != found.end());
    QCOMPARE(direct->subtitle, u"~ · "_s + Platform::mediumDate(stamp));
    QVERIFY(!Platform::mediumDate(stamp).isEmpty());
}

void DiskScannerTest::largeFileProgress()
{
    // 4,100 counted entries: the folder and 4,098 files, a package (contents not counted),
    // Library at the top (counted, not entered), and hidden entries (never counted).
    QDir().mkpath(home(u"many"_s));
    for (int i = 0; i < 4097; ++i) {
        QFile f(home(u"many/%1"_s.arg(i)));
        QVERIFY(f.open(QIODevice::WriteOnly));
    }
    for (int i = 0; i < 30; ++i) {
        makeFile(home(u"Foo.app/c/%1"_s.arg(i)), 0);
        makeFile(home(u"Library/x/%1"_s.arg(i)), 0);
        makeFile(home(u".hidden/%1"_s.arg(i)), 0);
    }
    makeFile(home(u"many/.dot"_s), 0);
    QList<qint64> reports;
    Cleaner::largeFiles(
        1LL << 40, [&](qint64 n) { reports.append(n); }, m_home->where());
    QTRY_COMPARE(reports, (QList<qint64>{2000, 4000}));
    QTest::qWait(50);
    QCOMPARE(reports, (QList<qint64>{2000, 4000}));

    // One more entry reaches no new multiple; 4,000 → 6,000 needs 1,900 more.
    reports.clear();
    for (int i = 4097; i < 4097 + 1900; ++i) {
        QFile f(home(u"many/%1"_s.arg(i)));
        QVERIFY(f.open(QIODevice::WriteOnly));
    }
    Cleaner::largeFiles(
        1LL << 40, [&](qint64 n) { reports.append(n); }, m_home->where());
    QTRY_COMPARE(reports, (QList<qint64>{2000, 4000, 6000}));
}

void DiskScannerTest::volumeUsage()
{
    const DiskUsage root = DiskUsage::of(u"/"_s);
    QVERIFY(root.total > 0);
    QVERIFY(root.free >= 0 && root.free <= root.total);
    const DiskUsage missing = DiskUsage::of(home(u"does/not/exist"_s));
    QCOMPARE(missing.total, 0);
    QCOMPARE(missing.free, 0);
    QCOMPARE(DiskUsage::of(QString()).total, 0);
}

QTEST_GUILESS_MAIN(DiskScannerTest)
#include "tst_diskscanner.moc"

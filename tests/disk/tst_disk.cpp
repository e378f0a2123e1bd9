#include "cleanup/FileTree.h"
#include "common/TestHome.h"
#include "support/FakeSystem.h"

#include "core/cleanup/CleanScanners.h"
#include "core/disk/DiskScanner.h"
#include "core/types/DiskUsage.h"
#include "platform/DateText.h"

#include <QScopeGuard>

using namespace Qt::StringLiterals;
using namespace FileTree;

const QDateTime kNow(QDate(2025, 6, 1), QTime(12, 0), Qt::UTC);

class DiskTest : public QObject
{
    Q_OBJECT

    QString at(const QString &relative) const { return m_home->file(relative); }
    static qint64 size(const QString &path) { return DiskScanner::directorySize(path); }
    // The sequential walk: a cancel test keeps it on this thread.
    static qint64 walked(const QString &path)
    {
        return DiskScanner::directorySize(path, [] { return false; });
    }
    bool hardLinks(const QString &source, const QString &folder, int count)
    {
        makeParents(QFile::encodeName(folder + u"/x"_s));
        for (int i = 0; i < count; ++i) {
            if (::link(QFile::encodeName(source), QFile::encodeName(folder + u"/%1"_s.arg(i))) != 0)
                return false;
        }
        return true;
    }
    std::unique_ptr<TestHome> m_home;

private Q_SLOTS:
    void initTestCase() { m_home = std::make_unique<TestHome>(); }
    void init() { clear(m_home->path()); }

    void sizes()
    {
        const qint64 small = writeFile(at(u"f/a.txt"_s), 10);
        const qint64 hidden = writeFile(at(u"f/.hidden/.dot"_s), 5000);
        const qint64 inPackage = writeFile(at(u"f/Tool.app/Contents/MacOS/tool"_s), 70'000);
        QVERIFY(small > 0 && hidden > 0 && inPackage > 0);
        QVERIFY(hardLinks(at(u"f/a.txt"_s), at(u"f/h"_s), 1));
        // What a sparse file occupies, not its length.
        QVERIFY(write(at(u"f/sparse.img"_s), {}) == 0 &&
                QFile::resize(at(u"f/sparse.img"_s), 5'000'000'000));
        const qint64 sparse = allocated(at(u"f/sparse.img"_s));
        QVERIFY(sparse < 1'000'000);
        const qint64 all = 2 * small + hidden + inPackage + sparse;
        QCOMPARE(size(at(u"f"_s)), all);
        QCOMPARE(size(at(u"f//"_s)), all);
        QCOMPARE(walked(at(u"f"_s)), all);
        QCOMPARE(size(at(u"f/a.txt"_s)), small);
        QCOMPARE(size(at(u"missing"_s)), 0);
        QCOMPARE(size(QString()), 0);
    }

    void linksMeasuredAsThemselves()
    {
        const qint64 own = writeFile(at(u"f/own"_s), 100);
        // A long target gives a link blocks of its own on most file systems.
        const QString big = at(u"big-"_s + QString(120, u'x'));
        QVERIFY(writeFile(big + u"/blob"_s, 300'000) > 0);
        QVERIFY(makeLink(big, at(u"f/to-big"_s)) && makeLink(big + u"/blob"_s, at(u"f/to-blob"_s)));
        QVERIFY(makeLink(at(u"f"_s), at(u"f/loop"_s)) && makeLink(u"nowhere"_s, at(u"f/gone"_s)));
        // In a walk links add nothing and loops are never entered; given, a link is itself.
        QCOMPARE(size(at(u"f"_s)), own);
        QCOMPARE(walked(at(u"f"_s)), own);
        for (const QString &link : {u"f/to-big"_s, u"f/to-big/"_s, u"f/to-blob"_s})
            QCOMPARE(size(at(link)), allocated(at(u"f/to-big"_s)));
    }

    // One folder listed in several reads, more folders than the walk queues, names that
    // are not UTF-8 and a path far past PATH_MAX: each file counts once, whichever walk.
    void wideAndDeepTrees()
    {
        const qint64 one = writeFile(at(u"source"_s), 3000);
        QVERIFY(hardLinks(at(u"source"_s), at(u"w/flat"_s), 3000));
        for (int i = 0; i < 80; ++i)
            QVERIFY(hardLinks(at(u"source"_s), at(u"w/d%1/s"_s.arg(i)), 1));
        const qint64 odd = write(QFile::encodeName(at(u"w"_s)) + "/bad\xff\xfe/x", "12345");
        QVERIFY(odd > 0);
        const auto removeDeep = qScopeGuard([this] {
            QProcess::execute(u"rm"_s, {u"-rf"_s, at(u"w/"_s + QString(60, u'd'))});
        });
        int fd = ::open(QFile::encodeName(at(u"w"_s)), O_RDONLY | O_DIRECTORY);
        for (int level = 0; level < 120 && fd >= 0; ++level) {
            ::mkdirat(fd, QByteArray(60, 'd'), 0755);
            const int next = ::openat(fd, QByteArray(60, 'd'), O_RDONLY | O_DIRECTORY);
            ::close(fd);
            fd = next;
        }
        const int deep = fd < 0 ? -1 : ::openat(fd, "deep", O_WRONLY | O_CREAT, 0644);
        ::close(fd);
        struct stat st;
        QVERIFY(deep >= 0 && ::write(deep, "x", 1) == 1 && ::fstat(deep, &st) == 0);
        ::close(deep);
        const qint64 expected = one * (3000 + 80) + odd + qint64(st.st_blocks) * 512;
        QCOMPARE(size(at(u"w"_s)), expected);
        QCOMPARE(walked(at(u"w"_s)), expected);
    }

    void cancel()
    {
        const qint64 one = writeFile(at(u"source"_s), 1000);
        QVERIFY(hardLinks(at(u"source"_s), at(u"c"_s), 50));
        QCOMPARE(DiskScanner::directorySize(at(u"c"_s), [] { return true; }), 0);
        int asked = 0;
        QCOMPARE(DiskScanner::directorySize(at(u"c"_s), [&] { return ++asked > 10; }), 10 * one);
        QCOMPARE(asked, 11);
    }

    void trash()
    {
        const FakeSystem system(m_home->where());
        const auto never = DiskScanner::trashSize(system);
        QVERIFY(never && never->count == 0 && never->bytes == 0);

        const QString files = system.trashItemsFolder() + u'/';
        const qint64 a = writeFile(files + u"a.bin"_s, 20'000);
        const qint64 b = writeFile(files + u"folder/inner/b.bin"_s, 30'000);
        const qint64 hidden = writeFile(files + u".hidden"_s, 10);
        QVERIFY(makeLink(at(u"elsewhere"_s), files + u"link"_s));
        const auto counted = DiskScanner::trashSize(system);
        QVERIFY(counted && counted->count == 4 && counted->contents.entries.size() == 4);
        QCOMPARE(counted->bytes, a + b + hidden + allocated(files + u"link"_s));

        // There, but no folder that can be listed: unknown, not empty.
        QVERIFY(QDir(files).removeRecursively() && writeFile(files.chopped(1), 10) > 0);
        QVERIFY(!DiskScanner::trashSize(system));
    }

    void categories()
    {
        const qint64 docs = writeFile(at(u"Documents/d.txt"_s), 40'000);
        const qint64 apps = writeFile(at(u"SysApps/A.app/Contents/bin"_s), 50'000);
        const qint64 desk = writeFile(at(u"Desktop/x"_s), 1);
        FakeSystem system(m_home->where());
        system.volume = {500'000'000'000, 200'000'000'000};
        const QStringList folders{at(u"SysApps"_s), at(u"Applications"_s)};
        QStringList names;
        auto result =
            DiskScanner::categories([&](const QString &n) { names.append(n); }, system, folders);
        const QStringList ids{u"documents"_s, u"applications"_s, u"desktop"_s, u"downloads"_s};
        QTRY_COMPARE(names, ids);
        QStringList got;
        QList<qint64> bytes;
        for (const DiskCategory &category : result)
            got.append(category.id), bytes.append(category.bytes);
        QCOMPARE(got, (ids + QStringList{u"other"_s, u"free"_s}));
        const qint64 other = 300'000'000'000 - docs - apps - desk;
        QCOMPARE(bytes, (QList<qint64>{docs, apps, desk, 0, other, 200'000'000'000}));

        // Every application folder counts; nothing is ever less than nothing.
        const qint64 userApps = writeFile(at(u"Applications/B.app/b"_s), 9000);
        system.volume = {50'000, 0};
        result = DiskScanner::categories({}, system, folders);
        QCOMPARE(result[1].bytes, apps + userApps);
        QCOMPARE(result[4].bytes, 0);
    }

    void volume()
    {
        const DiskUsage root = DiskUsage::of(u"/"_s), missing = DiskUsage::of(at(u"no/such"_s));
        QVERIFY(root.total > 0 && root.free >= 0 && root.free <= root.total);
        QVERIFY(missing.total == 0 && missing.free == 0 && DiskUsage::of(QString()).total == 0);
    }

    // Everywhere in the home folder but the skipped places, packages, protected types and
    // links; judged by allocation; largest first.
    void largeFiles()
    {
        const QStringList listed{u"Deep/Library/big"_s, u"Movies/film.mov"_s,
                                 u"Projects/node_modules/big"_s, u"disk.dmg"_s};
        for (const QString &path :
             listed + QStringList{u"node_modules"_s, u"Library/Caches/big"_s, u".hidden/big"_s,
                                  u"Movies/.secret.mov"_s, u"VMs/box.utm/disk.img"_s,
                                  u"Tool.APP/Contents/big"_s, u"Disk.sparseimage"_s, u"x.VMDK"_s,
                                  u"Old/Backups.backupdb/m/big"_s, u"Backups.backupdb.zip"_s})
            QVERIFY2(writeFile(at(path), 300'000) > 0, qPrintable(path));
        const qint64 size = allocated(at(u"disk.dmg"_s));
        QVERIFY(write(QFile::encodeName(at(u"Movies/"_s)) + "bad\xff.bin",
                      QByteArray(300'000, 'x')) > 0);
        QVERIFY(writeFile(at(u"huge"_s), 900'000) > size &&
                makeLink(at(u"Movies/film.mov"_s), at(u"Movies/link.mov"_s)));
        QFile dmg(at(u"disk.dmg"_s));
        QVERIFY(dmg.open(QIODevice::ReadWrite) &&
                dmg.setFileTime(kNow, QFile::FileModificationTime));
        const QList<CleanItem> found = Cleaner::largeFiles(size, {}, m_home->where());
        QStringList paths;
        for (const CleanItem &item : found) {
            QVERIFY(item.category == CleanCategory::largeFiles &&
                    item.method == CleanMethod::trash && item.bytes == allocated(item.path));
            paths.append(item.path.mid(m_home->path().size() + 1));
        }
        QCOMPARE(paths.takeFirst(), u"huge"_s);
        paths.sort();
        QCOMPARE(paths, listed);
        for (const CleanItem &item : found)
            QVERIFY(item.title != u"disk.dmg" ||
                    item.subtitle == u"~ · "_s + Platform::mediumDate(kNow));
        QVERIFY(Cleaner::largeFiles(allocated(at(u"huge"_s)) + 1, {}, m_home->where()).isEmpty());
    }

    // Progress counts each visible entry once; a package and Library at the top are one.
    void largeFileProgress()
    {
        const QByteArray first = QFile::encodeName(at(u"many/0"_s));
        for (const QString &file :
             {u"Foo.app/c/1"_s, u"Library/x/1"_s, u".hidden/1"_s, u"many/.dot"_s})
            QCOMPARE(writeFile(at(file), 0), 0);
        QCOMPARE(write(first, {}), 0);
        for (int i = 1; i < 1997; ++i)
            QCOMPARE(::link(first, first.chopped(1) + QByteArray::number(i)), 0);
        QList<qint64> reports;
        Cleaner::largeFiles(
            1LL << 40, [&](qint64 n) { reports.append(n); }, m_home->where());
        QTRY_COMPARE(reports, QList<qint64>{2000});
    }

    // Shared out over threads, the walk lists and counts what the depth-first walk does, in
    // its order: equal sizes (hard links) spread over wide and deep folders, next to every
    // place the rules cut off.
    void largeFilesInParallel_data()
    {
        QTest::addColumn<int>("threads");
        for (int threads : {2, 3, 4})
            QTest::addRow("%d threads", threads) << threads;
    }
    void largeFilesInParallel()
    {
        QFETCH(int, threads);
        const QByteArray first = QFile::encodeName(at(u"seed.bin"_s));
        const qint64 size = write(first, QByteArray(200'000, 'q'));
        QVERIFY(size > 0);
        QByteArrayList deep{QFile::encodeName(at(u"Deep"_s))};
        while (deep.size() < 30)
            deep.append(deep.last() + "/l" + QByteArray::number(deep.size()));
        const QByteArray home = QFile::encodeName(m_home->path());
        for (int i = 0; i < 60; ++i) {
            const QByteArray n = QByteArray::number(i);
            const QByteArray folder = home + "/W" + QByteArray::number(i % 7) + "/d" + n;
            for (const QByteArray &leaf :
                 {folder + "/big" + n, folder + "/e/" + n, deep[i % 30] + "/b" + n}) {
                makeParents(leaf + "/x");
                for (int k = 0; k < 12; ++k)
                    QCOMPARE(::link(first, leaf + "/" + QByteArray::number(k)), 0);
            }
        }
        for (const char *edge : {"/Library/l", "/.hid/l", "/W1/A.app/l", "/W2/x.vmdk", "/W3/\xff/l",
                                 "/W4/Library/l"}) {
            makeParents(home + edge);
            QCOMPARE(::link(first, home + edge), 0);
        }
        const auto scan = [&](int walkThreads) {
            QList<qint64> reports;
            QStringList paths;
            for (const CleanItem &item : Cleaner::largeFiles(
                     size, [&](qint64 n) { reports.append(n); }, m_home->where(), walkThreads))
                paths.append(item.path);
            QCoreApplication::sendPostedEvents(); // every report was posted before the return
            return std::pair(paths, reports);
        };
        const auto expected = scan(1);
        QCOMPARE(expected.first.size(), 60 * 3 * 12 + 2);
        QCOMPARE(expected.second, QList<qint64>{2000});
        QCOMPARE(scan(threads), expected);
    }
};

QTEST_GUILESS_MAIN(DiskTest)
#include "tst_disk.moc"

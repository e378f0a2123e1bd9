#include "cleanup/FileTree.h"
#include "common/TestHome.h"
#include "support/FakeSystem.h"

#include "core/disk/DiskScanner.h"
#include "core/types/DiskUsage.h"

#include <QScopeGuard>

using namespace Qt::StringLiterals;
using namespace FileTree;

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
};

QTEST_GUILESS_MAIN(DiskTest)
#include "tst_disk.moc"

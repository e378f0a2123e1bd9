#include "common/TestHome.h"
#include "core/disk/DiskScanner.h"
#include "core/system/RealSystem.h"
#include "core/text/L10n.h"
#include "core/words/CleanupWords.h"
#include "platform/Trash.h"

#include <QDirIterator>
#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

#include <atomic>
#include <climits>
#include <fcntl.h>
#include <memory>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr uid_t nobody = 65534;
constexpr auto anyEntry = QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System;
const QString emptied = u"(emptied)"_s;

QByteArray native(const QString &path)
{
    return QFile::encodeName(path);
}

bool entryExists(const QString &path)
{
    struct stat st = {};
    return ::lstat(native(path).constData(), &st) == 0;
}

QStringList entries(const QString &folder)
{
    return QDir(folder).entryList(anyEntry, QDir::Name);
}

// The temporary home as the variables of the moment describe it (some cases move the
// data home).
RealSystem here()
{
    return RealSystem(Locations::fromEnvironment());
}

// What the Trash holds now, as a confirmation counts it.
std::optional<Platform::TrashContents> counted()
{
    const std::optional<TrashSize> size = DiskScanner::trashSize(here());
    return size ? std::optional(size->contents) : std::nullopt;
}

Platform::TrashEmptying emptyCounted()
{
    return Platform::emptyTrash(counted(), Locations::fromEnvironment().userFolders());
}

// What the user is told after emptying what is there now, or `emptied`.
QString outcome()
{
    const TrashEmptyResult result = DiskScanner::emptyTrash(counted(), here());
    return result.code == TrashEmptyResult::Code::emptied && result.kept == 0
               ? emptied
               : Words::trashMessage(result);
}

// What the user is told when `count` entries are left.
QString remainText(int count, bool zh)
{
    const QString n = QString::number(count);
    return zh ? u"废纸篓未能完全清空：还剩 "_s + n + u" 项。"_s
              : u"The Trash could not be emptied completely: "_s + n + u" item(s) remain."_s;
}

// "a/b/" makes a folder, "a/b" a file holding its own name; missing folders on the way too.
void build(const QString &root, const QStringList &layout)
{
    QVERIFY(QDir().mkpath(root));
    for (const QString &relative : layout) {
        const QString path = root + u'/' + relative;
        QVERIFY(QDir().mkpath(relative.endsWith(u'/') ? path : QFileInfo(path).path()));
        QFile file(path);
        if (!relative.endsWith(u'/'))
            QVERIFY2(file.open(QIODevice::WriteOnly) && file.write(relative.toUtf8()) > 0,
                     qPrintable(path));
    }
}

// Every entry below `root` (outside `skip`) with its mode, link target or contents; links
// are never followed.
QStringList snapshot(const QString &root, const QString &skip = {})
{
    QStringList lines;
    for (QDirIterator it(root, anyEntry, QDirIterator::Subdirectories); it.hasNext();) {
        const QString path = it.next();
        struct stat st = {};
        if ((!skip.isEmpty() && (path == skip || path.startsWith(skip + u'/'))) ||
            ::lstat(native(path).constData(), &st) != 0)
            continue;
        QString line = path.mid(root.size()) + u' ' + QString::number(st.st_mode, 8);
        QFile file(path);
        if (S_ISLNK(st.st_mode))
            line += u" -> "_s + QFileInfo(path).symLinkTarget();
        else if (S_ISREG(st.st_mode) && file.open(QIODevice::ReadOnly))
            line += u" = "_s + QString::fromUtf8(file.readAll());
        lines << line;
    }
    lines.sort();
    return lines;
}

// A chain of `depth` folders named "deep" then `nameLength` × 'd', each holding a file and
// every 100th a side folder. Built through descriptors: its path is too long for path calls.
bool buildDeep(const QString &filesPath, int depth, int nameLength, bool readOnlyLevels)
{
    const QByteArray name(nameLength, 'd');
    int fd = ::open(native(filesPath).constData(), O_RDONLY | O_DIRECTORY);
    bool ok = fd >= 0 && ::mkdirat(fd, "deep", 0700) == 0;
    for (int level = 0; ok && level <= depth; ++level) {
        const int next = ::openat(fd, level == 0 ? "deep" : name.constData(), O_RDONLY);
        ::close(fd);
        fd = next;
        const int file = fd >= 0 ? ::openat(fd, "f", O_WRONLY | O_CREAT | O_EXCL, 0400) : -1;
        ok = file >= 0 && ::close(file) == 0 && ::mkdirat(fd, name.constData(), 0700) == 0;
        if (ok && level % 100 == 0)
            ok = ::mkdirat(fd, "side", 0700) == 0 && ::mkdirat(fd, "side/inner", 0700) == 0;
        if (ok && readOnlyLevels && level % 7 == 3)
            ok = ::fchmod(fd, 0500) == 0;
    }
    if (fd >= 0)
        ::close(fd);
    return ok;
}

} // namespace

class EmptyTrashTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> m_home;
    QStringList m_immutable;
    QStringList m_mounts;
    bool m_droppedRoot = false;

    QString trash() const
    {
        const QString dataHome = qEnvironmentVariable("XDG_DATA_HOME");
        return dataHome.isEmpty() ? m_home->file(u".local/share/Trash"_s) : dataHome + u"/Trash"_s;
    }
    QString files() const { return trash() + u"/files"_s; }
    QString info() const { return trash() + u"/info"_s; }
    QString home(const QString &relative) const
    {
        return relative.isEmpty() ? m_home->path() : m_home->file(relative);
    }

    void useDataHome(const QString &relative)
    {
        if (!relative.isEmpty())
            qputenv("XDG_DATA_HOME", native(home(relative)));
    }

    // Builds `layout` in a scratch folder and trashes each top-level entry the app's way.
    void trashLayout(const QStringList &layout)
    {
        const QString work = home(u"work"_s);
        build(work, layout);
        for (const QString &name : entries(work))
            QVERIFY2(Platform::moveToTrash(work + u'/' + name, u"/"_s,
                                           Locations::fromEnvironment().userFolders())
                         .moved,
                     qPrintable(name));
    }

    // Hands the home to an unprivileged user and becomes it, so permission bits hold for a
    // root run too. Empty when done, else why it cannot be arranged.
    QString dropRoot()
    {
        if (::geteuid() != 0)
            return {};
        bool chowned = ::lchown(native(m_home->path()).constData(), nobody, nobody) == 0;
        for (QDirIterator it(m_home->path(), anyEntry, QDirIterator::Subdirectories); it.hasNext();)
            chowned = ::lchown(native(it.next()).constData(), nobody, nobody) == 0 && chowned;
        if (!chowned || ::seteuid(nobody) != 0)
            return u"cannot hand the home to an unprivileged user"_s;
        m_droppedRoot = true;
        if (::access(native(m_home->path()).constData(), W_OK | X_OK) != 0)
            return u"an unprivileged user cannot reach the temporary home"_s;
        return {};
    }

private Q_SLOTS:
    void initTestCase()
    {
#ifndef Q_OS_LINUX
        QSKIP("emptying there is the system's own and reaches the real user's Trash");
#endif
        m_home = std::make_unique<TestHome>();
    }

    void init()
    {
        qunsetenv("XDG_DATA_HOME");
        for (const QString &name : entries(m_home->path())) {
            const QString path = m_home->file(name);
            if (!QFile::remove(path))
                QDir(path).removeRecursively();
            QVERIFY2(!entryExists(path), qPrintable(path));
        }
    }

    void cleanup()
    {
        if (m_droppedRoot)
            QVERIFY(::seteuid(0) == 0);
        m_droppedRoot = false;
        for (const QString &path : std::as_const(m_mounts))
            QProcess::execute(u"umount"_s, {path});
        m_mounts.clear();
        for (const QString &path : std::as_const(m_immutable))
            QProcess::execute(u"chattr"_s, {u"-i"_s, path});
        m_immutable.clear();
        L10n::overrideForTesting(false);
        for (QDirIterator it(m_home->path(), QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden,
                             QDirIterator::Subdirectories);
             it.hasNext();)
            ::chmod(native(it.next()).constData(), 0700);
    }

    // A Trash never created is already empty; one leading out of its place is refused. Either
    // way nothing anywhere changes.
    void touchesNothingWhenAbsentOrElsewhere_data()
    {
        QTest::addColumn<QString>("dataHome");
        QTest::addColumn<QStringList>("layout"); // below the home
        QTest::addColumn<QString>("link");       // below the home, to `target`; none if empty
        QTest::addColumn<QString>("target");
        QTest::addColumn<int>("remaining"); // 0: emptied
        const auto row = [](const char *name, const QString &dataHome, const QStringList &layout,
                            const QString &link, const QString &target, int remaining) {
            QTest::newRow(name) << dataHome << layout << link << target << remaining;
        };
        const QString trash = u".local/share/Trash/"_s;

        row("never created", {}, {}, {}, {}, 0);
        row("no files folder", {}, {trash + u"info/old.trashinfo"_s}, {}, {}, 0);
        row("data home without Trash", u"data"_s, {u"data/"_s}, {}, {}, 0);
        row("a file where a folder belongs", {}, {u".local"_s}, {}, {}, 0);
        row("files links elsewhere", {},
            {u"elsewhere/a.txt"_s, u"elsewhere/sub/b.txt"_s, trash + u"info/a.txt.trashinfo"_s},
            trash + u"files"_s, u"elsewhere"_s, 1);
        row("files links to the home", {}, {u"work/w.txt"_s, trash + u"info/work.trashinfo"_s},
            trash + u"files"_s, {}, 1);
        row("info links elsewhere", {},
            {trash + u"files/a.txt"_s, trash + u"files/b/"_s, u"elsewhere/a.txt.trashinfo"_s,
             u"elsewhere/b.trashinfo"_s},
            trash + u"info"_s, u"elsewhere"_s, 2);
        row("Trash leads out of the data home", u"data"_s,
            {u"data/"_s, u"other/Trash/files/a.txt"_s, u"other/Trash/info/a.txt.trashinfo"_s},
            u"data/Trash"_s, u"other/Trash"_s, 1);
        row("Trash is the home", {}, {u".local/share/"_s, u"work/w.txt"_s}, u".local/share/Trash"_s,
            {}, 1);
    }

    void touchesNothingWhenAbsentOrElsewhere()
    {
        QFETCH(QString, dataHome);
        QFETCH(QStringList, layout);
        QFETCH(QString, link);
        QFETCH(QString, target);
        QFETCH(int, remaining);
        useDataHome(dataHome);
        build(m_home->path(), layout);
        if (!link.isEmpty())
            QVERIFY(QFile::link(home(target), home(link)));
        const QStringList before = snapshot(m_home->path());

        const Platform::TrashEmptying result = emptyCounted();

        QCOMPARE(result.emptied, remaining == 0);
        QCOMPARE(result.remaining, remaining);
        QVERIFY(!result.scriptFailed);
        QCOMPARE(snapshot(m_home->path()), before);
        QCOMPARE(outcome(), remaining == 0 ? emptied : remainText(remaining, false));
        QCOMPARE(snapshot(m_home->path()), before);
    }

    void removesEntriesWithTheirInfo_data()
    {
        QTest::addColumn<QStringList>("layout");
        QTest::addColumn<QStringList>("modes"); // "path=octal" below the Trash, in this order
        QTest::addColumn<QString>("dataHome");
        const auto row = [](const char *name, const QStringList &layout,
                            const QStringList &modes = {}, const QString &dataHome = {}) {
            QTest::newRow(name) << layout << modes << dataHome;
        };

        row("file", {u"notes.txt"_s});
        row("hidden file", {u".bashrc"_s});
        row("spaces and Chinese", {u"报告 2024.txt"_s});
        row("empty folder", {u"empty/"_s});
        row("folder", {u"cache/a.txt"_s, u"cache/b.bin"_s});
        row("hidden entries", {u".config/.hidden"_s, u".config/.sub/.x"_s, u".p"_s});
        row("nested tree",
            {u"tree/a/b/c/d/e.txt"_s, u"tree/a/b2/"_s, u"tree/a/.h/f"_s, u"tree/top.txt"_s});
        row("several", {u"one.txt"_s, u"two/x"_s, u"three/"_s});
        row("XDG data home", {u"n.txt"_s, u"box/in.txt"_s}, {}, u"data"_s);
        // Run unprivileged: permission bits do not stop root.
        row("0500 folder", {u"box/a.txt"_s, u"box/b.txt"_s}, {u"files/box=500"_s});
        row("0555 tree", {u"box/x/y/z.txt"_s, u"box/x/w.txt"_s},
            {u"files/box/x/y=555"_s, u"files/box/x=555"_s, u"files/box=555"_s});
        row("read-only file in a read-only folder", {u"box/r.txt"_s},
            {u"files/box/r.txt=444"_s, u"files/box=500"_s});
        row("unreadable folder", {u"box/secret/s.txt"_s}, {u"files/box/secret=0"_s});
        row("write-only folder", {u"box/w/f"_s}, {u"files/box/w=300"_s});
        row("search-only folder", {u"box/x/f"_s}, {u"files/box/x=100"_s});
        row("read-only files folder", {u"a.txt"_s, u"box/b"_s}, {u"files=500"_s});
        row("read-only info folder", {u"a.txt"_s}, {u"info=500"_s});
    }

    void removesEntriesWithTheirInfo()
    {
        QFETCH(QStringList, layout);
        QFETCH(QStringList, modes);
        QFETCH(QString, dataHome);
        useDataHome(dataHome);
        build(home(u"elsewhere"_s), {u"sibling.txt"_s, u"folder/inside.txt"_s});
        trashLayout(layout);
        build(trash(), {u"info/orphan.trashinfo"_s, u"unrelated.txt"_s});
        const QStringList trashed = entries(files());
        QVERIFY(!trashed.isEmpty());
        for (const QString &name : trashed)
            QVERIFY(entryExists(info() + u'/' + name + u".trashinfo"_s));
        QCOMPARE(DiskScanner::trashSize(here()).value_or(TrashSize{}).count, int(trashed.size()));
        const QStringList outside = snapshot(m_home->path(), trash());
        for (const QString &entry : modes) {
            const QByteArray path = native(trash() + u'/' + entry.section(u'=', 0, 0));
            QVERIFY(::chmod(path.constData(), entry.section(u'=', 1).toUInt(nullptr, 8)) == 0);
        }
        if (const QString reason = modes.isEmpty() ? QString() : dropRoot(); !reason.isEmpty())
            QSKIP(qPrintable(reason));

        QCOMPARE(outcome(), emptied);

        QCOMPARE(entries(files()), QStringList());
        QCOMPARE(entries(info()), QStringList{u"orphan.trashinfo"_s});
        QCOMPARE(entries(trash()), (QStringList{u"files"_s, u"info"_s, u"unrelated.txt"_s}));
        QCOMPARE(snapshot(m_home->path(), trash()), outside);
        const std::optional<TrashSize> size = DiskScanner::trashSize(here());
        QVERIFY(size.has_value());
        QCOMPARE(size->bytes, qint64(0));
        QCOMPARE(size->count, 0);
    }

    // Only what was counted goes: an entry restored or replaced after the count, or one that
    // arrived, stays whole; a record whose item was gone before the count goes.
    void onlyCountedEntriesGo_data()
    {
        QTest::addColumn<QString>("change"); // done between counting and emptying
        QTest::addColumn<int>("kept");
        QTest::newRow("restored") << u"restored"_s << 0;
        QTest::newRow("replaced under the same name") << u"replaced"_s << 1;
        QTest::newRow("arrived") << u"arrived"_s << 1;
    }

    void onlyCountedEntriesGo()
    {
        QFETCH(QString, change);
        QFETCH(int, kept);
        trashLayout({u"box/a.txt"_s, u"box/sub/b.txt"_s, u"gone.txt"_s});
        build(info(), {u"stale.trashinfo"_s, u"fresh.trashinfo"_s});
        const QByteArray stale = native(info() + u"/stale.trashinfo"_s);
        const timespec old[2] = {{0, UTIME_OMIT}, {::time(nullptr) - 3600, 0}};
        QVERIFY(::utimensat(AT_FDCWD, stale.constData(), old, 0) == 0);
        const std::optional<Platform::TrashContents> confirmed = counted();
        QVERIFY(confirmed && confirmed->entries.size() == 2);

        const QString restored = home(u"restored"_s);
        if (change == u"restored")
            QVERIFY(::rename(native(files() + u"/box"_s).constData(),
                             native(restored).constData()) == 0);
        if (change == u"replaced") {
            QVERIFY(::rename(native(files() + u"/box"_s).constData(),
                             native(restored).constData()) == 0);
            build(files(), {u"box/new.txt"_s});
        }
        if (change == u"arrived")
            trashLayout({u"late.txt"_s});
        const QStringList keptTree = snapshot(files() + u"/box"_s);

        const Platform::TrashEmptying result =
            Platform::emptyTrash(confirmed, Locations::fromEnvironment().userFolders());

        QVERIFY(result.emptied);
        QCOMPARE(result.remaining, 0);
        QCOMPARE(result.kept, kept);
        QVERIFY(!entryExists(files() + u"/gone.txt"_s));
        QVERIFY(!entryExists(info() + u"/stale.trashinfo"_s));
        QVERIFY(entryExists(info() + u"/fresh.trashinfo"_s));
        QVERIFY(!entryExists(trash() + u"/expunged"_s));
        if (change != u"arrived")
            QCOMPARE(snapshot(restored).size(), 3);
        if (change == u"replaced")
            QCOMPARE(snapshot(files() + u"/box"_s), keptTree);
        if (change == u"arrived")
            QCOMPARE(entries(files()), QStringList{u"late.txt"_s});
    }

    // A restore racing the emptying either wins, and gets the whole folder back, or loses, and
    // finds it gone; it never finds its folder emptied at its new place.
    void restoreRacingTheEmptying()
    {
        QStringList layout;
        for (int i = 0; i < 400; ++i)
            layout << u"box/d%1/f"_s.arg(i % 20) + QString::number(i);
        QElapsedTimer clock;
        clock.start();
        for (int round = 0; round < 10 && clock.elapsed() < 5000; ++round) {
            trashLayout(layout);
            const std::optional<Platform::TrashContents> confirmed = counted();
            const QString restored = home(u"restored%1"_s.arg(round));
            std::atomic<bool> started{false};
            std::thread emptying([&] {
                started = true;
                Platform::emptyTrash(confirmed, Locations::fromEnvironment().userFolders());
            });
            while (!started)
                std::this_thread::yield();
            for (int spin = 0; spin < round * 200; ++spin)
                std::this_thread::yield();
            const bool won = ::rename(native(files() + u"/box"_s).constData(),
                                      native(restored).constData()) == 0;
            emptying.join();
            if (won)
                QCOMPARE(snapshot(restored).size(), 20 + 400);
            QCOMPARE(entries(files()), QStringList());
        }
    }

    void linksAreRemovedNotFollowed_data()
    {
        QTest::addColumn<QString>("at");     // below files/
        QTest::addColumn<QString>("target"); // "~" is the home

        QTest::newRow("to a file") << u"link"_s << u"~/outside/target.txt"_s;
        QTest::newRow("to a folder") << u"link"_s << u"~/outside/folder"_s;
        QTest::newRow("to a folder, relative") << u"link"_s << u"../../../../outside/folder"_s;
        QTest::newRow("to a folder, slash-ended") << u"link"_s << u"~/outside/folder/"_s;
        QTest::newRow("inside a trashed folder") << u"box/link"_s << u"~/outside/folder"_s;
        QTest::newRow("to the home, deep down") << u"box/deep/home"_s << u"~"_s;
        QTest::newRow("dangling") << u"gone"_s << u"~/outside/missing"_s;
    }

    void linksAreRemovedNotFollowed()
    {
        QFETCH(QString, at);
        QFETCH(QString, target);
        build(home(u"outside"_s), {u"target.txt"_s, u"folder/a.txt"_s, u"folder/sub/b.txt"_s});
        QVERIFY(::chmod(native(home(u"outside/folder/sub"_s)).constData(), 0500) == 0);
        build(info(), {at.section(u'/', 0, 0) + u".trashinfo"_s});
        QVERIFY(QDir().mkpath(QFileInfo(files() + u'/' + at).path()));
        const QString resolved = target.startsWith(u'~') ? m_home->path() + target.mid(1) : target;
        QVERIFY(::symlink(native(resolved).constData(), native(files() + u'/' + at).constData()) ==
                0);
        const QStringList outside = snapshot(m_home->path(), trash());

        QCOMPARE(outcome(), emptied);

        QCOMPARE(entries(files()), QStringList());
        QCOMPARE(entries(info()), QStringList());
        QCOMPARE(snapshot(m_home->path(), trash()), outside);
        const QString kept = outside.filter(u"/outside/folder/sub/b.txt "_s).value(0);
        QVERIFY2(kept.endsWith(u" = folder/sub/b.txt"_s), qPrintable(kept));
    }

    // What is mounted inside the Trash, here the outside folder bound into it, is not the
    // Trash's: it stays, and so does the entry holding it.
    void mountsInsideAreLeftAlone_data()
    {
        QTest::addColumn<QString>("at"); // below files/
        QTest::newRow("as an entry") << u"mnt"_s;
        QTest::newRow("inside a folder") << u"box/mnt"_s;
    }

    void mountsInsideAreLeftAlone()
    {
        QFETCH(QString, at);
        const QString top = at.section(u'/', 0, 0);
        build(home(u"outside"_s), {u"a.txt"_s, u"sub/b.txt"_s});
        build(files(), {at + u'/', u"other.txt"_s, u"box/free.txt"_s});
        build(info(), {top + u".trashinfo"_s, u"other.txt.trashinfo"_s, u"box.trashinfo"_s});
        const QString mountPoint = files() + u'/' + at;
        if (QProcess::execute(u"mount"_s, {u"--bind"_s, home(u"outside"_s), mountPoint}) != 0)
            QSKIP("bind mounts need CAP_SYS_ADMIN");
        m_mounts << mountPoint;
        const QStringList outside = snapshot(home(u"outside"_s));

        const Platform::TrashEmptying result = emptyCounted();

        QVERIFY(!result.emptied);
        QCOMPARE(result.remaining, 1);
        QCOMPARE(entries(files()), QStringList{top});
        QCOMPARE(entries(info()), QStringList{top + u".trashinfo"_s});
        QVERIFY(!entryExists(files() + u"/box/free.txt"_s));
        QCOMPARE(snapshot(home(u"outside"_s)), outside);
        QCOMPARE(snapshot(mountPoint), outside);
    }

    void partialFailureIsCounted_data()
    {
        QTest::addColumn<QStringList>("layout");
        QTest::addColumn<QStringList>("immutable"); // below files/
        QTest::addColumn<QStringList>("survivors"); // below files/; the rest must go
        const auto row = [](const char *name, const QStringList &layout,
                            const QStringList &immutable, const QStringList &survivors) {
            QTest::newRow(name) << layout << immutable << survivors;
        };

        row("immutable file", {u"stuck.txt"_s, u"free.txt"_s, u"box/in.txt"_s}, {u"stuck.txt"_s},
            {u"stuck.txt"_s});
        row("immutable file in a folder",
            {u"box/a.txt"_s, u"box/sub/stuck.txt"_s, u"box/sub/b.txt"_s, u"f.txt"_s},
            {u"box/sub/stuck.txt"_s}, {u"box"_s, u"box/sub"_s, u"box/sub/stuck.txt"_s});
        row("immutable folder and file", {u"one.txt"_s, u"two/f"_s, u"three.txt"_s, u"four/"_s},
            {u"one.txt"_s, u"two"_s}, {u"one.txt"_s, u"two"_s, u"two/f"_s});
        // Deeper than the folders held open: the way back up reopens folders and reads them
        // again, where what stayed must not be entered again and again.
        QStringList chain{u"box"_s};
        for (int level = 0; level < 40; ++level)
            chain << chain.last() + u"/d"_s;
        const QString stuck = chain.last() + u"/stuck.txt"_s;
        row("immutable file below the held folders",
            {stuck, u"box/free.txt"_s, chain.at(20) + u"/free.txt"_s}, {stuck},
            chain + QStringList{stuck});
    }

    void partialFailureIsCounted()
    {
        QFETCH(QStringList, layout);
        QFETCH(QStringList, immutable);
        QFETCH(QStringList, survivors);
        trashLayout(layout);
        for (const QString &path : immutable) {
            if (QProcess::execute(u"chattr"_s, {u"+i"_s, files() + u'/' + path}) != 0)
                QSKIP("chattr +i needs CAP_LINUX_IMMUTABLE and a file system that supports it");
            m_immutable << files() + u'/' + path;
        }
        QStringList top = survivors.filter(QRegularExpression(u"^[^/]+$"_s));
        top.sort();
        QStringList infos;
        for (const QString &name : std::as_const(top))
            infos << name + u".trashinfo"_s;

        const Platform::TrashEmptying result = emptyCounted();

        QVERIFY(!result.emptied);
        QCOMPARE(result.remaining, int(top.size()));
        QCOMPARE(entries(files()), top);
        QCOMPARE(entries(info()), infos);
        for (const QString &path : std::as_const(survivors))
            QVERIFY2(entryExists(files() + u'/' + path), qPrintable(path));
        for (QString path : std::as_const(layout)) {
            path.chop(path.endsWith(u'/') ? 1 : 0);
            QVERIFY2(survivors.contains(path) || !entryExists(files() + u'/' + path),
                     qPrintable(path));
        }
        for (const bool zh : {false, true}) {
            L10n::overrideForTesting(zh);
            QCOMPARE(outcome(), remainText(int(top.size()), zh));
        }
        QCOMPARE(DiskScanner::trashSize(here()).value_or(TrashSize{}).count, int(top.size()));
    }

    void deepTreeIsRemoved_data()
    {
        QTest::addColumn<int>("depth");
        QTest::addColumn<int>("nameLength");
        QTest::addColumn<bool>("readOnlyLevels");

        QTest::newRow("short names") << 2500 << 1 << false;
        QTest::newRow("long names") << 40 << 200 << false;
        QTest::newRow("read-only levels") << 2100 << 1 << true;
    }

    void deepTreeIsRemoved()
    {
        QFETCH(int, depth);
        QFETCH(int, nameLength);
        QFETCH(bool, readOnlyLevels);
        QVERIFY(depth * (nameLength + 1) > PATH_MAX);
        build(trash(), {u"files/"_s, u"info/deep.trashinfo"_s});
        if (const QString reason = readOnlyLevels ? dropRoot() : QString(); !reason.isEmpty())
            QSKIP(qPrintable(reason));
        QVERIFY(buildDeep(files(), depth, nameLength, readOnlyLevels));

        // Far fewer descriptors than the tree has levels: held folders must stay bounded.
        const qsizetype open = entries(u"/proc/self/fd"_s).size();
        rlimit saved = {};
        QVERIFY(::getrlimit(RLIMIT_NOFILE, &saved) == 0);
        rlimit tight = saved;
        tight.rlim_cur = rlim_t(open + 64);
        QVERIFY(::setrlimit(RLIMIT_NOFILE, &tight) == 0);
        const Platform::TrashEmptying result = emptyCounted();
        QVERIFY(::setrlimit(RLIMIT_NOFILE, &saved) == 0);

        QVERIFY(result.emptied);
        QCOMPARE(result.remaining, 0);
        QCOMPARE(entries(u"/proc/self/fd"_s).size(), open);
        QCOMPARE(entries(files()), QStringList());
        QCOMPARE(entries(info()), QStringList());
        QCOMPARE(DiskScanner::trashSize(here()).value_or(TrashSize{-1, -1, {}}).count, 0);
    }
};

QTEST_GUILESS_MAIN(EmptyTrashTest)
#include "tst_emptytrash.moc"

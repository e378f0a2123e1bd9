#include "common/TestHome.h"
#include "core/disk/DiskScanner.h"
#include "core/system/RealSystem.h"
#include "platform/Trash.h"

#include <QDirIterator>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QStorageInfo>
#include <QtTest>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using Platform::TrashFailure;

namespace {

// A fixed zone east of UTC: a DeletionDate written in UTC cannot pass for local time.
constexpr const char *testZone = "QRV-05:30";
constexpr uid_t nobody = 65534;
constexpr auto anyEntry = QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System;

constexpr auto native = &QFile::encodeName;

// The entry itself, a dangling link included; -1 when there is none.
int modeOf(const QString &path)
{
    struct stat st = {};
    return ::lstat(native(path).constData(), &st) == 0 ? int(st.st_mode & 07777) : -1;
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// "a/b/" makes a folder, "a>b" a link to b ("~" is the home), "a/b" a file holding its name.
void build(const QString &root, const QStringList &layout)
{
    QVERIFY(QDir().mkpath(root));
    for (const QString &relative : layout) {
        const QString path = root + u'/' + relative.section(u'>', 0, 0);
        QString target = relative.section(u'>', 1);
        QFile file(path);
        const bool folder = target.isEmpty() && path.endsWith(u'/');
        QVERIFY(QDir().mkpath(folder ? path : QFileInfo(path).path()));
        if (!target.isEmpty())
            QVERIFY(::symlink(native(target.replace(u'~', QDir::homePath())).constData(),
                              native(path).constData()) == 0);
        else if (!folder)
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(relative.toUtf8()) > 0);
    }
}

// Every entry below `root` (outside `skip`) with its mode and link target or contents.
QStringList snapshot(const QString &root, const QString &skip = {})
{
    QStringList lines;
    for (QDirIterator it(root, anyEntry, QDirIterator::Subdirectories); it.hasNext();) {
        const QString path = it.next();
        if (!skip.isEmpty() && (path == skip || path.startsWith(skip + u'/')))
            continue;
        lines << path.mid(root.size()) + u' ' + QString::number(modeOf(path), 8) +
                     (it.fileInfo().isSymLink() ? u" -> "_s + it.fileInfo().symLinkTarget()
                                                : u" = "_s + QString::fromUtf8(readFile(path)));
    }
    lines.sort();
    return lines;
}

// Where the record beside files/<name>, info/<name>.trashinfo, says the item came from.
QString recorded(const QString &trashedPath)
{
    const QFileInfo item(trashedPath);
    const QString info = QFileInfo(item.path()).path() + u"/info/"_s + item.fileName();
    const QByteArray path = readFile(info + u".trashinfo"_s).split('\n').value(1).mid(5);
    return QFile::decodeName(QByteArray::fromPercentEncoding(path));
}

// What the Trash holds now, as a confirmation counts it.
std::optional<Platform::TrashContents> counted()
{
    const auto size = DiskScanner::trashSize(RealSystem(Locations::fromEnvironment()));
    return size ? std::optional(size->contents) : std::nullopt;
}

// A chain of 300 folders below `top`, each holding a file, every 100th a side folder and every
// 7th read-only. Built through descriptors: its path is too long for path calls.
bool buildDeep(const QString &top)
{
    const char *name = "ddddddddddddddd";
    int fd = ::open(native(top).constData(), O_RDONLY | O_DIRECTORY);
    bool ok = fd >= 0;
    for (int level = 0; ok && level <= 300; ++level) {
        const int file = ::openat(fd, "f", O_WRONLY | O_CREAT | O_EXCL, 0400);
        ok = file >= 0 && ::close(file) == 0 && ::mkdirat(fd, name, 0700) == 0;
        if (ok && level % 100 == 0)
            ok = ::mkdirat(fd, "side", 0700) == 0 && ::mkdirat(fd, "side/inner", 0700) == 0;
        const int next = ::openat(fd, name, O_RDONLY);
        if (ok && level % 7 == 3)
            ok = ::fchmod(fd, 0500) == 0;
        ::close(fd);
        fd = next;
    }
    return ::close(fd) == 0 && ok;
}

} // namespace

class TrashTest : public QObject
{
    Q_OBJECT

    TestHome m_home;
    QList<QStringList> m_undo; // commands that give back what a case bound or locked
    bool m_droppedRoot = false;
    std::optional<Platform::TrashBatch> m_batch; // one per case, as a clean-up holds one

    static QStringList entries(const QString &folder) { return QDir(folder).entryList(anyEntry); }
    static Platform::UserFolders user() { return Locations::fromEnvironment().userFolders(); }
    Platform::TrashMove trashIt(const QString &path)
    {
        return (m_batch ? *m_batch : m_batch.emplace(user())).move(path, u"/"_s);
    }
    QString home(const QString &relative) const { return m_home.file(relative); }
    QString trash() const
    {
        const QString data = qEnvironmentVariable("XDG_DATA_HOME"); // honoured when absolute
        return (data.startsWith(u'/') ? data : home(u".local/share"_s)) + u"/Trash"_s;
    }
    QString files() const { return trash() + u"/files"_s; }
    QString info() const { return trash() + u"/info"_s; }

    // Builds `layout` in a scratch folder and trashes each top-level entry the app's way.
    void trashLayout(const QStringList &layout)
    {
        build(home(u"work"_s), layout);
        const qsizetype open =
            entries(u"/proc/self/fd"_s).size(); // a batch keeps none past its end
        for (const QString &name : entries(home(u"work"_s)))
            QVERIFY2(trashIt(home(u"work/"_s + name)).moved, qPrintable(name));
        m_batch.reset();
        QCOMPARE(entries(u"/proc/self/fd"_s).size(), open);
    }

    // Hands the home to an unprivileged user and becomes it, so that permission bits hold for
    // root too. False when that cannot be done.
    bool dropRoot()
    {
        if (::geteuid() != 0)
            return true;
        bool chowned = ::lchown(native(m_home.path()).constData(), nobody, nobody) == 0;
        for (QDirIterator it(m_home.path(), anyEntry, QDirIterator::Subdirectories); it.hasNext();)
            chowned = ::lchown(native(it.next()).constData(), nobody, nobody) == 0 && chowned;
        m_droppedRoot = chowned && ::seteuid(nobody) == 0;
        return m_droppedRoot;
    }

private Q_SLOTS:
    void initTestCase()
    {
#ifndef Q_OS_LINUX
        QSKIP("the system's own Trash there is the real user's");
#endif
        qputenv("TZ", testZone);
        // Far fewer descriptors than a deep tree has levels: held folders must stay bounded.
        const rlimit tight = {128, 128};
        QVERIFY(::setrlimit(RLIMIT_NOFILE, &tight) == 0);
    }

    void init()
    {
        m_batch.reset();
        qunsetenv("XDG_DATA_HOME");
        for (const QString &name : entries(m_home.path()))
            QVERIFY(QFile::remove(home(name)) || QDir(home(name)).removeRecursively());
    }

    void cleanup()
    {
        QVERIFY(!std::exchange(m_droppedRoot, false) || ::seteuid(0) == 0);
        QDir::setCurrent(m_home.path());
        for (const QStringList &command : std::exchange(m_undo, {}))
            QProcess::execute(command.first(), command.mid(1));
        // Read-only folders a case left must not stop the next init.
        QProcess::execute(u"chmod"_s, {u"-R"_s, u"u+rwx"_s, m_home.path()});
    }

    void movesIntoHomeTrash_data()
    {
        QTest::addColumn<QString>("given");    // the item's name, maybe with trailing slashes
        QTest::addColumn<QString>("kind");     // "file", "folder", or "link " and what it leads to
        QTest::addColumn<QString>("dataHome"); // "/…" is below the home
        QTest::addColumn<QStringList>("stored"); // the names of items moved one after another
        QTest::addColumn<QStringList>("strays"); // already in the Trash, relative to it
        const auto row = [](const char *tag, const QString &given, const QStringList &stored,
                            const QString &kind = u"file"_s, const QString &dataHome = {},
                            const QStringList &strays = {}) {
            QTest::newRow(tag) << given << kind << dataHome
                               << (stored.isEmpty() ? QStringList{given} : stored) << strays;
        };
        row("files, URL delimiters, space, Chinese", u"a b%c#?&=+; 中.txt"_s,
            {u"a b%c#?&=+; 中.txt"_s, u"a b%c#?&=+; 中.2.txt"_s, u"a b%c#?&=+; 中.3.txt"_s});
        row("folders given with slashes, XDG_DATA_HOME", u"cache//"_s, {u"cache"_s, u"cache.2"_s},
            u"folder"_s, u"/d/h"_s);
        row("links to files, given with slash, relative XDG_DATA_HOME ignored", u"link/"_s,
            {u"link"_s, u"link.2"_s}, u"link file"_s, u"d/h"_s);
        row("link to a folder, given with slash", u"link/"_s, {u"link"_s}, u"link folder"_s);
        row("dangling link", u"link"_s, {}, u"link none"_s);
        row("leading dot only", u".bashrc"_s, {u".bashrc"_s, u".bashrc.2"_s, u".bashrc.3"_s});
        row("trailing dot", u"log."_s, {u"log."_s, u"log..2"_s});
        row("two extensions", u"a.tar.gz"_s, {u"a.tar.gz"_s, u"a.tar.2.gz"_s});
        const QString x = u"a."_s + QString(150, u'x');
        row("extension longer than half a name", x, {x, x + u".2"_s});
        // A file without its record and a record without its file both keep their names.
        row("past stray entries", u"a.txt"_s, {u"a.3.txt"_s, u"a.4.txt"_s}, u"file"_s, {},
            {u"files/a.txt"_s, u"info/a.2.txt.trashinfo"_s});
        // 253 bytes, too long with ".trashinfo": the stem gives way, whole characters at a time.
        const auto wen = [](int count) { return QString(count, QChar(0x6587)); };
        row("too long for its record", wen(83) + u".txt"_s,
            {wen(80) + u".txt"_s, wen(79) + u".2.txt"_s, wen(79) + u".3.txt"_s});
    }

    // Each entry moves, a link as itself, under a name of its own with a record of its place.
    // The Trash is made private, ~/.local included, in the home: never in the current folder.
    void movesIntoHomeTrash()
    {
        QFETCH(QString, given);
        QFETCH(QString, kind);
        QFETCH(QString, dataHome);
        QFETCH(QStringList, stored);
        QFETCH(QStringList, strays);
        const QString name = QString(given).remove(QRegularExpression(u"/+$"_s));
        const bool absolute = dataHome.startsWith(u'/'), link = kind.startsWith(u"link");
        qputenv("XDG_DATA_HOME", absolute ? native(m_home.path() + dataHome) : native(dataHome));
        QCOMPARE(Platform::homeTrashItemsPath(user()), files());
        QVERIFY2(modeOf(trash()) < 0, "asking for the path must not create the Trash");
        if (!strays.isEmpty())
            build(trash(), strays);
        QVERIFY(QDir().mkpath(home(u"work/cwd"_s)) && QDir::setCurrent(home(u"work/cwd"_s)));
        const QString target = kind == u"link none" ? u"gone"_s : u"target"_s;
        const QString inside = kind.endsWith(u"folder") ? u"/inside.txt"_s : QString();
        for (int i = 0; i < stored.size(); ++i) {
            const QString at = u"%1/"_s.arg(i), made = at + (link ? target : name) + inside;
            build(home(u"work"_s), {kind == u"link none" ? u"cwd/"_s : made,
                                    link ? at + name + u">~/work/"_s + at + target : u"cwd/"_s});
            const Platform::TrashMove move = trashIt(u"../"_s + at + given);
            QCOMPARE(move.trashedPath, files() + u'/' + stored.at(i));
            QCOMPARE(recorded(move.trashedPath), home(u"work/"_s + at + name));
            QCOMPARE(modeOf(home(u"work/"_s + at + name)), -1);
            QCOMPARE(QFileInfo(move.trashedPath).symLinkTarget(),
                     link ? home(u"work/"_s + at + target) : QString());
            QVERIFY(kind == u"link none" ||
                    readFile(link ? home(u"work/"_s + made) : move.trashedPath + inside) ==
                        made.toUtf8());
        }
        // Names claimed and given up again leave no record behind.
        QCOMPARE(entries(files()).size() + entries(info()).size(),
                 2 * stored.size() + strays.size());
        for (QString folder = files(); strays.isEmpty() && folder != m_home.path();
             folder = QFileInfo(folder).path())
            QVERIFY2(modeOf(folder) == 0700 && modeOf(info()) == 0700, qPrintable(folder));

        const QList<QByteArray> lines =
            readFile(info() + u'/' + stored.first() + u".trashinfo"_s).split('\n');
        QCOMPARE(lines.value(0), "[Trash Info]");
        QVERIFY2(lines.value(1).endsWith('/' + name.toUtf8().toPercentEncoding()),
                 lines.value(1).constData());
        const QDateTime deleted = QDateTime::fromString(QString::fromLatin1(lines.value(2)),
                                                        u"'DeletionDate='yyyy-MM-dd'T'HH:mm:ss"_s);
        QVERIFY2(qAbs(deleted.secsTo(QDateTime::currentDateTime())) <= 2, lines.value(2).data());
    }

    void refusedMoveChangesNothing_data()
    {
        QTest::addColumn<QString>("path");     // "~" stands for the home
        QTest::addColumn<QString>("obstacle"); // the tag: "file:" where a folder is, "read-only:"
        QTest::addColumn<TrashFailure>("failure");
        QTest::addColumn<int>("errorCode");
        const auto row = [](const QByteArray &tag, const QString &path, TrashFailure failure,
                            int errorCode, bool obstacle = false) {
            QTest::newRow(tag.constData())
                << path << (obstacle ? QString::fromUtf8(tag) : QString()) << failure << errorCode;
        };
        using enum TrashFailure;
        row("missing", u"~/work/none"_s, missing, ENOENT);
        row("empty path", QString(), missing, ENOENT);
        row("NUL inside", u"~/work/a"_s + QChar(u'\0') + u"b"_s, other, EINVAL);
        row("through a linked folder", u"~/work/via/item.txt"_s, other, ELOOP);
        row("name over NAME_MAX", u"~/work/"_s + QString(300, u'n'), nameTooLong, ENAMETOOLONG);
        row("an item in the Trash", u"~/.local/share/Trash/files/a"_s, other, EINVAL);
        row("a folder holding the Trash", u"~/.local"_s, other, EINVAL);
        // An unusable Trash leaves the item where it is.
        for (const char *at : {".local", ".local/share", ".local/share/Trash",
                               ".local/share/Trash/files", ".local/share/Trash/info"})
            row("file:"_ba + at, u"~/work/real/item.txt"_s, noTrash, ENOTDIR, true);
        for (const char *at : {".local/share/Trash/files", ".local/share/Trash/info", "work/real"})
            row("read-only:"_ba + at, u"~/work/real/item.txt"_s, permissionDenied, EACCES, true);
    }

    void refusedMoveChangesNothing()
    {
        QFETCH(QString, path);
        QFETCH(QString, obstacle);
        QFETCH(TrashFailure, failure);
        QFETCH(int, errorCode);
        build(home(u"work"_s), {u"a"_s, u"real/item.txt"_s, u"via>~/work/real"_s});
        const QString at = home(obstacle.section(u':', 1));
        if (obstacle.startsWith(u"file:"))
            build(m_home.path(), {obstacle.section(u':', 1)});
        else
            build(trash(), {u"files/a"_s, u"info/a.trashinfo"_s});
        if (obstacle.startsWith(u"read-only:")) {
            QVERIFY(::chmod(native(at).constData(), 0500) == 0);
            if (!dropRoot())
                QSKIP("cannot hand the home to an unprivileged user");
        }
        path.replace(u'~', m_home.path());
        const QStringList before =
            snapshot(m_home.path(), trash()) + entries(files()) + entries(info());
        const Platform::TrashMove move = trashIt(path);
        QCOMPARE(move.failure, failure);
        QCOMPARE(move.errorCode, errorCode);
        QCOMPARE(snapshot(m_home.path(), trash()) + entries(files()) + entries(info()), before);
    }

    void otherFileSystemUsesItsTopFolder_data()
    {
        QTest::addColumn<int>("shared"); // mode of a $topdir/.Trash made for the case; -1: a link
        QTest::addColumn<QString>("foreign"); // "shared" or "own": that Trash made by another user
        QTest::addColumn<QString>("lands");   // "shared", "own", or nothing: refused
        QTest::newRow("no shared .Trash") << 0 << QString() << u"own"_s;
        QTest::newRow("sticky shared .Trash") << 01777 << QString() << u"shared"_s;
        QTest::newRow("shared .Trash without sticky bit") << 0777 << QString() << u"own"_s;
        QTest::newRow("shared .Trash as a link") << -1 << QString() << u"own"_s;
        QTest::newRow("shared .Trash/$uid of another user") << 01777 << u"shared"_s << u"own"_s;
        QTest::newRow(".Trash-$uid of another user") << 0 << u"own"_s << QString();
    }

    void otherFileSystemUsesItsTopFolder()
    {
        QFETCH(int, shared);
        QFETCH(QString, foreign);
        QFETCH(QString, lands);
        // /dev/shm is usually a tmpfs of its own. Whatever this case makes there goes again.
        const QStorageInfo shm(u"/dev/shm"_s);
        if (shm.rootPath() != u"/dev/shm" || shm.device() == QStorageInfo(m_home.path()).device())
            QSKIP("/dev/shm is not the top folder of a file system apart from the home");
        const QString uid = QString::number(::geteuid()), topTrash = u"/dev/shm/.Trash"_s,
                      own = u"/dev/shm/.Trash-"_s + uid;
        if (modeOf(topTrash) >= 0 || modeOf(own) >= 0 || (!foreign.isEmpty() && ::geteuid() != 0))
            QSKIP("/dev/shm has a Trash already, or another user's needs root");
        QTemporaryDir scratch(u"/dev/shm/tst_trash-XXXXXX"_s);
        const auto removeOurs = qScopeGuard([&] {
            QVERIFY(QFile::remove(topTrash) || QDir(topTrash).removeRecursively());
            QDir(own).removeRecursively();
        });
        if (shared != 0) {
            const QString real = shared < 0 ? scratch.filePath(u"sticky"_s) : topTrash;
            QVERIFY(QDir().mkpath(real) &&
                    ::chmod(native(real).constData(), shared < 0 ? 01777 : shared) == 0);
            QVERIFY(shared > 0 || QFile::link(real, topTrash));
        }
        const QString theirs = foreign == u"own" ? own : topTrash + u'/' + uid;
        QVERIFY(foreign.isEmpty() || (QDir().mkpath(theirs) &&
                                      ::chown(native(theirs).constData(), nobody, nobody) == 0));
        build(scratch.path(), {u"in shm.txt"_s});
        const Platform::TrashMove move = trashIt(scratch.filePath(u"in shm.txt"_s));
        QCOMPARE(move.failure, lands.isEmpty() ? TrashFailure::noTrash : TrashFailure::none);
        QCOMPARE(modeOf(scratch.filePath(u"in shm.txt"_s)) >= 0, lands.isEmpty());
        if (lands.isEmpty())
            return;
        const QString expected = lands == u"shared" ? topTrash + u'/' + uid : own;
        QCOMPARE(move.trashedPath, expected + u"/files/in shm.txt"_s);
        QCOMPARE(modeOf(expected), 0700);
        // Relative to the top folder, so the record stays right wherever the volume mounts.
        QCOMPARE(recorded(move.trashedPath),
                 QFileInfo(scratch.path()).fileName() + u"/in shm.txt"_s);
    }

    // The Trash a batch holds open may go meanwhile, whole or its files/: it is made again.
    void batchOutlivesItsTrash()
    {
        build(home(u"work"_s), {u"a"_s, u"b"_s, u"c"_s});
        QVERIFY(trashIt(home(u"work/a"_s)).moved && QDir(trash()).removeRecursively());
        QVERIFY(trashIt(home(u"work/b"_s)).moved && QDir(files()).removeRecursively());
        QCOMPARE(trashIt(home(u"work/c"_s)).trashedPath, files() + u"/c"_s);
        QCOMPARE(entries(info()), QStringList({u"b.trashinfo"_s, u"c.trashinfo"_s}));
    }

    // Records written ahead of their moves: each lands with its own item, in order, and one
    // whose item does not move, or whose name or files/ is gone when it lands, is taken out.
    void batchMovesAllInOrder()
    {
        constexpr int count = 80, wiped = 40, vanishes = 50;
        build(trash(), {u"files/same.txt"_s}); // a file without its record
        QList<Platform::TrashRequest> requests;
        for (int i = 0; i < count; ++i) {
            if (i % 9 != 4) // every ninth never existed
                build(home(u"work"_s), {u"%1/same.txt"_s.arg(i)});
            requests.append({home(u"work/%1/same.txt"_s.arg(i)), u"/"_s});
        }
        const qsizetype open = entries(u"/proc/self/fd"_s).size();
        QList<Platform::TrashMove> moves;
        Platform::TrashBatch(user()).moveAll(requests, [&](qsizetype i, const auto &move) {
            QCOMPARE(i, moves.size());
            QCOMPARE(modeOf(requests.at(i).path), -1);
            QCOMPARE(modeOf(requests.value(i + 1).path) >= 0, (i + 1) % 9 != 4 && i + 1 < count);
            moves.append(move);
            if (i == wiped)
                QVERIFY(QDir(files()).removeRecursively());
            if (i + 1 == vanishes)
                QVERIFY(QFile::remove(requests.at(vanishes).path));
        });
        QCOMPARE(moves.size(), count);
        QCOMPARE(entries(u"/proc/self/fd"_s).size(), open);
        int moved = 0, landed = 0;
        for (int i = 0; i < count; ++i) {
            const bool gone = i % 9 == 4 || i == vanishes;
            QCOMPARE(moves.at(i).failure, gone ? TrashFailure::missing : TrashFailure::none);
            moved += !gone;
            if (gone || i <= wiped)
                continue;
            ++landed;
            QCOMPARE(readFile(moves.at(i).trashedPath), u"%1/same.txt"_s.arg(i).toUtf8());
            QCOMPARE(recorded(moves.at(i).trashedPath), requests.at(i).path);
        }
        QCOMPARE(entries(files()).size(), landed);
        QCOMPARE(entries(info()).size(), moved); // the moved ones' records, no more
    }

    // Two movers of items of one name: each item lands whole under a name of its own.
    void concurrentMovesNeverOverwrite()
    {
        for (int i = 0; i < 100; ++i)
            build(home(u"work"_s), {u"%1/same.txt"_s.arg(i)});
        QList<Platform::TrashMove> moves(100);
        const auto run = [&, out = moves.data()](int first) {
            for (int i = first; i < 100; i += 2)
                out[i] = Platform::moveToTrash(home(u"work/%1/same.txt"_s.arg(i)), u"/"_s, user());
        };
        std::jthread(run, 0), std::jthread(run, 1); // both joined at the end of the line
        for (int i = 0; i < 100; ++i) {
            QCOMPARE(readFile(moves.at(i).trashedPath), u"%1/same.txt"_s.arg(i).toUtf8());
            QCOMPARE(recorded(moves.at(i).trashedPath), home(u"work/%1/same.txt"_s.arg(i)));
        }
        QCOMPARE(entries(info()).size() + entries(files()).size(), 200);
    }

    void emptyingRemovesTheTrashOnly_data()
    {
        QTest::addColumn<QString>("dataHome");
        QTest::addColumn<QStringList>("layout");  // below the home; "a>b" links a to b, "~" home
        QTest::addColumn<QStringList>("trashed"); // below files/, each with its record
        QTest::addColumn<QStringList>("modes");   // "path=octal" below the Trash, in this order
        QTest::addColumn<int>("remaining");
        const auto row = [](const char *name, const QStringList &layout, const QStringList &trashed,
                            const QStringList &modes = {}, int remaining = 0,
                            const QString &dataHome = {}) {
            QTest::newRow(name) << dataHome << layout << trashed << modes << remaining;
        };
        // A Trash never created is already empty; one leading out of its place is refused.
        const QString t = u".local/share/Trash/"_s;
        row("never created", {u"data/"_s}, {}, {}, 0, u"data"_s);
        row("no files folder", {t + u"info/old.trashinfo"_s}, {});
        row("a file where a folder belongs", {u".local"_s}, {});
        row("files links elsewhere",
            {u"e/a.txt"_s, t + u"info/a.txt.trashinfo"_s, t + u"files>~/e"_s}, {}, {}, 1);
        row("info links elsewhere",
            {t + u"files/a.txt"_s, t + u"files/b/"_s, u"e/a.txt.trashinfo"_s, u"e/b.trashinfo"_s,
             t + u"info>~/e"_s},
            {}, {}, 2);
        row("Trash leads out of the data home",
            {u"o/Trash/files/a.txt"_s, u"o/Trash/info/a.txt.trashinfo"_s,
             u"data/Trash>~/o/Trash"_s},
            {}, {}, 1, u"data"_s);
        row("Trash is the home", {u"work/w.txt"_s, u".local/share/Trash>~"_s}, {}, {}, 1);
        // What is in it goes with its record, whatever its name, shape or rights.
        row("files, folders, hidden and Chinese names, XDG_DATA_HOME", {},
            {u".bashrc"_s, u"报告 2024.txt"_s, u"empty/"_s, u".config/.sub/.x"_s,
             u"tree/a/b/c.txt"_s, u"tree/a/b2/"_s, u"tree/top.txt"_s},
            {}, 0, u"data"_s);
        row("links, removed and never followed", {},
            {u"file>~/outside/target.txt"_s, u"relative>../../../../outside/folder"_s,
             u"slash>~/outside/folder/"_s, u"box/in>~/outside/folder"_s, u"box/deep/home>~"_s,
             u"dangling>~/outside/missing"_s});
        // Run unprivileged: permission bits do not stop root.
        row("read-only, unreadable and search-only trees", {},
            {u"box/a.txt"_s, u"box/secret/s.txt"_s, u"tree/x/y/z.txt"_s, u"ro/r.txt"_s},
            {u"files/box/secret=0"_s, u"files/box=500"_s, u"files/tree/x/y=555"_s,
             u"files/tree/x=100"_s, u"files/tree=555"_s, u"files/ro/r.txt=444"_s,
             u"files/ro=500"_s});
        row("read-only files and info folders", {}, {u"a.txt"_s, u"box/b"_s},
            {u"files=500"_s, u"info=500"_s});
        row("deeper than PATH_MAX", {}, {u"deep/"_s}, {u"files=700"_s}); // a mode: unprivileged
    }

    // Nothing outside the Trash changes, whatever leads where.
    void emptyingRemovesTheTrashOnly()
    {
        QFETCH(QString, dataHome);
        QFETCH(QStringList, layout);
        QFETCH(QStringList, trashed);
        QFETCH(QStringList, modes);
        QFETCH(int, remaining);
        if (!dataHome.isEmpty())
            qputenv("XDG_DATA_HOME", native(home(dataHome)));
        // A link followed would change this read-only folder, its mode at least.
        build(home(u"outside"_s), {u"target.txt"_s, u"folder/sub/b.txt"_s});
        QVERIFY(::chmod(native(home(u"outside/folder/sub"_s)).constData(), 0500) == 0);
        build(m_home.path(), layout);
        if (!trashed.isEmpty()) {
            build(files(), trashed);
            for (const QString &name : entries(files()))
                build(info(), {name + u".trashinfo"_s});
            build(trash(), {u"info/orphan.trashinfo"_s, u"unrelated.txt"_s});
        }
        const QString inside = trashed.isEmpty() ? QString() : trash();
        const QStringList before = snapshot(m_home.path(), inside);
        const auto confirmed = counted(); // before a slow set-up can age the fresh record
        for (const QString &entry : modes)
            QVERIFY(!::chmod(native(trash() + u'/' + entry.section(u'=', 0, 0)).constData(),
                             entry.section(u'=', 1).toUInt(nullptr, 8)));
        if (!modes.isEmpty() && !dropRoot())
            QSKIP("cannot hand the home to an unprivileged user");
        QVERIFY(!trashed.contains(u"deep/"_s) || buildDeep(files() + u"/deep"_s));
        const qsizetype open = entries(u"/proc/self/fd"_s).size();
        const Platform::TrashEmptying result = Platform::emptyTrash(confirmed, user());

        QCOMPARE(entries(u"/proc/self/fd"_s).size(), open);
        QCOMPARE(result.remaining, remaining);
        QCOMPARE(result.emptied, remaining == 0);
        QCOMPARE(snapshot(m_home.path(), inside), before);
        if (trashed.isEmpty())
            return;
        // A fresh record without its item may belong to a move on its way in.
        QCOMPARE(entries(files()) + entries(info()) + entries(trash()),
                 (QStringList{u"orphan.trashinfo"_s, u"files"_s, u"info"_s, u"unrelated.txt"_s}));
    }

    // A restore racing the emptying either wins, and gets the whole folder back, or loses, and
    // finds it gone; it never finds its folder emptied at its new place.
    void restoreRacingTheEmptying()
    {
        QStringList layout;
        for (int i = 0; i < 400; ++i)
            layout << u"box/d%1/f"_s.arg(i % 20) + QString::number(i);
        const QDeadlineTimer deadline(5000);
        for (int round = 0; round < 10 && !deadline.hasExpired(); ++round) {
            trashLayout(layout);
            const std::optional<Platform::TrashContents> confirmed = counted();
            const QString restored = home(u"restored%1"_s.arg(round));
            std::atomic<bool> started{false};
            std::thread emptying([&] {
                started = true;
                Platform::emptyTrash(confirmed, user());
            });
            while (!started)
                std::this_thread::yield();
            for (int spin = 0; spin < round * 200; ++spin)
                std::this_thread::yield();
            const bool won = ::rename(native(files() + u"/box"_s).constData(),
                                      native(restored).constData()) == 0;
            emptying.join();
            QCOMPARE(snapshot(restored).size(), won ? 20 + 400 : 0);
            QCOMPARE(entries(files()), QStringList());
        }
    }

    // Only what was counted goes, and only what could go: what is restored, replaced or
    // arrives after the count stays, and so does what resists.
    void emptyingTakesOnlyWhatWasCounted_data()
    {
        QTest::addColumn<QStringList>("layout");
        QTest::addColumn<QString>("change");    // between counting and emptying: "restored", …
        QTest::addColumn<QStringList>("stuck"); // "+i:" immutable, "mount:" the outside bound in
        QTest::addColumn<QStringList>("survivors"); // below files/; the rest must go
        const auto row = [](const char *name, const QStringList &layout, const QStringList &stuck,
                            const QStringList &survivors, const QString &change = {}) {
            QTest::newRow(name) << layout << change << stuck << survivors;
        };
        const QStringList box{u"box/a.txt"_s, u"box/sub/b.txt"_s, u"gone.txt"_s};
        row("restored", box, {}, {}, u"restored"_s);
        row("replaced under the same name", box, {}, {u"box"_s, u"box/new.txt"_s}, u"replaced"_s);
        row("arrived", box, {}, {u"late.txt"_s}, u"arrived"_s);
        row("immutable files and folder",
            {u"box/a.txt"_s, u"box/sub/stuck.txt"_s, u"box/sub/b.txt"_s, u"one.txt"_s, u"two/f"_s,
             u"three.txt"_s, u"four/"_s},
            {u"+i:box/sub/stuck.txt"_s, u"+i:one.txt"_s, u"+i:two"_s},
            {u"box"_s, u"box/sub"_s, u"box/sub/stuck.txt"_s, u"one.txt"_s, u"two"_s, u"two/f"_s});
        // Past the folders held open the way up reopens them; what stayed is not entered again.
        QStringList chain{u"box"_s};
        for (int level = 0; level < 40; ++level)
            chain << chain.last() + u"/d"_s;
        const QString stuck = chain.last() + u"/stuck.txt"_s;
        row("immutable file below the held folders",
            {stuck, u"box/free.txt"_s, chain.at(20) + u"/free.txt"_s}, {u"+i:"_s + stuck},
            chain + QStringList{stuck});
        // What is mounted inside is not the Trash's: it stays, and so does what holds it.
        row("mounts as an entry and inside a folder",
            {u"mnt/"_s, u"box/mnt/"_s, u"box/free.txt"_s, u"other.txt"_s},
            {u"mount:mnt"_s, u"mount:box/mnt"_s}, {u"mnt"_s, u"box"_s, u"box/mnt"_s});
    }

    void emptyingTakesOnlyWhatWasCounted()
    {
        QFETCH(QStringList, layout);
        QFETCH(QString, change);
        QFETCH(QStringList, stuck);
        QFETCH(QStringList, survivors);
        trashLayout(layout);
        build(home(u"outside"_s), {u"a.txt"_s, u"sub/b.txt"_s});
        const QStringList outside = snapshot(home(u"outside"_s));
        for (const QString &entry : stuck) {
            const QString path = files() + u'/' + entry.section(u':', 1);
            const bool mount = entry.startsWith(u"mount:");
            if (QProcess::execute(mount ? u"mount"_s : u"chattr"_s,
                                  mount ? QStringList{u"--bind"_s, home(u"outside"_s), path}
                                        : QStringList{u"+i"_s, path}) != 0)
                QSKIP("bind mounts and chattr +i need root and a file system that has them");
            m_undo << (mount ? QStringList{u"umount"_s, path}
                             : QStringList{u"chattr"_s, u"-i"_s, path});
        }
        // A record without its item since well before the count goes; a fresh one stays.
        build(info(), {u"stale.trashinfo"_s, u"fresh.trashinfo"_s});
        const timespec old[2] = {{0, UTIME_OMIT}, {::time(nullptr) - 3600, 0}};
        QVERIFY(!::utimensat(AT_FDCWD, native(info() + u"/stale.trashinfo"_s).constData(), old, 0));
        const std::optional<Platform::TrashContents> confirmed = counted();
        const QString box = files() + u"/box"_s, restored = home(u"restored"_s);
        if (change == u"restored" || change == u"replaced")
            QVERIFY(::rename(native(box).constData(), native(restored).constData()) == 0 &&
                    QFile::remove(info() + u"/box.trashinfo"_s));
        if (change == u"replaced")
            trashLayout({u"box/new.txt"_s});
        if (change == u"arrived")
            trashLayout({u"late.txt"_s});
        const QStringList restoredTree = snapshot(restored);
        QStringList top = survivors.filter(QRegularExpression(u"^[^/]+$"_s)), infos = top;
        top.sort();
        const int kept = stuck.isEmpty() ? int(top.size()) : 0; // left as they came after
        (infos << u"fresh"_s).replaceInStrings(QRegularExpression(u"$"_s), u".trashinfo"_s).sort();
        QVERIFY(QDir().mkpath(trash() + u"/expunged"_s)); // left by an emptying cut short
        const Platform::TrashEmptying result = Platform::emptyTrash(confirmed, user());
        QCOMPARE(result.remaining, int(top.size()) - kept);
        QCOMPARE(result.kept, kept);
        QCOMPARE(entries(files()), top);
        QCOMPARE(entries(info()), infos);
        for (QString path : layout + survivors) {
            path.chop(path.endsWith(u'/') ? 1 : 0);
            QVERIFY2(survivors.contains(path) == (modeOf(files() + u'/' + path) >= 0),
                     qPrintable(path));
        }
        QCOMPARE(snapshot(home(u"outside"_s)), outside);
        QCOMPARE(snapshot(restored), restoredTree);
    }
};

QTEST_GUILESS_MAIN(TrashTest)
#include "tst_trash.moc"

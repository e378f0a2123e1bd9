#include "platform/TrashFixture.h"

// Moving items into the XDG Trash: names, records, refusals, other file systems, batches.
class TrashTest final : public QObject, protected TrashFixture
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { setUp(); } // built for Linux only: elsewhere the Trash is the user's
    void init() { reset(); }
    void cleanup() { tidy(); }

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

    // Items inside earlier items of the batch go with them, as one move after another finds
    // them: missing, and the folder in the Trash keeps what it held. Behind ten others, so
    // that they are due long before the folder or link holding them has moved.
    void batchLeavesWhatEarlierItemsHold()
    {
        build(home(u"work"_s), {u"d/inner"_s, u"real/x"_s, u"link>~/work/real"_s});
        QList<Platform::TrashRequest> requests;
        for (int i = 0; i < 10; ++i) {
            build(home(u"work"_s), {u"f%1"_s.arg(i)});
            requests.append({home(u"work/f%1"_s.arg(i)), u"/"_s});
        }
        for (const QString &name : {u"d"_s, u"d/inner"_s, u"link"_s, u"link/x"_s})
            requests.append({home(u"work/"_s + name), u"/"_s});
        QList<Platform::TrashMove> moves;
        Platform::TrashBatch(user()).moveAll(
            requests, [&](qsizetype, const auto &move) { moves.append(move); });
        QCOMPARE(moves.at(11).failure, TrashFailure::missing);
        QCOMPARE(moves.at(13).failure, TrashFailure::missing);
        QCOMPARE(entries(files() + u"/d"_s), QStringList{u"inner"_s});
        QCOMPARE(entries(files()).size() + entries(info()).size(), 24);
    }

    // Records written ahead, then taken by an emptying elsewhere while the batch was held up
    // for over a second: written again before their items land.
    void batchRewritesRecordsTakenMeanwhile()
    {
        QList<Platform::TrashRequest> requests;
        for (int i = 0; i < 8; ++i) {
            build(home(u"work"_s), {u"f%1"_s.arg(i)});
            requests.append({home(u"work/f%1"_s.arg(i)), u"/"_s});
        }
        Platform::TrashBatch(user()).moveAll(requests, [&](qsizetype i, const auto &move) {
            QVERIFY(move.moved);
            QTest::qSleep(i ? 0 : 1100);
            for (const QString &name : entries(info()))
                QVERIFY(i || name == u"f0.trashinfo" || QFile::remove(info() + u'/' + name));
        });
        for (const Platform::TrashRequest &request : requests)
            QCOMPARE(recorded(files() + request.path.mid(request.path.lastIndexOf(u'/'))),
                     request.path);
    }

    // The items' folder swapped for a link after the first move: what was staged before
    // still moves from the real folder, the rest is refused (or missing, while the swap was
    // half done); nothing behind the link moves.
    void batchNeverFollowsASwappedLink()
    {
        QList<Platform::TrashRequest> requests;
        for (int i = 0; i < 40; ++i) {
            build(home(u"work"_s), {u"dir/f%1"_s.arg(i)});
            build(m_home.path(), {u"bait/f%1"_s.arg(i)});
            requests.append({home(u"work/dir/f%1"_s.arg(i)), u"/"_s});
        }
        const QStringList bait = snapshot(home(u"bait"_s));
        QList<Platform::TrashMove> moves;
        Platform::TrashBatch(user()).moveAll(requests, [&](qsizetype i, const auto &move) {
            moves.append(move);
            QVERIFY(i || (QFile::rename(home(u"work/dir"_s), home(u"work/aside"_s)) &&
                          QFile::link(home(u"bait"_s), home(u"work/dir"_s))));
        });
        QCOMPARE(snapshot(home(u"bait"_s)), bait);
        QVERIFY(moves.first().moved && moves.last().errorCode == ELOOP);
        for (const Platform::TrashMove &move : moves)
            QVERIFY(move.moved ? readFile(move.trashedPath).startsWith("dir/")
                               : move.errorCode == ELOOP || move.errorCode == ENOENT);
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
};

QTEST_GUILESS_MAIN(TrashTest)
#include "tst_trash.moc"
